#include "live/engine/connection.h"

#include "foundation/heap.h"
#include "live/engine/connection_steps.h"
#include "live/engine/notices.h"
#include "live/engine/peer_counts.h"
#include "rtp/tcp_options.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

void HandleEvent(KovaPollItem *pItem, uint32_t nEvents)
{
    auto *pConnection = reinterpret_cast<KovaLiveConnection *>(pItem);
    if ((nEvents & kPollWrite) != 0)
        KovaConnectionFlush(pConnection);
    if ((nEvents & kPollRead) != 0 && !pConnection->bEnded && (pItem->nWanted & kPollRead) != 0)
        KovaConnectionReceive(pConnection);
    if ((nEvents & kPollEnd) != 0)
        KovaConnectionFail(pConnection);
    if (pConnection->bEnded)
        KovaConnectionEnd(pConnection);
    else
        KovaConnectionArm(pConnection);
}

/// Waits for it on a loop's poller and timers. False when there is no room.
bool Watch(KovaLiveLoop *pLoop, KovaLiveConnection *pConnection)
{
    if (!KovaTimersJoin(&pLoop->timers))
        return false;
    if (KovaPollerAdd(pLoop->pPoller, &pConnection->item))
        return true;
    KovaTimersLeave(&pLoop->timers, &pConnection->timer);
    return false;
}

void Unwatch(KovaLiveConnection *pConnection)
{
    KovaLiveLoop *pLoop = pConnection->pLoop;
    *pConnection->ppLink = pConnection->pNext;
    if (pConnection->pNext != nullptr)
        pConnection->pNext->ppLink = pConnection->ppLink;
    KovaPollerRemove(pLoop->pPoller, &pConnection->item);
    KovaTimersLeave(&pLoop->timers, &pConnection->timer);
    pLoop->nLoad--;
}

} // namespace

KovaLiveConnection *KovaConnectionCreate(int nSocket, const sockaddr_in &peer)
{
    KovaLiveConnection *pConnection = KovaHeapNew<KovaLiveConnection>();
    if (pConnection == nullptr)
        return nullptr;
    KovaTcpPrepare(nSocket);
    pConnection->item = {nSocket, kPollRead, HandleEvent, 0};
    pConnection->timer.pfnHandle = KovaConnectionHandleTime;
    pConnection->peer = peer;
    socklen_t nLength = sizeof(pConnection->local);
    (void)getsockname(nSocket, reinterpret_cast<sockaddr *>(&pConnection->local), &nLength);
    return pConnection;
}

void KovaConnectionForget(KovaLive *pLive, int nSocket, const sockaddr_in &peer)
{
    close(nSocket);
    KovaPeerLeave(pLive, peer.sin_addr.s_addr);
    pLive->nConnections--;
}

void KovaConnectionDestroy(KovaLive *pLive, KovaLiveConnection *pConnection)
{
    // A child that the host forked may have the descriptor, too: the peer shall see the end.
    shutdown(pConnection->item.nDescriptor, SHUT_RDWR);
    KovaConnectionForget(pLive, pConnection->item.nDescriptor, pConnection->peer);
    KovaRequestReaderClear(&pConnection->reader);
    free(pConnection->pending.pBytes);
    KovaStreamRelease(pConnection->pHeldStream);
    free(pConnection->pHeldText);
    free(pConnection);
}

void KovaConnectionHand(KovaLiveConnection *pConnection, KovaLiveLoop *pTo, bool bOwn)
{
    pTo->nLoad++;
    if (bOwn)
        return KovaConnectionTake(pTo, pConnection);
    if (KovaLoopPostConnection(pTo, pConnection))
        return;
    pTo->nLoad--;
    KovaConnectionDestroy(pTo->pLive, pConnection);
}

void KovaConnectionTake(KovaLiveLoop *pLoop, KovaLiveConnection *pConnection)
{
    if (!Watch(pLoop, pConnection)) {
        pLoop->nLoad--;
        return KovaConnectionDestroy(pLoop->pLive, pConnection);
    }
    pConnection->pLoop = pLoop;
    pConnection->hold = kHoldNone;
    pConnection->nActive = pLoop->nNow;
    pConnection->nProgress = pLoop->nNow;
    pConnection->pNext = pLoop->pConnections;
    pConnection->ppLink = &pLoop->pConnections;
    if (pConnection->pNext != nullptr)
        pConnection->pNext->ppLink = &pConnection->pNext;
    pLoop->pConnections = pConnection;
    KovaConnectionServe(pConnection);
    KovaConnectionArm(pConnection);
}

bool KovaConnectionFollow(KovaLiveConnection *pConnection, KovaLiveLoop *pOwner)
{
    // What it has here cannot come with it.
    if (pOwner == nullptr || pOwner == pConnection->pLoop || pConnection->pSessions != nullptr)
        return false;
    pConnection->hold = kHoldMove;
    pConnection->nHoldUntil = 0;
    pConnection->pMovesTo = pOwner;
    return true;
}

void KovaConnectionMove(KovaLiveConnection *pConnection)
{
    Unwatch(pConnection);
    KovaConnectionHand(pConnection, pConnection->pMovesTo, false);
}

void KovaConnectionEnd(KovaLiveConnection *pConnection)
{
    pConnection->bEnded = true;
    while (pConnection->pSessions != nullptr) {
        KovaLiveSession *pSession = pConnection->pSessions;
        if (pSession->bInterleaved || pSession->state == kSessionReady) {
            KovaSessionEnd(pSession, KOVA_LIVE_WENT_CONNECTION);
            continue;
        }
        pConnection->pSessions = pSession->pNextOwn;
        pSession->pConnection = nullptr;
    }
    Unwatch(pConnection);
    KovaConnectionDestroy(pConnection->pLoop->pLive, pConnection);
}

void KovaConnectionTell(const KovaLiveConnection *pConnection, int32_t nLevel, const char *szSays)
{
    KovaNoticePeer(pConnection->pLoop, nLevel, pConnection->peer.sin_addr.s_addr,
                   ntohs(pConnection->peer.sin_port), szSays);
}

void KovaConnectionFail(KovaLiveConnection *pConnection)
{
    if (pConnection->bEnded)
        return;
    pConnection->bEnded = true;
    // Whoever walks over players stands on it: its timer takes it away.
    KovaTimersSet(&pConnection->pLoop->timers, &pConnection->timer, 0);
}
