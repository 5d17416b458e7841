#include "live/engine/connection.h"

#include "live/engine/connection_steps.h"

#include <sys/socket.h>

#include <cstddef>

namespace {

constexpr uint64_t kDrainTime = 1000000;

/// Nothing more is read from a peer that takes no answers.
constexpr size_t kMostUnanswered = 16384;

void BeginDraining(KovaLiveConnection *pConnection)
{
    if (pConnection->nDrainUntil != 0)
        return;
    shutdown(pConnection->item.nDescriptor, SHUT_WR);
    pConnection->nDrainUntil = pConnection->pLoop->nNow + kDrainTime;
}

void Earlier(uint64_t *pDue, uint64_t nDue)
{
    if (nDue < *pDue)
        *pDue = nDue;
}

/// When a begun request has to be whole. Behind the last answer nothing is asked any more.
uint64_t RequestDue(const KovaLiveConnection *pConnection)
{
    if (pConnection->nBegunRequest == 0 || pConnection->bClosing || pConnection->hold != kHoldNone)
        return UINT64_MAX;
    return pConnection->nBegunRequest + pConnection->pLoop->pLive->settings.nRequestTime;
}

/// When something is to be done if nothing happens before.
uint64_t Deadline(const KovaLiveConnection *pConnection)
{
    const KovaLiveSettings &settings = pConnection->pLoop->pLive->settings;
    if (pConnection->nDrainUntil != 0)
        return pConnection->nDrainUntil;
    uint64_t nDue = RequestDue(pConnection);
    if (pConnection->hold != kHoldNone)
        Earlier(&nDue, pConnection->nHoldUntil);
    if (pConnection->pSessions == nullptr && pConnection->hold == kHoldNone)
        Earlier(&nDue, pConnection->nActive + settings.nIdleTime);
    if (KovaConnectionWaits(pConnection))
        Earlier(&nDue, pConnection->nProgress + settings.nPlayerStallTime);
    return nDue;
}

void EndPlayersAsSlow(KovaLiveConnection *pConnection)
{
    for (KovaLiveSession *pSession = pConnection->pSessions; pSession != nullptr;) {
        KovaLiveSession *pNext = pSession->pNextOwn;
        if (pSession->bInterleaved)
            KovaSessionEnd(pSession, KOVA_LIVE_WENT_SLOW);
        pSession = pNext;
    }
}

} // namespace

void KovaConnectionHandleTime(KovaTimer *pTimer, uint64_t nNow)
{
    auto *pConnection = reinterpret_cast<KovaLiveConnection *>(reinterpret_cast<char *>(pTimer) -
                                                               offsetof(KovaLiveConnection, timer));
    if (pConnection->bEnded ||
        (pConnection->nDrainUntil != 0 && nNow >= pConnection->nDrainUntil)) {
        KovaConnectionEnd(pConnection);
        return;
    }
    if (pConnection->hold == kHoldMove)
        return KovaConnectionMove(pConnection);
    const KovaLiveSettings &settings = pConnection->pLoop->pLive->settings;
    // Whatever Deadline names has its branch here: one that is passed over comes again at once.
    if (pConnection->hold != kHoldNone && nNow >= pConnection->nHoldUntil) {
        KovaRequestResume(pConnection);
    } else if (KovaConnectionWaits(pConnection) &&
               nNow >= pConnection->nProgress + settings.nPlayerStallTime &&
               !KovaConnectionTook(pConnection)) {
        KovaConnectionTell(pConnection, KOVA_LIVE_LOG_WARNING, " takes nothing any more");
        EndPlayersAsSlow(pConnection);
        KovaConnectionFail(pConnection);
    } else if (nNow >= RequestDue(pConnection)) {
        KovaRequestRefuse(pConnection, KovaRequest{}, 408);
        pConnection->bClosing = true;
    } else if (pConnection->pSessions == nullptr && pConnection->hold == kHoldNone &&
               nNow >= pConnection->nActive + settings.nIdleTime) {
        KovaConnectionTell(pConnection, KOVA_LIVE_LOG_INFO, " asks for nothing");
        KovaConnectionFail(pConnection);
    }
    if (pConnection->bEnded)
        KovaConnectionEnd(pConnection);
    else
        KovaConnectionArm(pConnection);
}

void KovaConnectionArm(KovaLiveConnection *pConnection)
{
    if (pConnection->bEnded)
        return;
    KovaLiveLoop *pLoop = pConnection->pLoop;
    if (pConnection->bClosing && pConnection->pending.pBytes == nullptr)
        BeginDraining(pConnection);
    const bool bReads = pConnection->hold == kHoldNone &&
                        pConnection->pending.nSize < kMostUnanswered &&
                        (!pConnection->bClosing || pConnection->nDrainUntil != 0);
    KovaPollerWant(pLoop->pPoller, &pConnection->item,
                   (bReads ? kPollRead : 0U) |
                       (KovaConnectionWaits(pConnection) ? kPollWrite : 0U));
    if (KovaConnectionWaits(pConnection))
        KovaConnectionNoteFull(pConnection);
    const uint64_t nDue = Deadline(pConnection);
    // Later deadlines are found out when the timer comes: most of them move all the time.
    if (nDue == UINT64_MAX)
        KovaTimersStop(&pLoop->timers, &pConnection->timer);
    else if (pConnection->timer.nPlace == 0 || nDue < pConnection->timer.nDue)
        KovaTimersSet(&pLoop->timers, &pConnection->timer, nDue);
}
