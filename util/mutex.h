#ifndef IFS_UTIL_MUTEX_H
#define IFS_UTIL_MUTEX_H

#include <pthread.h>

#include "util/thread_annotations.h"

/** A mutex that the compiler's analysis knows; std::mutex is not annotated. */
class CAPABILITY("mutex") Mutex
{
public:
    Mutex() = default;
    ~Mutex() { pthread_mutex_destroy(&m_mutex); }
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void Lock() ACQUIRE() { pthread_mutex_lock(&m_mutex); }
    void Unlock() RELEASE() { pthread_mutex_unlock(&m_mutex); }

private:
    pthread_mutex_t m_mutex = PTHREAD_MUTEX_INITIALIZER;
};

/** Holds a mutex for its scope. */
class SCOPED_CAPABILITY Mutex_holder
{
public:
    explicit Mutex_holder(Mutex& mutex) ACQUIRE(mutex) : m_mutex(mutex) { m_mutex.Lock(); }
    ~Mutex_holder() RELEASE() { m_mutex.Unlock(); }
    Mutex_holder(const Mutex_holder&) = delete;
    Mutex_holder& operator=(const Mutex_holder&) = delete;

private:
    Mutex& m_mutex;
};

#endif
