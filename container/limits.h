/**
 * What a file can hold, beside its size. The writer refuses a frame that would pass a limit; the reader
 * neither plays nor finishes a file beyond one, and knows so before it takes memory for it.
 */
#ifndef CONTAINER_LIMITS_H
#define CONTAINER_LIMITS_H

#include <cstdint>

namespace ifs_mp4
{

/**
 * Bytes that the tables of a file take in memory, as moov_bound() counts them: a day of 20 pictures
 * and 8 audio frames a second at uneven times, or 11 hours of 25 and 43.
 */
constexpr uint64_t max_table_bytes = 32 << 20;

/** The same for a fragment. The writer cuts it at a third of this; a later one may not. */
constexpr uint64_t max_fragment_table_bytes = 128 << 10;

/** Bytes of a frame; the checksums of a larger one would not fit into its fragment's head. */
constexpr uint64_t max_frame_bytes = 256 << 20;

/**
 * A look at a recording uses at most 1 MiB of memory. So it finishes only what has tables of up to this size,
 * 9 to 60 minutes of footage; a longer recording is finished when it is played.
 */
constexpr uint64_t max_probe_table_bytes = 448 << 10;

} // namespace ifs_mp4

#endif
