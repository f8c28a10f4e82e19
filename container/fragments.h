/** The fragments of a recording. */
#ifndef CONTAINER_FRAGMENTS_H
#define CONTAINER_FRAGMENTS_H

#include <cstdint>

#include "container/file.h"
#include "container/parse.h"

namespace ifs_mp4
{

/**
 * Add the fragments from pos on to a movie, up to the first one that is torn or damaged.
 *
 * @param pos    begin of a fragment; then the end of the last one that was added
 * @param count  fragments that the movie holds, updated
 */
void walk_fragments(Source& source, ParsedMovie& movie, uint64_t& pos, uint32_t& count);

/**
 * Take the samples that are whole out of a recording's first fragment, which is torn.
 *
 * @param pos  begin of the fragment
 * @return false: there are none
 */
bool salvage_fragment(Source& source, ParsedMovie& movie, uint64_t pos);

/**
 * Read the fragment whose payload begins at an offset.
 * @return false: there is none, or it is damaged
 */
bool find_fragment(Source& source, uint64_t payload, Fragment& fragment);

} // namespace ifs_mp4

#endif
