#include "unlock_hook.h"

#include <dlfcn.h>

#include <utility>

namespace {

/// Of the thread that made the hook; nobody else's unlocking is looked at.
thread_local const pthread_mutex_t *t_pMutex = nullptr;
thread_local const std::function<void()> *t_pAction = nullptr;
thread_local int t_nCalls = 0;

std::function<void()> g_action;

} // namespace

// Stands in for the C library's function in the whole program.
extern "C" int pthread_mutex_unlock(pthread_mutex_t *pMutex) noexcept
{
    using Function = int (*)(pthread_mutex_t *);
    static const Function pfnReal =
        reinterpret_cast<Function>(dlsym(RTLD_NEXT, "pthread_mutex_unlock"));
    const int nResult = pfnReal(pMutex);
    if (t_pMutex == pMutex) {
        t_nCalls++;
        (*t_pAction)();
    }
    return nResult;
}

KovaUnlockHook::KovaUnlockHook(const pthread_mutex_t *pMutex, std::function<void()> action)
{
    g_action = std::move(action);
    t_pAction = &g_action;
    t_nCalls = 0;
    t_pMutex = pMutex;
}

KovaUnlockHook::~KovaUnlockHook()
{
    t_pMutex = nullptr;
}

int KovaUnlockHook::Calls() const
{
    return t_nCalls;
}
