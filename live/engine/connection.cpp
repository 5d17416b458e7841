#include "live/engine/connection.h"

#include "foundation/heap.h"
#include "live/engine/notices.h"
#include "live/engine/peer_counts.h"
#include "live/engine/rtcp_in.h"
#include "rtp/tcp_options.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

namespace {

/// Reads of one event: the others on this loop get their turn.
constexpr int kReadsPerEvent = 4;

constexpr uint64_t kDrainTime = 1000000;

/// What the reader takes for a first message.
constexpr size_t kKeptRoom = 2048;

/// Nothing more is read from a peer that takes no answers.
constexpr size_t kMostUnanswered = 16384;

/// What still comes after the last answer is thrown away, up to the peer's end: a socket
/// that is closed with unread bytes takes the answer away from the peer.
void Drain(KovaLiveConnection *pConnection)
{
    uint8_t thrown[512];
    for (int nRead = 0; nRead < kReadsPerEvent; nRead++) {
        const ssize_t nCount =
            recv(pConnection->item.nDescriptor, thrown, sizeof(thrown), MSG_DONTWAIT);
        if (nCount > 0)
            continue;
        if (nCount == 0 || (errno != EAGAIN && errno != EINTR))
            KovaConnectionFail(pConnection);
        return;
    }
}

void BeginDraining(KovaLiveConnection *pConnection)
{
    if (pConnection->nDrainUntil != 0)
        return;
    shutdown(pConnection->item.nDescriptor, SHUT_WR);
    pConnection->nDrainUntil = pConnection->pLoop->nNow + kDrainTime;
}

void Receive(KovaLiveConnection *pConnection)
{
    if (pConnection->nDrainUntil != 0) {
        Drain(pConnection);
        return;
    }
    for (int nRead = 0; nRead < kReadsPerEvent; nRead++) {
        size_t nRoom = 0;
        uint8_t *pRoom = KovaRequestReaderRoom(&pConnection->reader, &nRoom);
        if (pRoom == nullptr) {
            KovaConnectionFail(pConnection);
            return;
        }
        const ssize_t nCount = recv(pConnection->item.nDescriptor, pRoom, nRoom, MSG_DONTWAIT);
        if (nCount <= 0) {
            if (nCount == 0 || (errno != EAGAIN && errno != EINTR))
                KovaConnectionFail(pConnection);
            break;
        }
        KovaRequestReaderTook(&pConnection->reader, static_cast<size_t>(nCount));
        KovaConnectionServe(pConnection);
        if (pConnection->bEnded || pConnection->hold != kHoldNone || pConnection->bClosing ||
            static_cast<size_t>(nCount) < nRoom)
            break;
    }
    // Who plays keeps the room for small messages: a shortage of memory does not end its reports.
    if (pConnection->pSessions == nullptr || pConnection->reader.nCapacity > kKeptRoom)
        KovaRequestReaderRelax(&pConnection->reader);
}

void HandleEvent(KovaPollItem *pItem, uint32_t nEvents)
{
    auto *pConnection = reinterpret_cast<KovaLiveConnection *>(pItem);
    if ((nEvents & kPollWrite) != 0)
        KovaConnectionFlush(pConnection);
    if ((nEvents & kPollRead) != 0 && !pConnection->bEnded && (pItem->nWanted & kPollRead) != 0)
        Receive(pConnection);
    if ((nEvents & kPollEnd) != 0)
        KovaConnectionFail(pConnection);
    if (pConnection->bEnded)
        KovaConnectionEnd(pConnection);
    else
        KovaConnectionArm(pConnection);
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

void Tell(const KovaLiveConnection *pConnection, int32_t nLevel, const char *szSays)
{
    KovaNoticePeer(pConnection->pLoop, nLevel, pConnection->peer.sin_addr.s_addr,
                   ntohs(pConnection->peer.sin_port), szSays);
}

void HandleTime(KovaTimer *pTimer, uint64_t nNow)
{
    auto *pConnection = reinterpret_cast<KovaLiveConnection *>(reinterpret_cast<char *>(pTimer) -
                                                               offsetof(KovaLiveConnection, timer));
    if (pConnection->bEnded ||
        (pConnection->nDrainUntil != 0 && nNow >= pConnection->nDrainUntil)) {
        KovaConnectionEnd(pConnection);
        return;
    }
    const KovaLiveSettings &settings = pConnection->pLoop->pLive->settings;
    // Whatever Deadline names has its branch here: one that is passed over comes again at once.
    if (pConnection->hold != kHoldNone && nNow >= pConnection->nHoldUntil) {
        KovaRequestResume(pConnection);
    } else if (KovaConnectionWaits(pConnection) &&
               nNow >= pConnection->nProgress + settings.nPlayerStallTime &&
               !KovaConnectionTook(pConnection)) {
        Tell(pConnection, KOVA_LIVE_LOG_WARNING, " takes nothing any more");
        EndPlayersAsSlow(pConnection);
        KovaConnectionFail(pConnection);
    } else if (nNow >= RequestDue(pConnection)) {
        KovaRequestRefuse(pConnection, KovaRequest{}, 408);
        pConnection->bClosing = true;
    } else if (pConnection->pSessions == nullptr && pConnection->hold == kHoldNone &&
               nNow >= pConnection->nActive + settings.nIdleTime) {
        Tell(pConnection, KOVA_LIVE_LOG_INFO, " asks for nothing");
        KovaConnectionFail(pConnection);
    }
    if (pConnection->bEnded)
        KovaConnectionEnd(pConnection);
    else
        KovaConnectionArm(pConnection);
}

KovaLiveConnection *Make(KovaLiveLoop *pLoop, int nSocket)
{
    KovaLiveConnection *pConnection = KovaHeapNew<KovaLiveConnection>();
    if (pConnection == nullptr)
        return nullptr;
    if (!KovaTimersJoin(&pLoop->timers)) {
        free(pConnection);
        return nullptr;
    }
    pConnection->item = {nSocket, kPollRead, HandleEvent, 0};
    pConnection->timer.pfnHandle = HandleTime;
    if (KovaPollerAdd(pLoop->pPoller, &pConnection->item))
        return pConnection;
    KovaTimersLeave(&pLoop->timers, &pConnection->timer);
    free(pConnection);
    return nullptr;
}

void NoteOwnAddress(KovaLiveConnection *pConnection)
{
    socklen_t nLength = sizeof(pConnection->local);
    (void)getsockname(pConnection->item.nDescriptor,
                      reinterpret_cast<sockaddr *>(&pConnection->local), &nLength);
}

} // namespace

void KovaConnectionForget(KovaLiveLoop *pLoop, int nSocket, const sockaddr_in &peer)
{
    close(nSocket);
    KovaPeerLeave(pLoop->pLive, peer.sin_addr.s_addr);
    pLoop->nLoad--;
    pLoop->pLive->nConnections--;
}

void KovaConnectionTake(KovaLiveLoop *pLoop, int nSocket, const sockaddr_in &peer)
{
    KovaLiveConnection *pConnection = Make(pLoop, nSocket);
    if (pConnection == nullptr)
        return KovaConnectionForget(pLoop, nSocket, peer);
    KovaTcpPrepare(nSocket);
    pConnection->pLoop = pLoop;
    pConnection->peer = peer;
    NoteOwnAddress(pConnection);
    pConnection->nActive = pLoop->nNow;
    pConnection->nProgress = pLoop->nNow;
    pConnection->pNext = pLoop->pConnections;
    pConnection->ppLink = &pLoop->pConnections;
    if (pConnection->pNext != nullptr)
        pConnection->pNext->ppLink = &pConnection->pNext;
    pLoop->pConnections = pConnection;
    KovaConnectionArm(pConnection);
}

void KovaConnectionEnd(KovaLiveConnection *pConnection)
{
    KovaLiveLoop *pLoop = pConnection->pLoop;
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
    *pConnection->ppLink = pConnection->pNext;
    if (pConnection->pNext != nullptr)
        pConnection->pNext->ppLink = pConnection->ppLink;
    KovaPollerRemove(pLoop->pPoller, &pConnection->item);
    KovaTimersLeave(&pLoop->timers, &pConnection->timer);
    // A child that the host forked may have the descriptor, too: the peer shall see the end.
    shutdown(pConnection->item.nDescriptor, SHUT_RDWR);
    KovaConnectionForget(pLoop, pConnection->item.nDescriptor, pConnection->peer);
    KovaRequestReaderClear(&pConnection->reader);
    free(pConnection->pending.pBytes);
    KovaStreamRelease(pConnection->pHeldStream);
    free(pConnection->pHeldText);
    free(pConnection);
}

void KovaConnectionFail(KovaLiveConnection *pConnection)
{
    if (pConnection->bEnded)
        return;
    pConnection->bEnded = true;
    // Whoever walks over players stands on it: its timer takes it away.
    KovaTimersSet(&pConnection->pLoop->timers, &pConnection->timer, 0);
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

void KovaConnectionServe(KovaLiveConnection *pConnection)
{
    KovaReadItem item;
    while (!pConnection->bEnded && !pConnection->bClosing && pConnection->hold == kHoldNone) {
        KovaRequestReaderNext(&pConnection->reader, &item);
        if (item.kind == kReadMore)
            break;
        pConnection->nBegunRequest = 0;
        if (item.kind == kReadFrame) {
            KovaRtcpFromFrame(pConnection, item.nChannel, item.frame);
            continue;
        }
        pConnection->nActive = pConnection->pLoop->nNow;
        if (item.kind == kReadRequest) {
            KovaRequestServe(pConnection, item.request);
        } else {
            pConnection->bClosing = item.bFatal;
            KovaRequestRefuse(pConnection, item.request, item.nStatus);
        }
    }
    if (!KovaRequestReaderBegun(&pConnection->reader))
        pConnection->nBegunRequest = 0;
    else if (pConnection->nBegunRequest == 0)
        pConnection->nBegunRequest = pConnection->pLoop->nNow;
}
