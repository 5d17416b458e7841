#pragma once

#include <pthread.h>

#include <functional>

/// Calls something in the thread that has just unlocked a mutex, before that
/// thread goes on: what another thread could do there is done there, every
/// time. Ends with the object. One object at a time.
class KovaUnlockHook {
public:
    KovaUnlockHook(const pthread_mutex_t *pMutex, std::function<void()> action);
    ~KovaUnlockHook();
    KovaUnlockHook(const KovaUnlockHook &) = delete;
    KovaUnlockHook &operator=(const KovaUnlockHook &) = delete;

    /// How often the mutex was unlocked by the thread that made this object.
    int Calls() const;
};
