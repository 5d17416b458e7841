#include "classic/rtp/sender.h"

#include "classic/rtp/session_tally.h"
#include "foundation/heap.h"
#include "foundation/list_view.h"
#include "foundation/mutex.h"
#include "foundation/owner.h"
#include "kova_rtsp_server.h"

#include <cstdio>

namespace {

static_assert(sizeof(std::atomic<uint16_t>) == sizeof(uint16_t), "plain words for everybody else");
static_assert(alignof(std::atomic<uint16_t>) == alignof(uint16_t), "plain words");
static_assert(alignof(std::atomic<uint32_t>) == alignof(uint32_t), "plain words");

constexpr uint32_t kInitialGroups = 1;
constexpr char kPlacing[] = "KovaRtpSenderAddRtpClient";

bool AppendGroup(KovaRtpSender *pSender, KovaRtpSendGroup *pGroup)
{
    const KovaMutexLock lock(&pSender->mutex, kRankGroups);
    return KovaListPushTail(pSender->pSendGroupList, pSender->pSendGroupListTail, pGroup);
}

/// A new group in the sender's list, or null.
KovaRtpSendGroup *MakeGroup(KovaRtpSender *pSender)
{
    KovaOwner<KovaRtpSendGroup, KovaRtpSendGroupDestory> group(KovaRtpSendGroupCreate(pSender));
    return group && AppendGroup(pSender, group.Get()) ? group.Release() : nullptr;
}

/// The group that a new client belongs to, null when all are full.
KovaRtpSendGroup *ChooseGroup(KovaRtpSender *pSender) KOVA_REQUIRES(pSender->mutex)
{
    for (KovaList *pNode = pSender->pSendGroupList; pNode != nullptr; pNode = pNode->next) {
        KovaRtpSendGroup *pGroup = static_cast<KovaRtpSendGroup *>(pNode->data);
        const uint32_t nCount = KovaRtpSendGroupClientCount(pGroup);
        printf("%s, Now Client Count: %u\n", kPlacing, nCount);
        if (nCount == kGroupMaxClients)
            continue;
        if (nCount > kGroupMaxClients)
            printf("%s, Error: too much client !!!\n", kPlacing);
        if (pNode->next == nullptr)
            return pGroup;
        const uint32_t nNextCount =
            KovaRtpSendGroupClientCount(static_cast<KovaRtpSendGroup *>(pNode->next->data));
        printf("%s, Next Client Count: %u\n", kPlacing, nNextCount);
        if (nCount < nNextCount)
            return pGroup;
        if (nCount > nNextCount)
            printf("%s, Now client count more than Next !!!\n", kPlacing);
    }
    return nullptr;
}

} // namespace

KovaRtpSender *KovaRtpSenderCreate(KovaRtspStreamer *pStreamer, uint32_t nPayloadId)
{
    if (pStreamer == nullptr)
        return nullptr;
    KovaOwner<KovaRtpSender, KovaRtpSenderDestory> sender(KovaHeapNew<KovaRtpSender>());
    if (!sender)
        return nullptr;
    KovaRtpSender *pSender = sender.Get();
    pSender->pStreamer = pStreamer;
    pSender->nPayloadId = nPayloadId;
    pSender->nSendGroupCount = kInitialGroups;
    KovaMutexInit(&pSender->mutex);
    for (uint32_t nGroup = 0; nGroup < pSender->nSendGroupCount; nGroup++) {
        if (MakeGroup(pSender) == nullptr)
            return nullptr;
    }
    return sender.Release();
}

void KovaRtpSenderDestory(KovaRtpSender *pSender)
{
    if (pSender == nullptr)
        return;
    KovaRtpSenderRemoveAllRtpSendGroup(pSender);
    KovaMutexDestroy(&pSender->mutex);
    free(pSender);
}

int32_t KovaRtpSenderStart(KovaRtpSender *pSender)
{
    if (pSender == nullptr)
        return KOVA_ERROR_NULL;
    KovaRtpSenderStartAllRtpSendGroup(pSender);
    return KOVA_OK;
}

int32_t KovaRtpSenderStop(KovaRtpSender *pSender)
{
    if (pSender == nullptr)
        return KOVA_ERROR_NULL;
    KovaRtpSenderStopAllRtpSendGroup(pSender);
    return KOVA_OK;
}

void KovaRtpSenderAddRtpClient(KovaRtpSender *pSender, const char *szSessionId, int32_t nRtpSocket,
                               int32_t nRtcpSocket, uint16_t nClientRtpPort,
                               uint16_t nClientRtcpPort, sockaddr_in clientAddress,
                               int32_t nInterleaved, int *pTcpSocket, uint16_t nRtpChannel,
                               uint16_t nRtcpChannel, uint16_t nStartSequence,
                               uint32_t nStartTimestamp)
{
    if (pSender == nullptr)
        return;
    KovaOwner<KovaRtpClient, KovaRtpClientDestroy> client(KovaRtpClientCreate(
        szSessionId, nRtpSocket, nRtcpSocket, nClientRtpPort, nClientRtcpPort, clientAddress,
        nInterleaved, pTcpSocket, nRtpChannel, nRtcpChannel, nStartSequence, nStartTimestamp));
    if (client && KovaRtpSenderPlaceClient(pSender, client.Get()))
        client.Release();
}

