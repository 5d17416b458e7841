#include "classic/rtp/send_group.h"

#include "classic/rtp/sender.h"
#include "classic/rtp/sending_thread.h"
#include "classic/rtp/stream_calls.h"
#include "foundation/heap.h"
#include "foundation/list_view.h"
#include "foundation/log.h"
#include "foundation/mutex.h"
#include "kova_rtsp_server.h"

namespace {

uint32_t MostQueuedBytes(const KovaRtpSendGroup *pGroup)
{
    const KovaRtpSender *pSender = pGroup->pSender;
    const bool bFirstRing = pSender != nullptr && pSender->nPayloadId == KOVA_PAYLOAD_ID_AUDIO;
    return static_cast<uint32_t>(bFirstRing ? kAudioRingSize : kVideoRingSize);
}

/// Asked for a client's sake only: an empty group that was taken out of its sender
/// may outlive that.
KovaRtspStreamer *StreamOf(const KovaRtpSendGroup *pGroup)
{
    return pGroup->pSender != nullptr ? pGroup->pSender->pStreamer : nullptr;
}

/// Whether the queue takes the packet.
bool Admits(KovaRtpSendGroup *pGroup, const KovaRtpPacket *pPacket)
    KOVA_REQUIRES(pGroup->packetMutex)
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

/// Queues the packet with the reference that the caller has taken. Returns whether it did.
bool Queue(KovaRtpSendGroup *pGroup, KovaRtpPacket *pPacket) KOVA_REQUIRES(pGroup->packetMutex)
{
    if (!Admits(pGroup, pPacket) ||
        !KovaListPushTail(pGroup->pPacketList, pGroup->pPacketListTail, pPacket))
        return false;
    pGroup->nQueuedBytes += pPacket->nSize;
    return true;
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
    KovaMutexInit(&pGroup->packetMutex);
    KovaMutexInit(&pGroup->clientMutex);
    return pGroup;
}

void KovaRtpSendGroupDestory(KovaRtpSendGroup *pGroup)
{
    if (pGroup == nullptr)
        return;
    KovaRtpSendGroupRemoveAllRtpClient(pGroup);
    KovaRtpSendGroupRemoveAllRtpPacket(pGroup);
    KovaMutexDestroy(&pGroup->packetMutex);
    KovaMutexDestroy(&pGroup->clientMutex);
    free(pGroup);
}

int32_t KovaRtpSendGroupStart(KovaRtpSendGroup *pGroup)
{
    if (pGroup == nullptr)
        return KOVA_ERROR_NULL;
    pGroup->bNoThread = false;
    if (KovaThreadStartOnce(pGroup->nState, pSenderProc, pGroup))
        return KOVA_OK;
    pGroup->bNoThread = true;
    return KOVA_ERROR_FAILED;
}

int32_t KovaRtpSendGroupStop(KovaRtpSendGroup *pGroup)
{
    if (pGroup == nullptr)
        return KOVA_ERROR_NULL;
    KovaThreadRequestStop(pGroup->nState);
    KovaEventSignal(&pGroup->work);
    KovaThreadWaitStopped(pGroup->nState);
    return KOVA_OK;
}

void KovaRtpSendGroupAddRtpClient(KovaRtpSendGroup *pGroup, KovaRtpClient *pClient)
{
    if (pGroup != nullptr && pClient != nullptr)
        KovaRtpSendGroupTakeClient(pGroup, pClient);
}

bool KovaRtpSendGroupTakeClient(KovaRtpSendGroup *pGroup, KovaRtpClient *pClient)
{
    const KovaClientLock lock(pGroup);
    // A client that comes while a packet is being served starts with the next.
    pClient->nPass = pGroup->nPass;
    pClient->nSerial = ++pGroup->nLastSerial;
    return KovaListPush(pGroup->pClientList, pClient);
}

void KovaRtpSendGroupRemoveRtpClient(KovaRtpSendGroup *pGroup, KovaRtpClient *pClient)
{
    if (pGroup == nullptr || pClient == nullptr)
        return;
    const KovaClientLock lock(pGroup);
    KovaListTake(pGroup->pClientList, nullptr, pClient);
}

void KovaRtpSendGroupRemoveAllRtpClient(KovaRtpSendGroup *pGroup)
{
    if (pGroup == nullptr)
        return;
    const KovaClientLock lock(pGroup);
    while (pGroup->pClientList != nullptr) {
        auto *pClient = KovaListTakeFirstOf<KovaRtpClient>(pGroup->pClientList, nullptr);
        KovaStreamClientWithdrawn(StreamOf(pGroup), pClient);
        KovaRtpClientDestroy(pClient);
    }
}

void KovaRtpSendGroupAddRtpPacket(KovaRtpSendGroup *pGroup, KovaRtpPacket *pPacket)
{
    if (pGroup != nullptr && pPacket != nullptr)
        KovaRtpSendGroupTakePackets(pGroup, &pPacket, 1);
}

uint32_t KovaRtpSendGroupTakePackets(KovaRtpSendGroup *pGroup, KovaRtpPacket *const *ppPackets,
                                     uint32_t nCount)
{
    uint32_t nTaken = 0;
    bool bBeganToDrop = false;
    KovaMutexLock lock(&pGroup->packetMutex, kRankPackets);
    for (uint32_t nPacket = 0; nPacket < nCount; nPacket++) {
        const bool bDropping = pGroup->bDropping;
        const bool bQueued = Queue(pGroup, ppPackets[nPacket]);
        bBeganToDrop = bBeganToDrop || (!bDropping && pGroup->bDropping);
        if (bQueued)
            nTaken++;
        else
            KovaRtpPacketReleaseRef(ppPackets[nPacket]);
    }
    lock.Unlock();
    // Packets of one access unit have one PTS: no second drop begins among them.
    if (bBeganToDrop)
        TimeLog(kLogOverflow, "%s, Packet Overflow !!!\n", "KovaRtpSendGroupAddRtpPacket");
    if (nTaken != 0)
        KovaEventSignal(&pGroup->work);
    return nTaken;
}

void KovaRtpSendGroupRemoveRtpPacket(KovaRtpSendGroup *pGroup, KovaRtpPacket *pPacket)
{
    if (pGroup == nullptr || pPacket == nullptr)
        return;
    const KovaMutexLock lock(&pGroup->packetMutex, kRankPackets);
    KovaRtpSendGroupUnlinkPacket(pGroup, pPacket);
}

void KovaRtpSendGroupRemoveAllRtpPacket(KovaRtpSendGroup *pGroup)
{
    if (pGroup == nullptr)
        return;
    const KovaMutexLock lock(&pGroup->packetMutex, kRankPackets);
    while (pGroup->pPacketList != nullptr)
        KovaRtpPacketReleaseRef(
            KovaListTakeFirstOf<KovaRtpPacket>(pGroup->pPacketList, pGroup->pPacketListTail));
    pGroup->nQueuedBytes = 0;
}

bool KovaRtpSendGroupUnlinkPacket(KovaRtpSendGroup *pGroup, KovaRtpPacket *pPacket)
{
    if (!KovaListTake(pGroup->pPacketList, pGroup->pPacketListTail, pPacket))
        return false;
    pGroup->nQueuedBytes -= pPacket->nSize;
    return true;
}

uint32_t KovaRtpSendGroupClientCount(KovaRtpSendGroup *pGroup)
{
    const KovaClientLock lock(pGroup);
    return KovaListLength(pGroup->pClientList);
}

KovaClientLock::KovaClientLock(KovaRtpSendGroup *pGroup) : m_pGroup(pGroup)
{
    pGroup->nClientWaiters++;
    KovaMutexTake(&pGroup->clientMutex, kRankClients);
    pGroup->nClientWaiters--;
}

KovaClientLock::~KovaClientLock()
{
    KovaMutexGive(&m_pGroup->clientMutex, kRankClients);
}
