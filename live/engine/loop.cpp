#include "live/engine/loop.h"

#include "foundation/clock.h"
#include "foundation/heap.h"
#include "live/engine/connection.h"
#include "live/engine/deliver.h"
#include "live/engine/notices.h"
#include "live/engine/udp_ports.h"

#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr size_t kStackSize = size_t{1024} * 1024; // frames are much larger there
#else
constexpr size_t kStackSize = size_t{64} * 1024;
#endif

/// Rounds in a row in which more happened than one wait can bring, and no timer is looked at:
/// with the usual limit of connections all have had their turn then.
constexpr uint32_t kMostFullRounds = 16;

void HandleWake(KovaPollItem *pItem, uint32_t)
{
    const auto *pLoop = reinterpret_cast<KovaLiveLoop *>(reinterpret_cast<char *>(pItem) -
                                                         offsetof(KovaLiveLoop, wakeItem));
    KovaWakeTake(&pLoop->wake);
}

void HandleListenTime(KovaTimer *pTimer, uint64_t)
{
    auto *pLoop = reinterpret_cast<KovaLiveLoop *>(reinterpret_cast<char *>(pTimer) -
                                                   offsetof(KovaLiveLoop, listenTimer));
    KovaListenerResume(pLoop);
}

void HandleMessage(KovaLiveLoop *pLoop, KovaLoopMessage *pMessage) KOVA_REQUIRES(pLoop->mutex)
{
    switch (pMessage->order) {
    case kOrderUnit:
        KovaDeliverUnit(pLoop, pMessage);
        return;
    case kOrderConnection:
        KovaConnectionTake(pLoop, pMessage->pConnection);
        break;
    case kOrderReady:
        if (pLoop->nIndex == 0)
            KovaNoticeStream(pLoop, KOVA_LIVE_EVENT_STREAM_READY, pMessage->pStream, nullptr);
        KovaConnectionStreamReady(pLoop, pMessage->pStream);
        break;
    }
    KovaStreamRelease(pMessage->pStream);
    KovaLoopRecycle(pLoop, pMessage);
}

/// Players whom the host lets go, and those of streams that were removed. Their connections
/// stay.
void EndMarked(KovaLiveLoop *pLoop) KOVA_REQUIRES(pLoop->mutex)
{
    if (!pLoop->bLook.exchange(false))
        return;
    for (KovaLiveSession *pSession = pLoop->pSessions; pSession != nullptr;) {
        KovaLiveSession *pNext = pSession->pNext;
        if (pSession->pStream->bGone)
            KovaSessionEnd(pSession, KOVA_LIVE_WENT_STREAM);
        else if (pSession->bDisconnect)
            KovaSessionEnd(pSession, KOVA_LIVE_WENT_DISCONNECTED);
        pSession = pNext;
    }
    KovaConnectionStreamsGone(pLoop);
}

void HandleInbox(KovaLiveLoop *pLoop) KOVA_REQUIRES(pLoop->mutex)
{
    KovaLoopMessage *pMessage = KovaLoopTakeInbox(pLoop);
    // No unit is handled at a time before its push.
    if (pMessage != nullptr)
        pLoop->nNow = KovaClockMonotonic();
    while (pMessage != nullptr) {
        KovaLoopMessage *pNext = pMessage->pNext;
        pMessage->pNext = nullptr;
        HandleMessage(pLoop, pMessage);
        pMessage = pNext;
    }
}

/// Tells the host what there is to tell, with no lock held.
void Tell(KovaLiveLoop *pLoop)
{
    KovaNotices *pNotices = pLoop->pNotices;
    pLoop->pNotices = nullptr;
    if (pNotices != nullptr)
        KovaNoticesTell(pLoop->pLive, pNotices);
}

void *Run(void *pArgument)
{
    auto *pLoop = static_cast<KovaLiveLoop *>(pArgument);
    char szName[16];
    snprintf(szName, sizeof(szName), "kova-live-%u", pLoop->nIndex);
    prctl(PR_SET_NAME, szName);
    while (!pLoop->bStop) {
        KovaLoopRound(pLoop, KovaTimersWait(&pLoop->timers, KovaClockMonotonic()));
    }
    KovaLoopEndAll(pLoop);
    return nullptr;
}

void DropMessages(KovaLive *pLive, KovaLoopMessage *pMessage)
{
    while (pMessage != nullptr) {
        KovaLoopMessage *pNext = pMessage->pNext;
        if (pMessage->order == kOrderConnection)
            KovaConnectionDestroy(pLive, pMessage->pConnection);
        KovaUnitRelease(pMessage->pUnit);
        KovaStreamRelease(pMessage->pStream);
        free(pMessage);
        pMessage = pNext;
    }
}

void DropInbox(KovaLiveLoop *pLoop)
{
    // A message may hold a stream's last reference, whose end takes the stream's mutex.
    DropMessages(pLoop->pLive, KovaLoopTakeInbox(pLoop));
    const KovaMutexLock lock(&pLoop->inboxMutex, kRankLiveInbox);
    while (pLoop->pSpare != nullptr) {
        KovaLoopMessage *pMessage = pLoop->pSpare;
        pLoop->pSpare = pMessage->pNext;
        free(pMessage);
    }
}

