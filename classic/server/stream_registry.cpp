#include "classic/server/stream_registry.h"

#include "classic/rtsp/server_calls.h"
#include "foundation/scope_guard.h"
#include "foundation/text.h"

namespace {

/// Under mtxStreamer.
KovaRtspStreamer *FindStreamer(const KovaRtspServer *pServer, std::string_view uri)
{
    for (KovaList *pNode = pServer->pStreamerList; pNode != nullptr; pNode = pNode->next) {
        KovaRtspStreamer *pStreamer = static_cast<KovaRtspStreamer *>(pNode->data);
        if (pStreamer != nullptr && KovaTextField(pStreamer->szUri, kUriSize) == uri)
            return pStreamer;
    }
    return nullptr;
}

/// Unlinks the first stream. Returns false when there is none left.
bool TakeFirstStreamer(KovaRtspServer *pServer, KovaRtspStreamer **ppStreamer)
{
    const KovaMutexLock lock(&pServer->mtxStreamer);
    if (pServer->pStreamerList == nullptr)
        return false;
    *ppStreamer =
        static_cast<KovaRtspStreamer *>(KovaListTakeFirst(&pServer->pStreamerList, nullptr));
    return true;
}

} // namespace

int32_t KovaRtspServerAddStreamer(KovaRtspServer *pServer, KovaRtspStreamer *pStreamer)
{
    if (pServer == nullptr || pStreamer == nullptr)
        return KOVA_ERROR_NULL;
    const KovaMutexLock lock(&pServer->mtxStreamer);
    return KovaListPush(&pServer->pStreamerList, pStreamer) ? KOVA_OK : KOVA_ERROR_FAILED;
}

int32_t KovaRtspServerRemoveStreamer(KovaRtspServer *pServer, KovaRtspStreamer *pStreamer)
{
    if (pServer == nullptr || pStreamer == nullptr)
        return KOVA_ERROR_NULL;
    const KovaMutexLock lock(&pServer->mtxStreamer);
    KovaListTake(&pServer->pStreamerList, nullptr, pStreamer);
    return KOVA_OK;
}

void KovaRtspServerRemoveAllStreamer(KovaRtspServer *pServer)
{
    if (pServer == nullptr)
        return;
    // Destroyed outside the mutex: a stream waits for the requests that use it,
    // and those may want the mutex.
    KovaRtspStreamer *pStreamer = nullptr;
    while (TakeFirstStreamer(pServer, &pStreamer))
        KovaRtspStreamerDestroy(pStreamer);
}

KovaRtspStreamer *KovaRtspServerGetStreamerByUri(KovaRtspServer *pServer, const char *szUri)
{
    if (pServer == nullptr || szUri == nullptr)
        return nullptr;
    const KovaMutexLock lock(&pServer->mtxStreamer);
    return FindStreamer(pServer, szUri);
}

KovaRtspStreamer *KovaServerPinStreamer(KovaRtspServer *pServer, const char *szUri)
{
    if (pServer == nullptr || szUri == nullptr)
        return nullptr;
    const KovaMutexLock lock(&pServer->mtxStreamer);
    KovaRtspStreamer *pStreamer = FindStreamer(pServer, szUri);
    if (pStreamer != nullptr)
        KovaStreamerPin(pStreamer);
    return pStreamer;
}

int32_t KovaRtspServerIsUriExist(KovaRtspServer *pServer, const char *szUri)
{
    return KovaRtspServerGetStreamerByUri(pServer, szUri) != nullptr ? 1 : 0;
}

int32_t KovaRtspServerGetCurrentClientCount(KovaRtspServer *pServer)
{
    if (pServer == nullptr)
        return 0;
    int32_t nCount = 0;
    const KovaMutexLock lock(&pServer->mtxStreamer);
    for (KovaList *pNode = pServer->pStreamerList; pNode != nullptr; pNode = pNode->next) {
        const KovaRtspStreamer *pStreamer = static_cast<KovaRtspStreamer *>(pNode->data);
        if (pStreamer != nullptr)
            nCount += pStreamer->nClientCount;
    }
    return nCount;
}

int32_t KovaServerMaxClient(const KovaRtspServer *pServer)
{
    return pServer->nMaxClient;
}

int32_t KovaRtspServerRemoveUri(KovaRtspServer *pServer, const char *szUri)
{
    if (pServer == nullptr || szUri == nullptr)
        return KOVA_ERROR_NULL;
    KovaMutexLock lock(&pServer->mtxStreamer);
    KovaRtspStreamer *pStreamer = FindStreamer(pServer, szUri);
    if (pStreamer == nullptr)
        return KOVA_ERROR_FAILED;
    KovaListTake(&pServer->pStreamerList, nullptr, pStreamer);
    lock.Unlock();
    KovaRtspStreamerDestroy(pStreamer);
    return KOVA_OK;
}
