#pragma once

#include <pthread.h>

/// Holds a mutex for the life of a scope; may be given up and taken again
/// inside it (a thread that waits must not keep what others need).
class KovaMutexLock {
public:
    explicit KovaMutexLock(pthread_mutex_t *pMutex) : m_pMutex(pMutex)
    {
        Lock();
    }
    ~KovaMutexLock()
    {
        if (m_bHeld)
            Unlock();
    }
    KovaMutexLock(const KovaMutexLock &) = delete;
    KovaMutexLock &operator=(const KovaMutexLock &) = delete;

    /// Takes the mutex again after Unlock().
    void Lock()
    {
        pthread_mutex_lock(m_pMutex);
        m_bHeld = true;
    }

    /// Releases the mutex before the scope ends.
    void Unlock()
    {
        m_bHeld = false;
        pthread_mutex_unlock(m_pMutex);
    }

private:
    pthread_mutex_t *m_pMutex;
    bool m_bHeld = false;
};
