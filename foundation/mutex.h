#pragma once

#include "foundation/lock_order.h"
#include "foundation/thread_safety.h"

#include <pthread.h>

/// A mutex with default attributes. In frozen records it stands where a plain
/// pthread_mutex_t is expected, and is nothing else.
struct KOVA_CAPABILITY KovaMutex {
    pthread_mutex_t native;
};
static_assert(sizeof(KovaMutex) == sizeof(pthread_mutex_t), "outsiders see a pthread_mutex_t");
static_assert(alignof(KovaMutex) == alignof(pthread_mutex_t), "outsiders see a pthread_mutex_t");

/// Makes a mutex in zeroed or old memory, and destroys one that nobody holds.
inline void KovaMutexInit(KovaMutex *pMutex)
{
    pthread_mutex_init(&pMutex->native, nullptr);
}
inline void KovaMutexDestroy(KovaMutex *pMutex)
{
    pthread_mutex_destroy(&pMutex->native);
}

/// Takes a mutex of a rank (foundation/lock_order.h), tries to, or gives it back:
/// for guards. Everybody else holds one of those.
inline void KovaMutexTake(KovaMutex *pMutex, KovaLockRank rank)
    KOVA_ACQUIRE(pMutex) KOVA_NO_THREAD_SAFETY_ANALYSIS
{
    KovaLockOrderTake(rank);
    pthread_mutex_lock(&pMutex->native);
}
inline bool KovaMutexTryTake(KovaMutex *pMutex, KovaLockRank rank)
    KOVA_TRY_ACQUIRE(true, pMutex) KOVA_NO_THREAD_SAFETY_ANALYSIS
{
    if (pthread_mutex_trylock(&pMutex->native) != 0)
        return false;
    KovaLockOrderTaken(rank);
    return true;
}
inline void KovaMutexGive(KovaMutex *pMutex, KovaLockRank rank)
    KOVA_RELEASE(pMutex) KOVA_NO_THREAD_SAFETY_ANALYSIS
{
    pthread_mutex_unlock(&pMutex->native);
    KovaLockOrderGive(rank);
}

/// Tells the analysis that the mutex is held, where it cannot see how.
inline void KovaMutexAssertHeld(const KovaMutex *pMutex) KOVA_ASSERT_HELD(pMutex)
{
    (void)pMutex;
}

/// Holds a mutex for the life of a scope; may be given up and taken again inside
/// it (a thread that waits must not keep what others need).
class KOVA_SCOPED_CAPABILITY KovaMutexLock {
public:
    /// @param rank  the mutex's place in the order (foundation/lock_order.h)
    KovaMutexLock(KovaMutex *pMutex, KovaLockRank rank) KOVA_ACQUIRE(pMutex)
        : m_pMutex(pMutex), m_rank(rank)
    {
        Take();
    }
    ~KovaMutexLock() KOVA_RELEASE()
    {
        if (m_bHeld)
            Give();
    }
    KovaMutexLock(const KovaMutexLock &) = delete;
    KovaMutexLock &operator=(const KovaMutexLock &) = delete;

    /// Takes the mutex again after Unlock().
    void Lock() KOVA_ACQUIRE()
    {
        Take();
    }

    /// Releases the mutex before the scope ends.
    void Unlock() KOVA_RELEASE()
    {
        Give();
    }

private:
    void Take() KOVA_NO_THREAD_SAFETY_ANALYSIS
    {
        KovaMutexTake(m_pMutex, m_rank);
        m_bHeld = true;
    }
    void Give() KOVA_NO_THREAD_SAFETY_ANALYSIS
    {
        m_bHeld = false;
        KovaMutexGive(m_pMutex, m_rank);
    }

    KovaMutex *m_pMutex;
    KovaLockRank m_rank;
    bool m_bHeld = false;
};

/// Gives up for the life of a scope a mutex that a caller holds.
class KOVA_SCOPED_CAPABILITY KovaMutexUnlock {
public:
    KovaMutexUnlock(KovaMutex *pMutex, KovaLockRank rank) KOVA_RELEASE(pMutex)
        : m_pMutex(pMutex), m_rank(rank)
    {
        KovaMutexGive(pMutex, rank);
    }
    // The attribute means the opposite of what the constructor did.
    ~KovaMutexUnlock() KOVA_RELEASE()
    {
        Take();
    }
    KovaMutexUnlock(const KovaMutexUnlock &) = delete;
    KovaMutexUnlock &operator=(const KovaMutexUnlock &) = delete;

private:
    void Take() KOVA_NO_THREAD_SAFETY_ANALYSIS
    {
        KovaMutexTake(m_pMutex, m_rank);
    }

    KovaMutex *m_pMutex;
    KovaLockRank m_rank;
};
