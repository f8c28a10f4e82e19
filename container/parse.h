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

} // namespace ifs_mp4

#endif
