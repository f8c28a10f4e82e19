/** Reading the headers of MP4 files, our own and others'. Every byte is taken for hostile. */
#ifndef CONTAINER_PARSE_H
#define CONTAINER_PARSE_H

#include <cstdint>

#include "container/file.h"
#include "container/tables.h"

namespace ifs_mp4
{

/** A movie that is read. */
struct ParsedMovie : Movie {
    bool recording = false; /**< made by this library */
    bool complete = false;  /**< all samples are in the moov box */
    bool refused = false;   /**< not for damage: another version, or larger than the limits */

    /** H.264: bytes of the length in front of a NAL unit. */
    size_t nal_length_bytes() const
    {
        return recording || avc_config.size() < 5 ? 4 : (avc_config[4] & 3) + 1u;
    }
};

/** Read a box "info". @return false: of another version, damaged, or an I/O error */
bool parse_info(Source& source, const Box& box, ParsedMovie& movie);

/**
 * Read a moov box. The samples of a recording that was not finished are not in it.
 *
 * @param info_only  for the description, in constant memory; the tables then know the first frame at best
 * @return false: damaged, refused, or an I/O error; movie is then of no use
 */
bool parse_moov(Source& source, const Box& moov, bool info_only, ParsedMovie& movie);

} // namespace ifs_mp4

#endif
