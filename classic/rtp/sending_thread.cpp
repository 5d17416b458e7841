#include "classic/rtp/sending_thread.h"

#include "classic/rtp/pacing.h"
#include "classic/rtp/serve_clients.h"
#include "foundation/clock.h"
#include "foundation/log.h"
#include "foundation/mutex.h"
#include "rtp/rtp_header.h"

#include <unistd.h>

namespace {

/// A nudge comes with every packet and stop request; this bounds the wait for a
/// state word that somebody wrote without one.
constexpr uint32_t kIdleMilliseconds = 1000;

/// Longest sleep of a held packet: how late a clock that was set is noticed. Pictures
/// come more often, so that each costs one wake-up. Without players it matters less
/// than a processor that may rest.
constexpr uint32_t kHoldStepMilliseconds = 50;
constexpr uint32_t kEmptyHoldStepMilliseconds = 100;

constexpr uint32_t kGapMilliseconds = 1000;

/// Ends the thread; szMissing names what it lacks, if it never worked.
void *Leave(KovaRtpSendGroup *pGroup, const char *szMissing)
{
    if (pGroup != nullptr)
        pGroup->nState = kThreadStopped;
    TimeLog(kLogThread, "%s, Leave thread%s\n", kSendingThread, szMissing);
    return nullptr;
}

void HoldPacket(KovaSendingContext *pContext, int64_t nDue, uint64_t nFirstTime)
{
    int64_t nElapsed = static_cast<int64_t>(pContext->nNow - nFirstTime);
    if (!KovaPacingHolds(nDue, nElapsed))
        return;
    const uint32_t nStep = KovaRtpSendGroupClientCount(pContext->pGroup) != 0
                               ? kHoldStepMilliseconds
                               : kEmptyHoldStepMilliseconds;
    while (KovaPacingStillHolds(nDue, nElapsed)) {
        const uint32_t nRemaining = KovaPacingRemaining(nDue, nElapsed);
        usleep((nRemaining < nStep ? nRemaining : nStep) * 1000);
        pContext->nNow = KovaClockMilliseconds();
        nElapsed = static_cast<int64_t>(pContext->nNow - nFirstTime);
    }
}

/// Waits until the packet's time has come. The stream's very first packet is
/// the schedule's origin and goes out at once; true is returned for it: those behind
/// it are compared with it, whatever their timestamp.
bool PacePacket(KovaSendingContext *pContext, uint32_t nPts)
{
    KovaRtpSendGroup *pGroup = pContext->pGroup;
    const uint32_t nId = pContext->packer.nPayloadType;
    KovaFirstSend first = {};
    if (KovaStreamFirstSend(pContext->pStreamer, pContext->nNow, nPts, &first)) {
        TimeLog(kLogThread, "%s, First Send Packet, ID: %d, PTS: %u, Time: %u\n", kSendingThread,
                static_cast<int>(nId), nPts, static_cast<uint32_t>(pContext->nNow));
        return true;
    }
    if (nPts > pGroup->nLastPts && nPts > first.nPts) {
        if (nPts - pGroup->nLastPts < kGapMilliseconds)
            HoldPacket(pContext, static_cast<int64_t>(nPts - first.nPts), first.nTime);
        else
            TimeLog(kLogThread, "%s, GAP, ID: %d, Now PTS: %u, Last PTS: %u\n", kSendingThread,
                    static_cast<int>(nId), nPts, pGroup->nLastPts);
    }
    if (nPts < pGroup->nLastPts)
        TimeLog(kLogThread, "%s, BACK, ID: %d, Now PTS: %u, Last PTS: %u\n", kSendingThread,
                static_cast<int>(nId), nPts, pGroup->nLastPts);
    pGroup->nLastPts = nPts;
    return false;
}

void NoteTaken(KovaSendingContext *pContext, const KovaRtpPacket *pPacket)
{
    if (pPacket->pData == nullptr || pPacket->nSize < kRtpHeaderSize)
        return;
    pContext->pSender->nLastSequence = KovaRtpHeaderSequence(pPacket->pData);
    pContext->pSender->nLastTimestamp = KovaRtpHeaderTimestamp(pPacket->pData);
}

/// Sends until the queue is empty, each time all packets that are due with the
/// oldest one. They stay queued while they are served; the references taken here
/// outlast a flush of the queue meanwhile.
void DrainQueue(KovaSendingContext *pContext)
{
    KovaRtpSendGroup *pGroup = pContext->pGroup;
    KovaPacketBatch *pBatch = &pContext->batch;
    KovaMutexLock lock(&pGroup->packetMutex, kRankPackets);
    while (pGroup->pPacketList != nullptr) {
        KovaRtpPacket *pFirst = static_cast<KovaRtpPacket *>(pGroup->pPacketList->data);
        KovaRtpPacketAddRef(pFirst);
        lock.Unlock();
        pContext->nNow = KovaClockMilliseconds();
        NoteTaken(pContext, pFirst);
        const bool bAlone = PacePacket(pContext, pFirst->nPts);
        lock.Lock();
        KovaPacketBatchFill(pBatch, pGroup, pFirst, bAlone);
        lock.Unlock();
        KovaServeClients(pContext);
        NoteTaken(pContext, pBatch->packets[pBatch->nCount - 1]);
        lock.Lock();
        KovaPacketBatchRelease(pBatch, pGroup);
    }
}

} // namespace

void *pSenderProc(void *pSendGroup)
{
    KovaSendingContext context = {};
    TimeLog(kLogThread, "%s, Enter thread\n", kSendingThread);
    KovaRtpSendGroup *pGroup = static_cast<KovaRtpSendGroup *>(pSendGroup);
    context.pGroup = pGroup;
    if (pGroup == nullptr)
        return Leave(nullptr, "(pSendGroup)");
    context.pSender = pGroup->pSender;
    if (context.pSender == nullptr)
        return Leave(pGroup, "(pSender)");
    context.pStreamer = context.pSender->pStreamer;
    if (context.pStreamer == nullptr)
        return Leave(pGroup, "(pStreamer)");
    if (!KovaStreamFindPacker(context.pStreamer, context.pSender->nPayloadId, &context.packer))
        return Leave(pGroup, "(pPacker)");
    while (KovaThreadRuns(pGroup->nState)) {
        DrainQueue(&context);
        // A stop request may have nudged the thread while it served waiting clients.
        if (KovaThreadRuns(pGroup->nState))
            KovaEventWait(&pGroup->work, kIdleMilliseconds);
    }
    KovaKeptBufferFree(&context.batch.framed);
    return Leave(pGroup, "");
}
