#include "live/engine/connection.h"
#include "live/engine/media_out.h"
#include "live/engine/media_steps.h"
#include "live/engine/player_queue.h"

namespace {

/// The next frames of a player, of as many units as it takes.
uint32_t NextFrames(const KovaLiveSession *pSession, KovaInterleavedFrame *pFrames)
{
    uint32_t nFrames = 0;
    for (uint32_t nEntry = 0; nEntry < pSession->queue.nCount && nFrames < kMediaPiece; nEntry++) {
        const KovaQueueEntry &entry = *KovaQueueAt(pSession, nEntry);
        const uint32_t nLeft = entry.nEnd - entry.nNext;
        const uint32_t nCount = nLeft < kMediaPiece - nFrames ? nLeft : kMediaPiece - nFrames;
        KovaMediaFrames(entry.pUnit, entry.nNext, entry.nNext + nCount, entry.pSetup->nRtpChannel,
                        pFrames + nFrames);
        nFrames += nCount;
    }
    return nFrames;
}

/// Returns whether the connection takes more media.
bool FlushPlayer(KovaLiveConnection *pConnection, KovaLiveSession *pSession)
{
    while (pSession->queue.nCount != 0) {
        KovaInterleavedFrame frames[kMediaPiece];
        uint32_t nFrames = NextFrames(pSession, frames);
        // An answer that came meanwhile goes behind the frame that is begun, not behind all.
        if (pConnection->pending.pBytes != nullptr)
            nFrames = 1;
        const uint32_t nBegun = pSession->queue.nBegunOut;
        const KovaInterleavedProgress progress =
            KovaInterleavedSend(pConnection->item.nDescriptor, frames, nFrames, nBegun);
        if (progress.nFrames != 0 || progress.nBytes != nBegun)
            pConnection->nProgress = pConnection->pLoop->nNow;
        for (uint32_t nFrame = 0; nFrame < progress.nFrames; nFrame++)
            KovaQueueSent(pSession);
        if (progress.outcome == kSendFailed) {
            KovaConnectionFail(pConnection);
            return false;
        }
        pConnection->pBegun = nullptr;
        if (progress.outcome == kSendAgain) {
            pSession->queue.nBegunOut = progress.nBytes;
            if (progress.nBytes != 0)
                pConnection->pBegun = pSession;
            return false;
        }
        if (pConnection->pending.pBytes != nullptr)
            return false;
    }
    return true;
}

} // namespace

void KovaMediaFrames(const KovaUnit *pUnit, uint32_t nFirst, uint32_t nEnd, uint8_t nChannel,
                     KovaInterleavedFrame *pFrames)
{
    for (uint32_t nPacket = nFirst; nPacket < nEnd; nPacket++) {
        const KovaUnitPacket &packet = pUnit->pPackets[nPacket];
        *pFrames++ = {pUnit->pBytes + packet.nOffset, packet.nSize, nChannel,
                      nChannel == pUnit->nChannel};
    }
}

void KovaMediaPackets(const KovaUnit *pUnit, uint32_t nFirst, uint32_t nEnd, iovec *pPackets)
{
    for (uint32_t nPacket = nFirst; nPacket < nEnd; nPacket++) {
        const KovaUnitPacket &packet = pUnit->pPackets[nPacket];
        *pPackets++ = {const_cast<uint8_t *>(pUnit->pBytes + packet.nOffset), packet.nSize};
    }
}

void KovaMediaCount(KovaLiveSession *pSession, KovaLiveSetup *pSetup, const KovaUnit *pUnit,
                    uint32_t nFirst, uint32_t nEnd)
{
    uint32_t nBytes = 0;
    for (uint32_t nPacket = nFirst; nPacket < nEnd; nPacket++)
        nBytes += pUnit->pPackets[nPacket].nSize;
    if (nFirst < nEnd)
        KovaSessionCountSent(pSession, pSetup, nEnd - nFirst, nBytes);
}

void KovaMediaTcpFlush(KovaLiveConnection *pConnection)
{
    if (pConnection->pBegun != nullptr && !FlushPlayer(pConnection, pConnection->pBegun))
        return;
    for (KovaLiveSession *pSession = pConnection->pSessions; pSession != nullptr;
         pSession = pSession->pNextOwn) {
        if (pSession->bInterleaved && !FlushPlayer(pConnection, pSession))
            return;
    }
}