/// The parts that can fail. What is missing when it returns false is null or -1.
bool Equip(KovaLiveLoop *pLoop)
{
    if (!KovaWakeOpen(&pLoop->wake)) {
        pLoop->wake.nReadEnd = -1;
        return false;
    }
    pLoop->pPoller = KovaPollerCreate(false);
    if (pLoop->pPoller == nullptr)
        return false;
    pLoop->wakeItem = {pLoop->wake.nReadEnd, kPollRead, HandleWake, 0};
    if (!KovaPollerAdd(pLoop->pPoller, &pLoop->wakeItem))
        return false;
    constexpr uint32_t kOwnTimers = 3;
    for (uint32_t nTimer = 0; nTimer < kOwnTimers; nTimer++) {
        if (!KovaTimersJoin(&pLoop->timers))
            return false;
    }
    if (pLoop->nIndex != 0)
        return true;
    if (KovaListenerJoin(pLoop)) {
        pLoop->bListens = true;
        return true;
    }
    return false;
}

} // namespace

int32_t KovaLoopCreate(KovaLive *pLive, uint32_t nIndex, KovaLiveLoop **ppLoop)
{
    KovaLiveLoop *pLoop = KovaHeapNew<KovaLiveLoop>();
    if (pLoop == nullptr)
        return KOVA_LIVE_ERROR_MEMORY;
    pLoop->pLive = pLive;
    pLoop->nIndex = nIndex;
    pLoop->nReserve = -1;
    KovaMutexInit(&pLoop->mutex);
    KovaMutexInit(&pLoop->inboxMutex);
    {
        const KovaMutexLock lock(&pLoop->inboxMutex, kRankLiveInbox);
        pLoop->ppInboxEnd = &pLoop->pInbox;
    }
    pLoop->ppDelayedEnd = &pLoop->pDelayed;
    pLoop->listenTimer.pfnHandle = HandleListenTime;
    KovaDeliverInit(pLoop);
    if (!Equip(pLoop)) {
        KovaLoopDestroy(pLoop);
        return KOVA_LIVE_ERROR_SYSTEM;
    }
    *ppLoop = pLoop;
    return KOVA_LIVE_OK;
}

void KovaLoopRound(KovaLiveLoop *pLoop, int nMilliseconds)
{
    KovaPollerWait(pLoop->pPoller, nMilliseconds);
    KovaMutexLock lock(&pLoop->mutex, kRankLiveLoop);
    pLoop->nNow = KovaClockMonotonic();
    const bool bMore = KovaPollerHandle(pLoop->pPoller);
    HandleInbox(pLoop);
    EndMarked(pLoop);
    // A process that was stopped sees what came meanwhile before it counts as late.
    if (!bMore || ++pLoop->nFullRounds > kMostFullRounds) {
        pLoop->nFullRounds = 0;
        KovaTimersHandle(&pLoop->timers, pLoop->nNow);
    }
    lock.Unlock();
    Tell(pLoop);
}

void KovaLoopEndAll(KovaLiveLoop *pLoop)
{
    KovaMutexLock lock(&pLoop->mutex, kRankLiveLoop);
    pLoop->nNow = KovaClockMonotonic();
    while (pLoop->pSessions != nullptr)
        KovaSessionEnd(pLoop->pSessions, KOVA_LIVE_WENT_STREAM);
    while (pLoop->pConnections != nullptr)
        KovaConnectionEnd(pLoop->pConnections);
    lock.Unlock();
    Tell(pLoop);
}

int32_t KovaLoopStart(KovaLiveLoop *pLoop)
{
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0)
        return KOVA_LIVE_ERROR_SYSTEM;
    pthread_attr_setstacksize(&attributes, kStackSize);
    // Signals are for the host's own threads.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    // A host with much thread-local data needs more: then the system's own size.
    pLoop->bStarted = pthread_create(&pLoop->thread, &attributes, Run, pLoop) == 0 ||
                      pthread_create(&pLoop->thread, nullptr, Run, pLoop) == 0;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    pthread_attr_destroy(&attributes);
    return pLoop->bStarted ? KOVA_LIVE_OK : KOVA_LIVE_ERROR_SYSTEM;
}

void KovaLoopStop(KovaLiveLoop *pLoop)
{
    if (!pLoop->bStarted)
        return;
    pLoop->bStop = true;
    KovaWakeSignal(&pLoop->wake);
    pthread_join(pLoop->thread, nullptr);
    pLoop->bStarted = false;
}

void KovaLoopDestroy(KovaLiveLoop *pLoop)
{
    KovaDeliverForget(pLoop, nullptr);
    DropInbox(pLoop);
    if (pLoop->bListens)
        KovaListenerLeave(pLoop);
    if (pLoop->pPoller != nullptr)
        KovaUdpPortsClose(pLoop);
    KovaPollerDestroy(pLoop->pPoller);
    if (pLoop->wake.nReadEnd >= 0)
        KovaWakeClose(&pLoop->wake);
    KovaTimersClear(&pLoop->timers);
    KovaNoticesDestroy(pLoop->pNotices);
    KovaMutexDestroy(&pLoop->mutex);
    KovaMutexDestroy(&pLoop->inboxMutex);
    free(pLoop);
}

bool KovaLoopIsCaller(const KovaLive *pLive)
{
    for (uint32_t nLoop = 0; nLoop < pLive->nLoops; nLoop++) {
        const KovaLiveLoop *pLoop = pLive->pLoops[nLoop];
        if (pLoop->bStarted && pthread_equal(pLoop->thread, pthread_self()) != 0)
            return true;
    }
    return false;
}
