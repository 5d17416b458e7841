#include "live/engine/connection.h"

#include "foundation/heap.h"
#include "live/engine/media_out.h"
#include "live/engine/notices.h"
#include "live/engine/player_queue.h"
#include "live/engine/rtcp_in.h"
#include "rtp/interleaved_batch.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

namespace {

/// Reads of one event: the others on this loop get their turn.
constexpr int kReadsPerEvent = 4;

constexpr uint64_t kDrainTime = 1000000;

/// Nothing more is read from a peer that takes no answers.
constexpr size_t kMostUnanswered = 16384;

constexpr int kKeepAliveIdleSeconds = 30;
constexpr int kKeepAliveIntervalSeconds = 10;
constexpr int kKeepAliveProbes = 3;

void SetOption(int nSocket, int nLevel, int nName, int nValue)
{
    setsockopt(nSocket, nLevel, nName, &nValue, sizeof(nValue));
}

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

bool HasWaiting(const KovaLiveConnection *pConnection)
{
    if (pConnection->pending.pBytes != nullptr)
        return true;
    for (const KovaLiveSession *pSession = pConnection->pSessions; pSession != nullptr;
         pSession = pSession->pNextOwn) {
        if (pSession->bInterleaved && pSession->queue.nCount != 0)
            return true;
    }
    return false;
}

void Earlier(uint64_t *pDue, uint64_t nDue)
{
    if (nDue < *pDue)
        *pDue = nDue;
}

/// When something is to be done if nothing happens before.
uint64_t Deadline(const KovaLiveConnection *pConnection)
{
    const KovaLiveSettings &settings = pConnection->pLoop->pLive->settings;
    if (pConnection->nDrainUntil != 0)
        return pConnection->nDrainUntil;
    uint64_t nDue = UINT64_MAX;
    if (pConnection->hold != kHoldNone)
        Earlier(&nDue, pConnection->nHoldUntil);
    else if (pConnection->nBegunRequest != 0)
        Earlier(&nDue, pConnection->nBegunRequest + settings.nRequestTime);
    if (pConnection->pSessions == nullptr && pConnection->hold == kHoldNone)
        Earlier(&nDue, pConnection->nActive + settings.nIdleTime);
    if (HasWaiting(pConnection))
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
    char szPeer[INET_ADDRSTRLEN];
    inet_ntop(AF_INET, &pConnection->peer.sin_addr, szPeer, sizeof(szPeer));
    if (pConnection->hold != kHoldNone) {
        if (nNow >= pConnection->nHoldUntil)
            KovaRequestResume(pConnection);
    } else if (HasWaiting(pConnection) &&
               nNow >= pConnection->nProgress + settings.nPlayerStallTime) {
        KovaNoticeLog(pConnection->pLoop, KOVA_LIVE_LOG_WARNING, "%s:%u takes nothing any more",
                      szPeer, ntohs(pConnection->peer.sin_port));
        EndPlayersAsSlow(pConnection);
        KovaConnectionFail(pConnection);
    } else if (pConnection->nBegunRequest != 0 &&
               nNow >= pConnection->nBegunRequest + settings.nRequestTime) {
        KovaRequestRefuse(pConnection, KovaRequest{}, 408);
        pConnection->bClosing = true;
    } else if (pConnection->pSessions == nullptr &&
               nNow >= pConnection->nActive + settings.nIdleTime) {
        KovaNoticeLog(pConnection->pLoop, KOVA_LIVE_LOG_INFO, "%s:%u asks for nothing", szPeer,
                      ntohs(pConnection->peer.sin_port));
        KovaConnectionFail(pConnection);
    }
    if (pConnection->bEnded)
        KovaConnectionEnd(pConnection);
    else
        KovaConnectionArm(pConnection);
}

/// Sends what is pending. Returns whether all of it is out.
bool FlushPending(KovaLiveConnection *pConnection)
{
    KovaPendingBytes *pPending = &pConnection->pending;
    while (pPending->nSent < pPending->nSize) {
        const ssize_t nSent =
            send(pConnection->item.nDescriptor, pPending->pBytes + pPending->nSent,
                 pPending->nSize - pPending->nSent, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (nSent <= 0) {
            if (nSent < 0 && KovaSendOutcomeOfError(errno) == kSendFailed)
                KovaConnectionFail(pConnection);
            return false;
        }
        pPending->nSent += static_cast<size_t>(nSent);
        pConnection->nProgress = pConnection->pLoop->nNow;
    }
    free(pPending->pBytes);
    *pPending = {};
    return true;
}

bool Append(KovaPendingBytes *pPending, const void *pBytes, size_t nSize)
{
    if (nSize == 0)
        return true;
    constexpr size_t kMostPending = size_t{256} * 1024;
    if (pPending->nSize + nSize > kMostPending)
        return false;
    if (pPending->nSize + nSize > pPending->nRoom) {
        const size_t nRoom = pPending->nSize + nSize;
        void *pRoom = realloc(pPending->pBytes, nRoom);
        if (pRoom == nullptr)
            return false;
        pPending->pBytes = static_cast<uint8_t *>(pRoom);
        pPending->nRoom = nRoom;
    }
    memcpy(pPending->pBytes + pPending->nSize, pBytes, nSize);
    pPending->nSize += nSize;
    return true;
}

uint32_t ConnectionsOf(const KovaLiveLoop *pLoop, uint32_t nAddress)
{
    uint32_t nCount = 0;
    for (const KovaLiveConnection *pConnection = pLoop->pConnections; pConnection != nullptr;
         pConnection = pConnection->pNext)
        nCount += pConnection->peer.sin_addr.s_addr == nAddress ? 1 : 0;
    return nCount;
}

/// Of several loops each counts its own.
bool IsOneTooMany(const KovaLiveConnection *pConnection)
{
    const uint32_t nMost = pConnection->pLoop->pLive->settings.nMaxPerAddress;
    return nMost != 0 &&
           ConnectionsOf(pConnection->pLoop, pConnection->peer.sin_addr.s_addr) > nMost;
}

void TurnAway(KovaLiveConnection *pConnection)
{
    char szPeer[INET_ADDRSTRLEN];
    inet_ntop(AF_INET, &pConnection->peer.sin_addr, szPeer, sizeof(szPeer));
    KovaNoticeLog(pConnection->pLoop, KOVA_LIVE_LOG_WARNING, "%s has too many connections", szPeer);
    pConnection->bClosing = true;
    KovaRequestRefuse(pConnection, KovaRequest{}, 503);
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

void NoteAddresses(KovaLiveConnection *pConnection)
{
    socklen_t nLength = sizeof(pConnection->peer);
    getpeername(pConnection->item.nDescriptor, reinterpret_cast<sockaddr *>(&pConnection->peer),
                &nLength);
    nLength = sizeof(pConnection->local);
    getsockname(pConnection->item.nDescriptor, reinterpret_cast<sockaddr *>(&pConnection->local),
                &nLength);
}

} // namespace

void KovaConnectionTake(KovaLiveLoop *pLoop, int nSocket)
{
    KovaLiveConnection *pConnection = Make(pLoop, nSocket);
    if (pConnection == nullptr) {
        close(nSocket);
        pLoop->nLoad--;
        pLoop->pLive->nConnections--;
        return;
    }
    SetOption(nSocket, IPPROTO_TCP, TCP_NODELAY, 1);
    SetOption(nSocket, SOL_SOCKET, SO_KEEPALIVE, 1);
    SetOption(nSocket, IPPROTO_TCP, TCP_KEEPIDLE, kKeepAliveIdleSeconds);
    SetOption(nSocket, IPPROTO_TCP, TCP_KEEPINTVL, kKeepAliveIntervalSeconds);
    SetOption(nSocket, IPPROTO_TCP, TCP_KEEPCNT, kKeepAliveProbes);
    pConnection->pLoop = pLoop;
    NoteAddresses(pConnection);
    pConnection->nActive = pLoop->nNow;
    pConnection->nProgress = pLoop->nNow;
    pConnection->pNext = pLoop->pConnections;
    pConnection->ppLink = &pLoop->pConnections;
    if (pConnection->pNext != nullptr)
        pConnection->pNext->ppLink = &pConnection->pNext;
    pLoop->pConnections = pConnection;
    if (IsOneTooMany(pConnection))
        TurnAway(pConnection);
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
    close(pConnection->item.nDescriptor);
    KovaRequestReaderClear(&pConnection->reader);
    free(pConnection->pending.pBytes);
    KovaStreamRelease(pConnection->pHeldStream);
    free(pConnection->pHeldText);
    free(pConnection);
    pLoop->nLoad--;
    pLoop->pLive->nConnections--;
}

void KovaConnectionFail(KovaLiveConnection *pConnection)
{
    if (pConnection->bEnded)
        return;
    pConnection->bEnded = true;
    // Whoever walks over players stands on it: its timer takes it away.
    KovaTimersSet(&pConnection->pLoop->timers, &pConnection->timer, 0);
}

bool KovaConnectionSend(KovaLiveConnection *pConnection, const void *pBytes, size_t nSize)
{
    if (pConnection->bEnded)
        return false;
    if (!HasWaiting(pConnection))
        pConnection->nProgress = pConnection->pLoop->nNow;
    if (!Append(&pConnection->pending, pBytes, nSize)) {
        KovaConnectionFail(pConnection);
        return false;
    }
    if (pConnection->pBegun == nullptr)
        FlushPending(pConnection);
    return true;
}

void KovaConnectionFinishFrame(KovaLiveConnection *pConnection)
{
    KovaLiveSession *pSession = pConnection->pBegun;
    const KovaQueueEntry entry = *KovaQueueAt(pSession, 0);
    const KovaUnitPacket &packet = entry.pUnit->pPackets[entry.nNext];
    uint8_t header[kInterleavedHeaderSize];
    KovaInterleavedHeaderWrite(header, entry.pSetup->nRtpChannel, packet.nSize);
    const KovaPendingBytes behind = pConnection->pending;
    uint32_t nOut = pSession->queue.nBegunOut;
    pConnection->pending = {};
    pConnection->pBegun = nullptr;
    bool bKept = true;
    if (nOut < kInterleavedHeaderSize) {
        bKept = Append(&pConnection->pending, header + nOut, kInterleavedHeaderSize - nOut);
        nOut = kInterleavedHeaderSize;
    }
    nOut -= kInterleavedHeaderSize;
    bKept = bKept &&
            Append(&pConnection->pending, entry.pUnit->pBytes + packet.nOffset + nOut,
                   packet.nSize - nOut) &&
            Append(&pConnection->pending, behind.pBytes, behind.nSize);
    free(behind.pBytes);
    KovaQueueSent(pSession);
    if (!bKept)
        KovaConnectionFail(pConnection);
}

void KovaConnectionFlush(KovaLiveConnection *pConnection)
{
    if (pConnection->bEnded)
        return;
    if (pConnection->pBegun != nullptr)
        KovaMediaTcpFlush(pConnection);
    if (pConnection->pBegun != nullptr || pConnection->bEnded)
        return;
    if (pConnection->pending.pBytes != nullptr && !FlushPending(pConnection))
        return;
    if (!pConnection->bClosing)
        KovaMediaTcpFlush(pConnection);
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
                   (bReads ? kPollRead : 0U) | (HasWaiting(pConnection) ? kPollWrite : 0U));
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
        if (item.kind == kReadFrame) {
            KovaRtcpFromFrame(pConnection, item.nChannel, item.frame);
            continue;
        }
        pConnection->nActive = pConnection->pLoop->nNow;
        pConnection->nBegunRequest = 0;
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
