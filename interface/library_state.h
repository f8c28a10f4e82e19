#ifndef IFS_INTERFACE_LIBRARY_STATE_H
#define IFS_INTERFACE_LIBRARY_STATE_H

#include <new>

#include "interface/thread_lock.h"
#include "store/ipc_file_system.h"

/* Made when the library is loaded and never destroyed. */
extern CIpcFileSystem* pgIpc_file_system;
extern CIfsThreadLock* pgIfs_interface_tl;
extern CIfsThreadLock* pgIfs_write_tl;
extern CIfsThreadLock* pgIfs_read_tl;

/** Whether the overlap worker deletes recordings. A shared word. */
extern unsigned char gIfs_overlap_flag;

/** Which locks a call holds. */
enum {
    LOCK_INTERFACE = 1,
    LOCK_WRITE = 2,
    LOCK_READ = 4,
};

/** Holds a set of the three locks: taken in the order interface, write, read, released in reverse. */
class Held_locks
{
public:
    explicit Held_locks(unsigned locks);
    ~Held_locks();
    Held_locks(const Held_locks&) = delete;
    Held_locks& operator=(const Held_locks&) = delete;

    /** Leave the locks to someone else to release. */
    void Hand_over() { m_locks = 0; }

private:
    unsigned m_locks;
};

/** Run a store operation; when memory runs out it fails, as no exception may leave the library. */
template <typename Operation>
int Call_store(Operation operation)
{
    try {
        return operation();
    } catch (const std::bad_alloc&) {
        return -1;
    }
}

#endif
