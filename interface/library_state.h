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

protected:
    unsigned m_locks;
};

/* The sets that calls hold, each a class, so that the compiler's analysis knows them. */
#define IFS_HELD_LOCKS(name, locks, ...)                                                                     \
    class SCOPED_CAPABILITY name : public Held_locks                                                         \
    {                                                                                                        \
    public:                                                                                                  \
        name() ACQUIRE(__VA_ARGS__) : Held_locks(locks) {}                                                   \
        ~name() RELEASE() {}                                                                                 \
        /** Leave the locks to someone else to release. */                                                   \
        void Hand_over() RELEASE() { m_locks = 0; }                                                          \
    };
IFS_HELD_LOCKS(Held_interface, LOCK_INTERFACE, gIfs_interface_lock)
IFS_HELD_LOCKS(Held_write, LOCK_WRITE, gIfs_write_lock)
IFS_HELD_LOCKS(Held_read, LOCK_READ, gIfs_read_lock)
IFS_HELD_LOCKS(Held_interface_write, LOCK_INTERFACE | LOCK_WRITE, gIfs_interface_lock, gIfs_write_lock)
IFS_HELD_LOCKS(Held_interface_read, LOCK_INTERFACE | LOCK_READ, gIfs_interface_lock, gIfs_read_lock)
IFS_HELD_LOCKS(Held_all, LOCK_INTERFACE | LOCK_WRITE | LOCK_READ, gIfs_interface_lock, gIfs_write_lock,
               gIfs_read_lock)

/**
 * Do with a store operation what use says: "return", or "result =". When memory runs out its result is -1, as
 * no exception may leave the library.
 */
#define IFS_FROM_STORE(use, operation)                                                                       \
    try {                                                                                                    \
        use pgIpc_file_system->operation;                                                                    \
    } catch (const std::bad_alloc&) {                                                                        \
        use(-1);                                                                                             \
    }

#endif
