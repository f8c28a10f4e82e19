#include "interface/thread_lock.h"

CIfsThreadLock::CIfsThreadLock()
{
    pthread_mutex_init(&m_mutex, nullptr);
    pthread_cond_init(&m_released, nullptr);
}

CIfsThreadLock::~CIfsThreadLock()
{
    pthread_cond_destroy(&m_released);
    pthread_mutex_destroy(&m_mutex);
}

int CIfsThreadLock::Tl_lock(const char*)
{
    if (const int failure = pthread_mutex_lock(&m_mutex)) {
        return failure;
    }
    while (m_taken) {
        pthread_cond_wait(&m_released, &m_mutex);
    }
    m_taken = true;
    return pthread_mutex_unlock(&m_mutex);
}

int CIfsThreadLock::Tl_unlock(const char*)
{
    if (const int failure = pthread_mutex_lock(&m_mutex)) {
        return failure;
    }
    m_taken = false;
    pthread_cond_signal(&m_released);
    return pthread_mutex_unlock(&m_mutex);
}
