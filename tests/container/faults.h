/** System calls of this process that fail or do nothing on request. Nothing is really synced. */
#ifndef TESTS_CONTAINER_FAULTS_H
#define TESTS_CONTAINER_FAULTS_H

#include <cstdint>
#include <vector>

struct Faults {
    int failing_write =
        0; /**< writes from the nth one on fail (ENOSPC, half of the bytes written); 0: none */
    bool discarding = false; /**< writes and reservations succeed without doing anything */
    int64_t readable_bytes =
        INT64_MAX;               /**< past them reads fail (EIO), as where a cluster chain is too short */
    std::vector<uint64_t> calls; /**< lengths of the writes that succeeded, and 0 for each sync */
};
extern Faults faults;

#endif
