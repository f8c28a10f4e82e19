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

    /** H.264: bytes of the length in front of a NAL unit. */
    size_t nal_length_bytes() const { return avc_config.size() < 5 ? 4 : (avc_config[4] & 3) + 1u; }
};

/**
 * Read a moov box.
 *
 * @param info_only  of a file of our own, do without the tracks
 * @return false: damaged, or an I/O error; movie is then of no use
 */
bool parse_moov(Source& source, const Box& moov, bool info_only, ParsedMovie& movie);

/** Find the moov box of a recording behind its header, where a finished file hides it. */
bool find_recording(Source& source, Box& moov);

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

} // namespace ifs_mp4

#endif
