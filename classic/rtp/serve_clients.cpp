#include "classic/rtp/serve_clients.h"

#include "classic/rtp/rtcp_arrivals.h"
#include "foundation/clock.h"
#include "foundation/log.h"
#include "foundation/mutex.h"
#include "foundation/text.h"

#include <unistd.h>

#include <cstdio>

namespace {

/// Longest sleep for waiting clients, microseconds: a stop request wakes the
/// thread; this bounds the wait for a state word that somebody wrote without.
constexpr uint32_t kPayStep = 10000;

/// After so many clients whoever waits for them is let in: a batch for a full group
/// takes the time of several requests.
constexpr uint32_t kMostClientsAtOnce = 128;

/// A client whose connection is lost leaves, and its session with it.
void RemoveGone(KovaRtpSendGroup *pGroup, KovaServingPass *pPass, KovaRtpClient *pClient)
    KOVA_REQUIRES(pGroup->clientMutex)
{
    char szSessionId[kSessionIdSize];
    KovaTextCopy(szSessionId, sizeof(szSessionId), pClient->szSessionId);
    KovaListTake(pGroup->pClientList, nullptr, pClient);
    KovaSessionTally *pTally = pClient->pTally;
    pClient->pTally = nullptr;
    KovaRtpClientDestroy(pClient);
    pPass->bReleased = true;
    const KovaMutexUnlock unlock(&pGroup->clientMutex, kRankClients);
    KovaStreamPlayerLost(pPass->pContext->pStreamer, pTally, szSessionId);
}

void FindKeyFrame(const KovaSendingContext &context, const KovaRtpPacket *pPacket,
                  KovaRtpClient *pClient)
{
    if (pClient->bKeyFrameFound != 0 ||
        (pPacket->nFrameType != kFrameKey && pPacket->nFrameType != kFrameAudio))
        return;
    TimeLog(kLogThread, "%s, Find Key Frame, ID: %d, Now PTS: %u\n", kSendingThread,
            static_cast<int>(context.packer.nPayloadType), pPacket->nPts);
    pClient->bKeyFrameFound = 1;
    pClient->nMeasureStartTime = context.nNow;
}

void ServeClient(KovaRtpSendGroup *pGroup, KovaServingPass *pPass, KovaRtpClient *pClient)
    KOVA_REQUIRES(pGroup->clientMutex)
{
    const KovaPacketBatch &batch = *pPass->pBatch;
    uint32_t nNext = 0;
    while (nNext < batch.nCount) {
        FindKeyFrame(*pPass->pContext, batch.packets[nNext], pClient);
        if (pClient->nState == kClientPlaying && pClient->bKeyFrameFound != 0) {
            nNext = KovaSendPackets(pGroup, pPass, pClient, nNext);
            continue;
        }
        printf("Client Waiting !!!\n");
        pPass->nWaiting++;
        if (pClient->nState == kClientGone)
            return RemoveGone(pGroup, pPass, pClient);
        nNext++;
    }
}

/// Each client that waits costs its group a millisecond per packet: the price of a
/// set-up track that never plays. Nobody else pays it, so no lock is held. Nor does
/// a stop: a crowd of them would keep what is queued from going out for minutes.
void PayForWaiting(KovaRtpSendGroup *pGroup, uint32_t nMilliseconds)
{
    if (nMilliseconds == 0)
        return;
    uint64_t nNow = KovaClockMonotonic();
    const uint64_t nEnd = nNow + uint64_t{nMilliseconds} * 1000;
    while (nNow < nEnd && KovaThreadRuns(pGroup->nState)) {
        const uint64_t nLeft = nEnd - nNow;
        KovaEventWait(&pGroup->work,
                      (nLeft < kPayStep ? static_cast<uint32_t>(nLeft) + 999 : kPayStep) / 1000);
        nNow = KovaClockMonotonic();
    }
}

} // namespace

void KovaServeClients(KovaSendingContext *pContext)
{
    KovaRtpSendGroup *pGroup = pContext->pGroup;
    KovaMutexLock lock(&pGroup->clientMutex, kRankClients);
    KovaNoteRtcpArrivals(pGroup);
    KovaServingPass pass = {pContext, &pContext->batch, false, 0};
    const uint32_t nPass = ++pGroup->nPass;
    uint32_t nServed = 0;
    KovaList *pNode = pGroup->pClientList;
    while (pNode != nullptr) {
        KovaRtpClient *pClient = static_cast<KovaRtpClient *>(pNode->data);
        pNode = pNode->next;
        if (pClient == nullptr || pClient->nPass == nPass)
            continue;
        pClient->nPass = nPass;
        pass.bReleased = false;
        ServeClient(pGroup, &pass, pClient);
        if (++nServed % kMostClientsAtOnce == 0 && pGroup->nClientWaiters != 0)
            KovaRestBetweenClients(pGroup, &pass);
        if (pass.bReleased)
            pNode = pGroup->pClientList;
    }
    lock.Unlock();
    PayForWaiting(pGroup, pass.nWaiting);
    if (pGroup->nClientWaiters != 0)
        usleep(kPollMicroseconds);
}
