#include "classic/server/stream_registry.h"

#include "classic/rtsp/server_calls.h"
#include "foundation/list_view.h"
#include "foundation/mutex.h"
#include "foundation/text.h"

namespace {

KovaRtspStreamer *FindStreamer(const KovaRtspServer *pServer, std::string_view uri)
    KOVA_REQUIRES(pServer->mtxStreamer)
{
    return KovaListFindIf<KovaRtspStreamer>(
        pServer->pStreamerList, [uri](const KovaRtspStreamer *pStreamer) {
            return KovaTextField(pStreamer->szUri, KOVA_MAX_URI_LENGTH) == uri;
        });
}

/// Unlinks the first stream. Returns false when there is none left.
bool TakeFirstStreamer(KovaRtspServer *pServer, KovaRtspStreamer **ppStreamer)
{
    const KovaMutexLock lock(&pServer->mtxStreamer, kRankStreams);
    if (pServer->pStreamerList == nullptr)
        return false;
    *ppStreamer = KovaListTakeFirstOf<KovaRtspStreamer>(pServer->pStreamerList, nullptr);
    return true;
}

} // namespace

KovaRtspStreamer *KovaServerTakeStreamer(KovaRtspServer *pServer, const char *szUri)
{
    const KovaMutexLock lock(&pServer->mtxStreamer, kRankStreams);
    KovaRtspStreamer *pStreamer = FindStreamer(pServer, szUri);
    if (pStreamer != nullptr)
        KovaListTake(pServer->pStreamerList, nullptr, pStreamer);
    return pStreamer;
}

int32_t KovaRtspServerAddStreamer(KovaRtspServer *pServer, KovaRtspStreamer *pStreamer)
{
    if (pServer == nullptr || pStreamer == nullptr)
        return KOVA_ERROR_NULL;
    const KovaMutexLock lock(&pServer->mtxStreamer, kRankStreams);
    return KovaListPush(pServer->pStreamerList, pStreamer) ? KOVA_OK : KOVA_ERROR_FAILED;
}

int32_t KovaRtspServerRemoveStreamer(KovaRtspServer *pServer, KovaRtspStreamer *pStreamer)
{
    if (pServer == nullptr || pStreamer == nullptr)
        return KOVA_ERROR_NULL;
    const KovaMutexLock lock(&pServer->mtxStreamer, kRankStreams);
    KovaListTake(pServer->pStreamerList, nullptr, pStreamer);
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
    const KovaMutexLock lock(&pServer->mtxStreamer, kRankStreams);
    return FindStreamer(pServer, szUri);
}

KovaRtspStreamer *KovaServerPinStreamer(KovaRtspServer *pServer, const char *szUri)
{
    if (pServer == nullptr || szUri == nullptr)
        return nullptr;
    const KovaMutexLock lock(&pServer->mtxStreamer, kRankStreams);
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
    const KovaMutexLock lock(&pServer->mtxStreamer, kRankStreams);
    for (const KovaRtspStreamer *pStreamer : KovaListOf<KovaRtspStreamer>(pServer->pStreamerList))
        nCount += pStreamer->nClientCount;
    return nCount;
}

int32_t KovaServerMaxClient(const KovaRtspServer *pServer)
{
    return pServer->nMaxClient;
}
