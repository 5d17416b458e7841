#include "unlock_hook.h"

#include "tests/support/c_calls.h"

#include <utility>

namespace {

/// Of the thread that made the hook; nobody else's unlocking is looked at.
thread_local const pthread_mutex_t *t_pMutex = nullptr;
thread_local const std::function<void()> *t_pAction = nullptr;
thread_local int t_nCalls = 0;

std::function<void()> g_action;

int Unlock(pthread_mutex_t *pMutex)
{
    const int nResult = __real_pthread_mutex_unlock(pMutex);
    if (t_pMutex == pMutex) {
        t_nCalls++;
        (*t_pAction)();
    }
    return nResult;
}

} // namespace

KovaUnlockHook::KovaUnlockHook(const pthread_mutex_t *pMutex, std::function<void()> action)
{
    g_action = std::move(action);
    t_pAction = &g_action;
    t_nCalls = 0;
    t_pMutex = pMutex;
    KovaReplaceCall<__real_pthread_mutex_unlock>(Unlock);
}

KovaUnlockHook::~KovaUnlockHook()
{
    t_pMutex = nullptr;
}

int KovaUnlockHook::Calls() const
{
    return t_nCalls;
}
