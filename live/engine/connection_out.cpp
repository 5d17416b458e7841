#include "live/engine/connection.h"

#include "foundation/heap.h"
#include "live/engine/media_out.h"
#include "live/engine/player_queue.h"
#include "rtp/interleaved_batch.h"

#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

namespace {

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

/// Sends what can be sent with nothing waiting before it: needs no memory. Returns how much.
size_t SendAtOnce(KovaLiveConnection *pConnection, const void *pBytes, size_t nSize)
{
    if (pConnection->pBegun != nullptr || pConnection->pending.pBytes != nullptr)
        return 0;
    const ssize_t nSent =
        send(pConnection->item.nDescriptor, pBytes, nSize, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (nSent > 0)
        return static_cast<size_t>(nSent);
    if (nSent < 0 && KovaSendOutcomeOfError(errno) == kSendFailed)
        KovaConnectionFail(pConnection);
    return 0;
}

bool Append(KovaPendingBytes *pPending, const void *pBytes, size_t nSize)
{
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

/// Bytes that are out and not acknowledged yet; 0 where the system does not tell.
int InSystem(const KovaLiveConnection *pConnection)
{
    int nBytes = 0;
    return ioctl(pConnection->item.nDescriptor, SIOCOUTQ, &nBytes) == 0 ? nBytes : 0;
}

/// Puts bytes in front of everything that is pending, of which nothing is out yet.
bool Prepend(KovaPendingBytes *pPending, const uint8_t *pBytes, size_t nSize)
{
    auto *pRoom = static_cast<uint8_t *>(KovaHeapAlloc(nSize + pPending->nSize));
    if (pRoom == nullptr)
        return false;
    memcpy(pRoom, pBytes, nSize);
    if (pPending->nSize != 0)
        memcpy(pRoom + nSize, pPending->pBytes, pPending->nSize);
    free(pPending->pBytes);
    *pPending = {pRoom, nSize + pPending->nSize, 0, nSize + pPending->nSize};
    return true;
}

/// What is not out of a frame, in two parts: of its header and of its packet.
bool PrependRest(KovaPendingBytes *pPending, const KovaQueueEntry &entry, uint32_t nOut)
{
    const KovaUnitPacket &packet = entry.pUnit->pPackets[entry.nNext];
    const uint8_t *pPacket = entry.pUnit->pBytes + packet.nOffset;
    if (nOut >= kInterleavedHeaderSize) {
        const uint32_t nPacketOut = nOut - kInterleavedHeaderSize;
        return Prepend(pPending, pPacket + nPacketOut, packet.nSize - nPacketOut);
    }
    uint8_t header[kInterleavedHeaderSize];
    KovaInterleavedHeaderWrite(header, entry.pSetup->nRtpChannel, packet.nSize);
    return Prepend(pPending, pPacket, packet.nSize) &&
           Prepend(pPending, header + nOut, kInterleavedHeaderSize - nOut);
}

} // namespace

bool KovaConnectionWaits(const KovaLiveConnection *pConnection)
{
    if (pConnection->pending.pBytes != nullptr)
        return true;
    // Behind the last answer no media goes out.
    if (pConnection->bClosing)
        return false;
    for (const KovaLiveSession *pSession = pConnection->pSessions; pSession != nullptr;
         pSession = pSession->pNextOwn) {
        if (pSession->bInterleaved && pSession->queue.nCount != 0)
            return true;
    }
    return false;
}

bool KovaConnectionSend(KovaLiveConnection *pConnection, const void *pBytes, size_t nSize)
{
    if (pConnection->bEnded)
        return false;
    if (!KovaConnectionWaits(pConnection))
        pConnection->nProgress = pConnection->pLoop->nNow;
    const size_t nSent = SendAtOnce(pConnection, pBytes, nSize);
    if (nSent == nSize)
        return true;
    if (pConnection->bEnded)
        return false;
    if (!Append(&pConnection->pending, static_cast<const uint8_t *>(pBytes) + nSent,
                nSize - nSent)) {
        KovaConnectionFail(pConnection);
        return false;
    }
    // Reports are sent outside the connection's events: nobody else would wait for room.
    KovaConnectionArm(pConnection);
    return true;
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

void KovaConnectionNoteFull(KovaLiveConnection *pConnection)
{
    if (pConnection->nNoted == pConnection->nProgress)
        return;
    pConnection->nNoted = pConnection->nProgress;
    pConnection->nInSystem = InSystem(pConnection);
}

bool KovaConnectionTook(KovaLiveConnection *pConnection)
{
    if (InSystem(pConnection) >= pConnection->nInSystem)
        return false;
    pConnection->nProgress = pConnection->pLoop->nNow;
    return true;
}

void KovaConnectionFinishFrame(KovaLiveSession *pSession)
{
    KovaLiveConnection *pConnection = pSession->pConnection;
    if (pConnection == nullptr || pConnection->pBegun != pSession)
        return;
    pConnection->pBegun = nullptr;
    const bool bKept =
        !pConnection->bEnded &&
        PrependRest(&pConnection->pending, *KovaQueueAt(pSession, 0), pSession->queue.nBegunOut);
    // Nothing behind half a frame could be read.
    if (!bKept)
        KovaConnectionFail(pConnection);
    else
        KovaQueueSent(pSession);
}
