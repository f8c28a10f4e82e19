#ifndef IFS_STORE_OVERLAP_POLICY_H
#define IFS_STORE_OVERLAP_POLICY_H

#include "store/process_locks.h"

class CIpcFileSystem;

/** Whether the oldest recording has to go, asked once a second. */
class Overlap_policy
{
public:
    enum class Answer {
        keep,
        delete_oldest,
        size_unknown
    };

    /** Look at the number of recordings, while it is limited, and else at the free space. */
    Answer Ask(CIpcFileSystem& store, unsigned max_files) REQUIRES(gIfs_interface_lock);

    /* What was found when each of them was last looked at. */
    unsigned main_files = 0;
    unsigned sub_files = 0;
    unsigned long long free_bytes = 0;

private:
    bool Too_many_files(CIpcFileSystem& store, unsigned max_files) REQUIRES(gIfs_interface_lock);

    bool m_by_count = false; ///< the limit was reached, and deletion goes on until well below it
};

#endif
