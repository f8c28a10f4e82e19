/** System calls of this process that fail or do nothing on request. Nothing is really synced. */
#ifndef TESTS_CONTAINER_FAULTS_H
#define TESTS_CONTAINER_FAULTS_H

#include <cstdint>
#include <vector>

namespace faults
{

/** Let writes fail (ENOSPC, half of the bytes written) from the nth one on, once or for good. 0: never. */
void fail_write(int nth, bool once);
/** Let writes and reservations succeed without doing anything. */
void discard_writes(bool discard);
/** Let reads past an offset fail (EIO), as where a cluster chain ends too early. Negative: none. */
void fail_reads_past(int64_t offset);
/** Lengths of the writes, and 0 for each sync, since the last call. */
std::vector<uint64_t> take_calls();

} // namespace faults

#endif