bool KovaRtpSenderPlaceClient(KovaRtpSender *pSender, KovaRtpClient *pClient)
{
    pClient->pTally = KovaSessionTallyJoin(pSender->pStreamer, pClient->szSessionId);
    // Without it the break of the session's connection would be counted twice.
    if (pClient->pTally == nullptr)
        return false;
    KovaMutexLock lock(&pSender->mutex, kRankGroups);
    KovaRtpSendGroup *pGroup = ChooseGroup(pSender);
    if (pGroup != nullptr) {
        if (pGroup->bNoThread)
            KovaRtpSendGroupStart(pGroup); // the shortage may be over
        return KovaRtpSendGroupTakeClient(pGroup, pClient);
    }
    lock.Unlock();
    printf("%s, create new sendgroup, then add client\n", kPlacing);
    pGroup = MakeGroup(pSender);
    if (pGroup == nullptr)
        return false;
    KovaRtpSendGroupStart(pGroup);
    return KovaRtpSendGroupTakeClient(pGroup, pClient);
}

void KovaRtpSenderAddRtpPacket(KovaRtpSender *pSender, KovaRtpPacket *pPacket)
{
    if (pSender != nullptr && pPacket != nullptr)
        KovaRtpSenderAddRtpPackets(pSender, &pPacket, 1);
}

void KovaRtpSenderAddRtpPackets(KovaRtpSender *pSender, KovaRtpPacket *const *ppPackets,
                                uint32_t nCount)
{
    const KovaMutexLock lock(&pSender->mutex, kRankGroups);
    for (KovaRtpSendGroup *pGroup : KovaListOf<KovaRtpSendGroup>(pSender->pSendGroupList)) {
        // Nobody would ever take a packet out of a queue whose thread was not made.
        if (pGroup->bNoThread)
            continue;
        for (uint32_t nPacket = 0; nPacket < nCount; nPacket++)
            KovaRtpPacketAddRef(ppPackets[nPacket]);
        KovaRtpSendGroupTakePackets(pGroup, ppPackets, nCount);
    }
}

void KovaRtpSenderAddRtpSendGroup(KovaRtpSender *pSender, KovaRtpSendGroup *pGroup)
{
    if (pSender != nullptr && pGroup != nullptr)
        AppendGroup(pSender, pGroup);
}

void KovaRtpSenderRemoveRtpSendGroup(KovaRtpSender *pSender, KovaRtpSendGroup *pGroup)
{
    if (pSender == nullptr || pGroup == nullptr)
        return;
    const KovaMutexLock lock(&pSender->mutex, kRankGroups);
    KovaListTake(pSender->pSendGroupList, pSender->pSendGroupListTail, pGroup);
}

void KovaRtpSenderRemoveAllRtpSendGroup(KovaRtpSender *pSender)
{
    if (pSender == nullptr)
        return;
    // Waited for without the mutex, like every stop of a group: its thread may be
    // in the middle of a call that somebody who wants the mutex holds up.
    KovaMutexLock lock(&pSender->mutex, kRankGroups);
    while (pSender->pSendGroupList != nullptr) {
        KovaRtpSendGroup *pGroup = KovaListTakeFirstOf<KovaRtpSendGroup>(
            pSender->pSendGroupList, pSender->pSendGroupListTail);
        lock.Unlock();
        KovaRtpSendGroupStop(pGroup);
        KovaRtpSendGroupDestory(pGroup);
        lock.Lock();
    }
}

void KovaRtpSenderStartAllRtpSendGroup(KovaRtpSender *pSender)
{
    if (pSender == nullptr)
        return;
    const KovaMutexLock lock(&pSender->mutex, kRankGroups);
    for (KovaRtpSendGroup *pGroup : KovaListOf<KovaRtpSendGroup>(pSender->pSendGroupList))
        KovaRtpSendGroupStart(pGroup);
}

void KovaRtpSenderStopAllRtpSendGroup(KovaRtpSender *pSender)
{
    if (pSender == nullptr)
        return;
    // Groups are only ever added, at the end: a node stays where it is.
    KovaMutexLock lock(&pSender->mutex, kRankGroups);
    for (KovaList *pNode = pSender->pSendGroupList; pNode != nullptr; pNode = pNode->next) {
        lock.Unlock();
        KovaRtpSendGroupStop(static_cast<KovaRtpSendGroup *>(pNode->data));
        lock.Lock();
    }
}
