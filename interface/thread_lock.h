#ifndef IFS_INTERFACE_THREAD_LOCK_H
#define IFS_INTERFACE_THREAD_LOCK_H

#include <pthread.h>

/**
 * A lock that any thread may release: Ifsi_mount() takes the interface lock, the rebuild worker releases it.
 * A mutex guards the flag that says whether it is taken. Not recursive.
 */
class CIfsThreadLock
{
public:
    CIfsThreadLock();
    ~CIfsThreadLock();
    CIfsThreadLock(const CIfsThreadLock&) = delete;
    CIfsThreadLock& operator=(const CIfsThreadLock&) = delete;

    /** Wait until the lock is free and take it; tag is ignored. @return 0, or the failure of the primitive */
    int Tl_lock(const char* tag);
    /** Release the lock, whoever took it; tag is ignored. @return 0, or the failure of the primitive */
    int Tl_unlock(const char* tag);

private:
    pthread_mutex_t m_mutex;
    pthread_cond_t m_released;
    bool m_taken = false;
};

#endif
