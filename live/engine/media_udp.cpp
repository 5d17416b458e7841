#include "live/engine/media_out.h"
#include "live/engine/media_steps.h"
#include "live/engine/player_queue.h"

namespace {

/// The socket takes no more: everybody who uses it waits for its event.
void WaitForRoom(KovaUdpPorts *pPorts)
{
    pPorts->bFull = true;
    KovaPollerWant(pPorts->pLoop->pPoller, &pPorts->rtpItem, kPollRead | kPollWrite);
}

void FillDelivery(KovaUdpDelivery *pDelivery, const KovaLiveSession *pSession,
                  KovaLiveSetup *pSetup, const iovec *pPackets, uint32_t nPackets)
{
    *pDelivery = {};
    pDelivery->nSocket = pSession->pPorts->rtpItem.nDescriptor;
    pDelivery->pAddress = &pSetup->rtpAddress;
    pDelivery->pRoute = &pSetup->route;
    pDelivery->pPackets = pPackets;
    pDelivery->nPackets = nPackets;
}

/// Goes on behind a packet that was lost. What the system refuses for one packet is that
/// packet's loss, like any loss on the way.
void FinishDelivery(const KovaUdpRound *pRound, uint32_t nPlayer)
{
    KovaUdpDelivery delivery = pRound->deliveries[nPlayer];
    KovaLiveSession *pSession = pRound->players[nPlayer].pSession;
    KovaLiveSetup *pSetup = pRound->players[nPlayer].pSetup;
    uint32_t nNext = pRound->nFirst;
    for (;;) {
        KovaMediaCount(pSession, pSetup, pRound->pUnit, nNext, nNext + delivery.nSent);
        nNext += delivery.nSent;
        if (delivery.outcome == kSendDone)
            return;
        if (delivery.outcome == kSendAgain)
            break;
        KovaSessionCountLate(pSession, 1);
        if (++nNext == pRound->nEnd)
            return;
        FillDelivery(&delivery, pSession, pSetup, pRound->pPackets + (nNext - pRound->nFirst),
                     pRound->nEnd - nNext);
        KovaUdpBatchSend(&delivery, 1);
    }
    WaitForRoom(pSession->pPorts);
    if (!KovaQueueAppend(pSession, pSetup, pRound->pUnit, nNext, pRound->nEnd))
        KovaSessionCountLate(pSession, pRound->nEnd - nNext);
}

/// The oldest entry's packets. Returns whether the socket takes more.
bool FlushEntry(KovaLiveSession *pSession)
{
    const KovaQueueEntry entry = *KovaQueueAt(pSession, 0);
    iovec packets[kMediaPiece];
    const uint32_t nLeft = entry.nEnd - entry.nNext;
    const uint32_t nCount = nLeft < kMediaPiece ? nLeft : kMediaPiece;
    KovaMediaPackets(entry.pUnit, entry.nNext, entry.nNext + nCount, packets);
    KovaUdpDelivery delivery;
    FillDelivery(&delivery, pSession, entry.pSetup, packets, nCount);
    KovaUdpBatchSend(&delivery, 1);
    for (uint32_t nPacket = 0; nPacket < delivery.nSent; nPacket++)
        KovaQueueSent(pSession);
    if (delivery.outcome == kSendFailed)
        KovaQueueLost(pSession);
    if (delivery.outcome != kSendAgain)
        return true;
    WaitForRoom(pSession->pPorts);
    return false;
}

} // namespace

void KovaUdpRoundAdd(KovaUdpRound *pRound, KovaLiveSession *pSession, KovaLiveSetup *pSetup)
{
    if (pRound->nPlayers == kUdpRoundPlayers)
        KovaUdpRoundSend(pRound);
    FillDelivery(&pRound->deliveries[pRound->nPlayers], pSession, pSetup, pRound->pPackets,
                 pRound->nEnd - pRound->nFirst);
    pRound->players[pRound->nPlayers++] = {pSession, pSetup};
}

void KovaUdpRoundSend(KovaUdpRound *pRound)
{
    if (pRound->nPlayers == 0)
        return;
    KovaUdpBatchSend(pRound->deliveries, pRound->nPlayers);
    for (uint32_t nPlayer = 0; nPlayer < pRound->nPlayers; nPlayer++)
        FinishDelivery(pRound, nPlayer);
    pRound->nPlayers = 0;
}

void KovaMediaUdpFlush(KovaLiveSession *pSession)
{
    while (pSession->queue.nCount != 0 && !pSession->pPorts->bFull) {
        if (!FlushEntry(pSession))
            return;
    }
}

void KovaMediaUdpWritable(KovaUdpPorts *pPorts)
{
    KovaMutexAssertHeld(&pPorts->pLoop->mutex);
    for (KovaLiveSession *pSession = pPorts->pLoop->pSessions; pSession != nullptr;
         pSession = pSession->pNext) {
        if (pSession->pPorts == pPorts)
            KovaMediaUdpFlush(pSession);
    }
}
