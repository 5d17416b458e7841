#include "foundation/thread.h"

#include <unistd.h>

namespace {

/// Ample for every body: the largest frames are a few 8 KiB text buffers. The
/// usual default of 8 MiB would use up a 32-bit address space at some 250
/// connections.
constexpr size_t kStackSize = size_t{512} * 1024;

} // namespace

bool KovaThreadStart(pthread_t *pHandle, KovaThreadBody pfnBody, void *pArgument)
{
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0)
        return false;
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_attr_setstacksize(&attributes, kStackSize);
    pthread_t handle;
    const bool bMade = pthread_create(&handle, &attributes, pfnBody, pArgument) == 0;
    pthread_attr_destroy(&attributes);
    if (bMade && pHandle != nullptr)
        *pHandle = handle;
    return bMade;
}

bool KovaThreadStartOnce(KovaStateWord &state, KovaThreadBody pfnBody, void *pArgument)
{
    if (KovaThreadRuns(state))
        return true;
    state = kThreadStarting;
    state = kThreadRunning;
    if (KovaThreadStart(nullptr, pfnBody, pArgument))
        return true;
    state = kThreadStopped;
    return false;
}

bool KovaThreadRuns(const KovaStateWord &state)
{
    return state.load(std::memory_order_acquire) == kThreadRunning;
}

bool KovaThreadRequestStop(KovaStateWord &state)
{
    uint32_t nSeen = state.load(std::memory_order_acquire);
    while (nSeen != kThreadStopped) {
        const uint32_t nNext = nSeen == kThreadRunning ? kThreadStopRequested : kThreadStopped;
        if (state.compare_exchange_weak(nSeen, nNext, std::memory_order_acq_rel))
            return nNext == kThreadStopRequested;
    }
    return false;
}

void KovaThreadWaitStopped(const KovaStateWord &state)
{
    while (state.load(std::memory_order_acquire) != kThreadStopped)
        usleep(kPollMicroseconds);
}
