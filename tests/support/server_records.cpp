#include "tests/support/server_records.h"

#include "classic/streamer/registries.h"
#include "foundation/mutex.h"

void KovaForEachSession(KovaRtspServer *pServer,
                        const std::function<void(KovaRtspSession *)> &action)
{
    const KovaMutexLock lock(&pServer->mtxSession, kRankSessions);
    for (KovaList *pNode = pServer->pSessionList; pNode != nullptr; pNode = pNode->next)
        action(static_cast<KovaRtspSession *>(pNode->data));
}

void KovaForEachHandler(KovaRtspServer *pServer,
                        const std::function<void(KovaRtspServerHandler *)> &action)
{
    const KovaMutexLock lock(&pServer->mtxHandler, kRankHandlers);
    for (KovaList *pNode = pServer->pHandlerList; pNode != nullptr; pNode = pNode->next)
        action(static_cast<KovaRtspServerHandler *>(pNode->data));
}

bool KovaSetExpiry(KovaRtspServer *pServer, const std::string &id, int32_t tExpire)
{
    bool bFound = false;
    KovaForEachSession(pServer, [&](KovaRtspSession *pSession) {
        if (id != pSession->szSessionId)
            return;
        pSession->tExpire = tExpire;
        bFound = true;
    });
    return bFound;
}

unsigned KovaQueuedPackets(KovaRtspStreamer *pStreamer, uint32_t nPayloadId)
{
    KovaRtpSender *pSender = KovaRtspStreamerGetRtpSenderByPayloadId(pStreamer, nPayloadId);
    unsigned nCount = 0;
    const KovaMutexLock lock(&pSender->mutex, kRankGroups);
    for (KovaList *pNode = pSender->pSendGroupList; pNode != nullptr; pNode = pNode->next) {
        auto *pGroup = static_cast<KovaRtpSendGroup *>(pNode->data);
        const KovaMutexLock packetLock(&pGroup->packetMutex, kRankPackets);
        nCount += KovaListLength(pGroup->pPacketList);
    }
    return nCount;
}
