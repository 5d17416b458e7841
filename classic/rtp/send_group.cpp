#include "classic/rtp/send_group.h"

#include "classic/rtp/sender.h"
#include "classic/rtp/sending_thread.h"
#include "classic/rtp/session_tally.h"
#include "classic/rtp/stream_calls.h"
#include "foundation/heap.h"
#include "foundation/log.h"
#include "foundation/result.h"
#include "foundation/scope_guard.h"

namespace {

uint32_t MostQueuedBytes(const KovaRtpSendGroup *pGroup)
{
    const KovaRtpSender *pSender = pGroup->pSender;
    const bool bFirstRing = pSender != nullptr && pSender->nPayloadId == kPayloadIdFirstRing;
    return static_cast<uint32_t>(bFirstRing ? kAudioRingSize : kVideoRingSize);
}

/// Whether the queue takes the packet. Under packetMutex.
bool Admits(KovaRtpSendGroup *pGroup, const KovaRtpPacket *pPacket)
{
    const uint64_t nBytes = uint64_t{pGroup->nQueuedBytes} + pPacket->nSize;
    const bool bFits = nBytes <= MostQueuedBytes(pGroup);
    const bool bEntry = pPacket->nFrameType == kFrameKey || pPacket->nFrameType == kFrameAudio;
    if (bFits && (!pGroup->bDropping || (bEntry && pPacket->nPts > pGroup->nDroppedPts))) {
        pGroup->bDropping = false;
        return true;
    }
    // The rest of a key frame whose beginning was dropped is no beginning. Parameter
    // sets in front of one may be dropped.
    if (!pGroup->bDropping || bEntry)
        pGroup->nDroppedPts = pPacket->nPts;
    pGroup->bDropping = true;
    return false;
}

/// Takes a client that goes with its group out of its session's tally.
void CountOutLast(const KovaRtpSendGroup *pGroup, KovaRtpClient *pClient)
{
    const bool bPlays = pClient->nState != kClientSetUp;
    const bool bLast = KovaSessionTallyLeaveLast(pClient->pTally, bPlays);
    pClient->pTally = nullptr;
    const KovaRtpSender *pSender = pGroup->pSender;
    if (bLast && pSender != nullptr && pSender->pStreamer != nullptr)
        KovaStreamLowerClientCount(pSender->pStreamer);
}

} // namespace

KovaRtpSendGroup *KovaRtpSendGroupCreate(KovaRtpSender *pSender)
{
    if (pSender == nullptr)
        return nullptr;
    KovaRtpSendGroup *pGroup = KovaHeapNew<KovaRtpSendGroup>();
    if (pGroup == nullptr)
        return nullptr;
    pGroup->pSender = pSender;
    pthread_mutex_init(&pGroup->packetMutex, nullptr);
    pthread_mutex_init(&pGroup->clientMutex, nullptr);
    return pGroup;
}

void KovaRtpSendGroupDestory(KovaRtpSendGroup *pGroup)
{
    if (pGroup == nullptr)
        return;
    KovaRtpSendGroupRemoveAllRtpClient(pGroup);
    KovaRtpSendGroupRemoveAllRtpPacket(pGroup);
    pthread_mutex_destroy(&pGroup->packetMutex);
    pthread_mutex_destroy(&pGroup->clientMutex);
    free(pGroup);
}

int32_t KovaRtpSendGroupStart(KovaRtpSendGroup *pGroup)
{
    if (pGroup == nullptr)
        return KOVA_RESULT_NULL;
    pGroup->bNoThread = false;
    if (KovaThreadStartOnce(pGroup->nState, pSenderProc, pGroup))
        return KOVA_RESULT_OK;
    pGroup->bNoThread = true;
    return KOVA_RESULT_FAILED;
}

int32_t KovaRtpSendGroupStop(KovaRtpSendGroup *pGroup)
{
    if (pGroup == nullptr)
        return KOVA_RESULT_NULL;
    KovaThreadRequestStop(pGroup->nState);
    KovaEventSignal(&pGroup->work);
    KovaThreadWaitStopped(pGroup->nState);
    return KOVA_RESULT_OK;
}

void KovaRtpSendGroupAddRtpClient(KovaRtpSendGroup *pGroup, KovaRtpClient *pClient)
{
    if (pGroup != nullptr && pClient != nullptr)
        KovaRtpSendGroupTakeClient(pGroup, pClient);
}

