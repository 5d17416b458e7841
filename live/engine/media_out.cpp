#include "live/engine/media_out.h"

#include "live/engine/connection.h"
#include "live/engine/media_steps.h"
#include "live/engine/notices.h"
#include "live/engine/player_queue.h"
#include "live/engine/rtcp_out.h"

#include <sys/uio.h>

namespace {

/// How often the host is asked for a key frame for which players wait, at most.
constexpr uint64_t kWaitKeyInterval = 1000000;

/// How long a newcomer's sound waits for the picture's entry, at most.
constexpr uint64_t kPictureWait = 5000000;

bool IsVideo(const KovaLiveStream *pStream, uint32_t nTrack)
{
    return KovaTrackMediaCodec(pStream->pTracks[nTrack]->pMedia) == KOVA_LIVE_H264;
}

/// Too much waits: only entries count from here on.
void CutBack(KovaLiveSession *pSession)
{
    KovaQueueCut(pSession);
    if (pSession->bSlow)
        return;
    pSession->bSlow = true;
    KovaNoticePlayer(pSession->pLoop, KOVA_LIVE_EVENT_OVERFLOW, pSession, 0);
}

/// Asked with each picture that is not taken: the first time may have been too soon after
/// another's, or the host may have missed it.
void AskForKey(KovaLiveSession *pSession, uint32_t nTrack)
{
    KovaLiveStream *pStream = pSession->pStream;
    if (IsVideo(pStream, nTrack) &&
        KovaStreamWantsKey(pStream, nTrack, pSession->pLoop->nNow, kWaitKeyInterval))
        KovaNoticeStream(pSession->pLoop, KOVA_LIVE_EVENT_KEY_FRAME, pStream,
                         pStream->pTracks[nTrack]);
}

/// Sound begins with the picture: over TCP some players take all tracks for beginning at once,
/// and show one that came later by a second beside its time.
bool WaitsForPicture(const KovaLiveSession *pSession, const KovaUnit *pUnit)
{
    if (IsVideo(pSession->pStream, pUnit->nTrack) ||
        pSession->pLoop->nNow - pSession->nJoined >= kPictureWait)
        return false;
    for (const KovaLiveSetup *pSetup = pSession->pSetups; pSetup != nullptr;
         pSetup = pSetup->pNext) {
        if (pSetup->bWantsEntry && IsVideo(pSession->pStream, pSetup->nTrack))
            return true;
    }
    return false;
}

/// Whether the player gets this unit, which is about to be sent.
bool Admits(KovaLiveSession *pSession, KovaLiveSetup *pSetup, const KovaUnit *pUnit)
{
    // Serial numbers wrap; those of units that were kept are told apart by their distance, which
    // stays small for as long as somebody plays: the mark goes along.
    if (static_cast<int32_t>(pUnit->nSerial - pSession->nSerial) <= 0)
        return false;
    pSession->nSerial = pUnit->nSerial;
    if (KovaQueueOverfull(pSession, pUnit->nBytes))
        CutBack(pSession);
    if (pSetup->bWantsEntry && (!pUnit->bEntry || WaitsForPicture(pSession, pUnit))) {
        if (pSession->bSlow)
            KovaSessionCountLate(pSession, pUnit->nPackets);
        AskForKey(pSession, pUnit->nTrack);
        return false;
    }
    pSetup->bWantsEntry = false;
    if (pSession->queue.nCount == 0)
        pSession->bSlow = false;
    return true;
}

/// Notes which players of the stream get the unit, and sends the reports that are due.
void Admit(KovaLiveLoop *pLoop, const KovaLiveStream *pStream, const KovaUnit *pUnit)
{
    for (KovaLiveSession *pSession = pStream->pPlayers[pLoop->nIndex]; pSession != nullptr;
         pSession = pSession->pNextPlayer) {
        KovaLiveSetup *pSetup = KovaSessionSetup(pSession, pUnit->nTrack);
        if (pSetup == nullptr)
            continue;
        pSetup->bTakes = Admits(pSession, pSetup, pUnit);
        if (pSetup->bTakes && pSetup->nNextReport <= pLoop->nNow)
            KovaRtcpSendReport(pSession, pSetup);
    }
}

/// Without memory for a reference the packets are late.
void QueueRest(KovaLiveSession *pSession, KovaLiveSetup *pSetup, KovaUnit *pUnit, uint32_t nFirst,
               uint32_t nEnd)
{
    if (nFirst < nEnd && !KovaQueueAppend(pSession, pSetup, pUnit, nFirst, nEnd))
        KovaSessionCountLate(pSession, nEnd - nFirst);
}

/// A frame that is out in part has to be finished: without memory the connection ends.
void SendByTcp(KovaLiveSession *pSession, KovaLiveSetup *pSetup, KovaUnit *pUnit, uint32_t nFirst,
               uint32_t nEnd, KovaInterleavedFrame *pFrames)
{
    KovaLiveConnection *pConnection = pSession->pConnection;
    // Sending behind the last answer fails, and would end the connection before the peer has it.
    if (pConnection->bEnded || pConnection->bClosing)
        return;
    if (pConnection->pBegun != nullptr || pConnection->pending.pBytes != nullptr ||
        pSession->queue.nCount != 0) {
        QueueRest(pSession, pSetup, pUnit, nFirst, nEnd);
        return;
    }
    // The last player's frames will do, if it has the same channel.
    if (pFrames[0].nChannel != pSetup->nRtpChannel)
        KovaMediaFrames(pUnit, nFirst, nEnd, pSetup->nRtpChannel, pFrames);
    const KovaInterleavedProgress progress =
        KovaInterleavedSend(pConnection->item.nDescriptor, pFrames, nEnd - nFirst, 0);
    KovaMediaCount(pSession, pSetup, pUnit, nFirst, nFirst + progress.nFrames);
    if (progress.outcome == kSendFailed) {
        KovaConnectionFail(pConnection);
        return;
    }
    if (progress.nFrames != 0 || progress.nBytes != 0)
        pConnection->nProgress = pSession->pLoop->nNow;
    QueueRest(pSession, pSetup, pUnit, nFirst + progress.nFrames, nEnd);
    if (progress.outcome == kSendDone)
        return;
    if (progress.nBytes != 0 && pSession->queue.nCount == 0) {
        KovaConnectionFail(pConnection);
        return;
    }
    if (progress.nBytes != 0) {
        pSession->queue.nBegunOut = progress.nBytes;
        pConnection->pBegun = pSession;
    }
    KovaConnectionArm(pConnection);
}

/// One piece of a unit for all players who take it.
void SendPiece(KovaLiveLoop *pLoop, const KovaLiveStream *pStream, KovaUnit *pUnit, uint32_t nFirst,
               uint32_t nEnd)
{
    KovaInterleavedFrame frames[kMediaPiece];
    iovec packets[kMediaPiece];
    KovaMediaFrames(pUnit, nFirst, nEnd, pUnit->nChannel, frames);
    KovaMediaPackets(pUnit, nFirst, nEnd, packets);
    KovaUdpRound round = {pUnit, packets, nFirst, nEnd, 0, {}, {}};
    for (KovaLiveSession *pSession = pStream->pPlayers[pLoop->nIndex]; pSession != nullptr;
         pSession = pSession->pNextPlayer) {
        KovaLiveSetup *pSetup = KovaSessionSetup(pSession, pUnit->nTrack);
        if (pSetup == nullptr || !pSetup->bTakes)
            continue;
        if (pSetup->bInterleaved)
            SendByTcp(pSession, pSetup, pUnit, nFirst, nEnd, frames);
        else if (pSession->pPorts->bFull || pSession->queue.nCount != 0)
            QueueRest(pSession, pSetup, pUnit, nFirst, nEnd);
        else
            KovaUdpRoundAdd(&round, pSession, pSetup);
    }
    KovaUdpRoundSend(&round);
}

} // namespace

void KovaMediaDistribute(KovaLiveLoop *pLoop, KovaLiveStream *pStream, KovaUnit *pUnit,
                         uint32_t nFirst, uint32_t nEnd)
{
    if (nFirst == 0)
        Admit(pLoop, pStream, pUnit);
    while (nFirst < nEnd) {
        const uint32_t nPiece = nEnd - nFirst < kMediaPiece ? nEnd - nFirst : kMediaPiece;
        SendPiece(pLoop, pStream, pUnit, nFirst, nFirst + nPiece);
        nFirst += nPiece;
    }
}

void KovaMediaGive(KovaLiveSession *pSession, KovaUnit *pUnit)
{
    KovaLiveSetup *pSetup = KovaSessionSetup(pSession, pUnit->nTrack);
    if (pSetup == nullptr || (pSetup->bWantsEntry && !pUnit->bEntry))
        return;
    pSetup->bWantsEntry = false;
    QueueRest(pSession, pSetup, pUnit, 0, pUnit->nPackets);
}
