/** Whether a recording is still what was written. */
#ifndef CONTAINER_VERIFY_H
#define CONTAINER_VERIFY_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "container/file.h"
#include "container/fragments.h"
#include "container/parse.h"

namespace ifs_mp4
{

/** What the checksums of a recording prove. */
struct Verification {
    bool has_checks = false;    /**< else the recording is older than they are, and nothing else is said */
    std::vector<Loss> losses;   /**< frames that are not what was written, those in front of the durable end
                                   only   where the recording was not finished */
    bool tables_differ = false; /**< the last moov does not hold what the sound fragments do */
};

/**
 * Read all of a recording. What was left out when it was finished is neither a loss nor a difference.
 *
 * @param name    of the file
 * @param moov    of a finished recording, its last one; its content begins at 0: it was not finished
 * @param parsed  that moov
 * @param passed  called with positions in the file, ascending
 */
Verification verify_recording(Source& source, const std::string& name, const Box& moov,
                              const ParsedMovie& parsed, const std::function<void(uint64_t)>& passed);

} // namespace ifs_mp4

#endif