bool KovaRtpSendGroupTakeClient(KovaRtpSendGroup *pGroup, KovaRtpClient *pClient)
{
    KovaRtpSendGroupLockClients(pGroup);
    // A client that comes while a packet is being served starts with the next.
    pClient->nPass = pGroup->nPass;
    pClient->nSerial = ++pGroup->nLastSerial;
    const bool bTaken = KovaListPush(&pGroup->pClientList, pClient);
    pthread_mutex_unlock(&pGroup->clientMutex);
    return bTaken;
}

void KovaRtpSendGroupRemoveRtpClient(KovaRtpSendGroup *pGroup, KovaRtpClient *pClient)
{
    if (pGroup == nullptr || pClient == nullptr)
        return;
    KovaRtpSendGroupLockClients(pGroup);
    KovaListTake(&pGroup->pClientList, nullptr, pClient);
    pthread_mutex_unlock(&pGroup->clientMutex);
}

void KovaRtpSendGroupRemoveAllRtpClient(KovaRtpSendGroup *pGroup)
{
    if (pGroup == nullptr)
        return;
    KovaRtpSendGroupLockClients(pGroup);
    while (pGroup->pClientList != nullptr) {
        auto *pClient =
            static_cast<KovaRtpClient *>(KovaListTakeFirst(&pGroup->pClientList, nullptr));
        CountOutLast(pGroup, pClient);
        KovaRtpClientDestroy(pClient);
    }
    pthread_mutex_unlock(&pGroup->clientMutex);
}

void KovaRtpSendGroupAddRtpPacket(KovaRtpSendGroup *pGroup, KovaRtpPacket *pPacket)
{
    if (pGroup != nullptr && pPacket != nullptr && !KovaRtpSendGroupTakePacket(pGroup, pPacket))
        KovaRtpPacketReleaseRef(pPacket);
}

bool KovaRtpSendGroupTakePacket(KovaRtpSendGroup *pGroup, KovaRtpPacket *pPacket)
{
    KovaMutexLock lock(&pGroup->packetMutex);
    const bool bDropping = pGroup->bDropping;
    if (!Admits(pGroup, pPacket)) {
        lock.Unlock();
        if (!bDropping)
            TimeLog(kLogOverflow, "%s, Packet Overflow !!!\n", "KovaRtpSendGroupAddRtpPacket");
        return false;
    }
    const bool bTaken = KovaListPushTail(&pGroup->pPacketList, &pGroup->pPacketListTail, pPacket);
    if (bTaken)
        pGroup->nQueuedBytes += pPacket->nSize;
    lock.Unlock();
    KovaEventSignal(&pGroup->work);
    return bTaken;
}

void KovaRtpSendGroupRemoveRtpPacket(KovaRtpSendGroup *pGroup, KovaRtpPacket *pPacket)
{
    if (pGroup == nullptr || pPacket == nullptr)
        return;
    const KovaMutexLock lock(&pGroup->packetMutex);
    KovaRtpSendGroupUnlinkPacket(pGroup, pPacket);
}

void KovaRtpSendGroupRemoveAllRtpPacket(KovaRtpSendGroup *pGroup)
{
    if (pGroup == nullptr)
        return;
    const KovaMutexLock lock(&pGroup->packetMutex);
    while (pGroup->pPacketList != nullptr)
        KovaRtpPacketReleaseRef(static_cast<KovaRtpPacket *>(
            KovaListTakeFirst(&pGroup->pPacketList, &pGroup->pPacketListTail)));
    pGroup->nQueuedBytes = 0;
}

bool KovaRtpSendGroupUnlinkPacket(KovaRtpSendGroup *pGroup, KovaRtpPacket *pPacket)
{
    if (!KovaListTake(&pGroup->pPacketList, &pGroup->pPacketListTail, pPacket))
        return false;
    pGroup->nQueuedBytes -= pPacket->nSize;
    return true;
}

uint32_t KovaRtpSendGroupClientCount(KovaRtpSendGroup *pGroup)
{
    KovaRtpSendGroupLockClients(pGroup);
    const uint32_t nCount = KovaListLength(pGroup->pClientList);
    pthread_mutex_unlock(&pGroup->clientMutex);
    return nCount;
}

void KovaRtpSendGroupLockClients(KovaRtpSendGroup *pGroup)
{
    pGroup->nClientWaiters++;
    pthread_mutex_lock(&pGroup->clientMutex);
    pGroup->nClientWaiters--;
}
