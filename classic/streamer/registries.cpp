#include "classic/streamer/registries.h"

#include "foundation/list_view.h"
#include "foundation/mutex.h"
#include "kova_rtsp_server.h"

namespace {

/// One registry of a stream, and how its elements are keyed and destroyed.
struct Registry {
    KovaList **ppList;
    KovaList **ppTail;
    KovaMutex *pMutex; // held by everybody who walks or changes it
    KovaLockRank rank;
    KovaMutex *pWriterMutex; // held in addition by a change; may be null
    uint32_t (*pfnPayloadId)(const void *pElement);
    void (*pfnDestroy)(void *pElement);
};

uint32_t MediaInfoId(const void *pElement)
{
    return static_cast<const KovaRtspMediaInfo *>(pElement)->nPayloadId;
}

uint32_t PackerId(const void *pElement)
{
    return static_cast<const KovaRtpPacker *>(pElement)->nPayloadType;
}

uint32_t SenderId(const void *pElement)
{
    return static_cast<const KovaRtpSender *>(pElement)->nPayloadId;
}

void DestroyMediaInfo(void *pElement)
{
    KovaRtspMediaInfoDestroy(static_cast<KovaRtspMediaInfo *>(pElement));
}

void DestroyPacker(void *pElement)
{
    KovaRtpPackerDestroy(static_cast<KovaRtpPacker *>(pElement));
}

void DestroySender(void *pElement)
{
    KovaRtpSender *pSender = static_cast<KovaRtpSender *>(pElement);
    KovaRtpSenderStop(pSender);
    KovaRtpSenderDestory(pSender);
}

Registry MediaInfos(KovaRtspStreamer *pStreamer)
{
    return {&pStreamer->pMediaInfoList,
            &pStreamer->pMediaInfoListTail,
            &pStreamer->mediaInfoMutex,
            kRankLeaf,
            nullptr,
            MediaInfoId,
            DestroyMediaInfo};
}

Registry Packers(KovaRtspStreamer *pStreamer)
{
    return {&pStreamer->pPackerList,
            &pStreamer->pPackerListTail,
            &pStreamer->packerMutex,
            kRankPackers,
            nullptr,
            PackerId,
            DestroyPacker};
}

Registry Senders(KovaRtspStreamer *pStreamer)
{
    return {&pStreamer->pSenderList,
            &pStreamer->pSenderListTail,
            &pStreamer->senderMutex,
            kRankSenders,
            &pStreamer->packerMutex,
            SenderId,
            DestroySender};
}

/// Holds what a change of a registry needs.
class ChangeLock {
public:
    explicit ChangeLock(const Registry &registry)
        : m_lock(registry.pMutex, registry.rank), m_pWriterMutex(registry.pWriterMutex)
    {
        if (m_pWriterMutex != nullptr)
            KovaMutexTake(m_pWriterMutex, kRankPackers);
    }
    ~ChangeLock()
    {
        if (m_pWriterMutex != nullptr)
            KovaMutexGive(m_pWriterMutex, kRankPackers);
    }
    ChangeLock(const ChangeLock &) = delete;
    ChangeLock &operator=(const ChangeLock &) = delete;

private:
    KovaMutexLock m_lock;
    KovaMutex *m_pWriterMutex;
};

/// Under the registry's mutex.
void *FindById(const Registry &registry, uint32_t nPayloadId)
{
    return KovaListFindIf<void>(*registry.ppList, [&](const void *pElement) {
        return registry.pfnPayloadId(pElement) == nPayloadId;
    });
}

int32_t Add(const Registry &registry, void *pElement)
{
    const ChangeLock lock(registry);
    return KovaListPushTail(registry.ppList, registry.ppTail, pElement) ? KOVA_OK
                                                                        : KOVA_ERROR_FAILED;
}

void Unlink(const Registry &registry, void *pElement)
{
    const ChangeLock lock(registry);
    KovaListTake(registry.ppList, registry.ppTail, pElement);
}

/// Afterwards no packer thread uses the element any more: it is the caller's.
int32_t Remove(KovaRtspStreamer *pStreamer, const Registry &registry, void *pElement)
{
    Unlink(registry, pElement);
    KovaStreamerAwaitPackerThreads(pStreamer);
    return KOVA_OK;
}

void *Get(const Registry &registry, uint32_t nPayloadId)
{
    const KovaMutexLock lock(registry.pMutex, registry.rank);
    return FindById(registry, nPayloadId);
}

void *Take(const Registry &registry, uint32_t nPayloadId)
{
    const ChangeLock lock(registry);
    void *pElement = FindById(registry, nPayloadId);
    if (pElement != nullptr)
        KovaListTake(registry.ppList, registry.ppTail, pElement);
    return pElement;
}

/// Unlinks the first element. Returns false when there is none left.
bool TakeFirst(const Registry &registry, void **ppElement)
{
    const ChangeLock lock(registry);
    if (*registry.ppList == nullptr)
        return false;
    *ppElement = KovaListTakeFirst(registry.ppList, registry.ppTail);
    return true;
}

/// Elements are destroyed outside the mutex: a sending thread that is being
/// stopped may be in the middle of a call that somebody who waits for the mutex
/// holds up.
int32_t RemoveById(KovaRtspStreamer *pStreamer, const Registry &registry, uint32_t nPayloadId)
{
    void *pElement = Take(registry, nPayloadId);
    if (pElement == nullptr)
        return KOVA_ERROR_FAILED;
    KovaStreamerAwaitPackerThreads(pStreamer);
    registry.pfnDestroy(pElement);
    return KOVA_OK;
}

void RemoveAll(KovaRtspStreamer *pStreamer, const Registry &registry)
{
    void *pElement = nullptr;
    while (TakeFirst(registry, &pElement)) {
        KovaStreamerAwaitPackerThreads(pStreamer);
        registry.pfnDestroy(pElement);
    }
}

} // namespace

int32_t KovaRtspStreamerAddRtspMediaInfo(KovaRtspStreamer *pStreamer, KovaRtspMediaInfo *pMediaInfo)
{
    if (pStreamer == nullptr || pMediaInfo == nullptr)
        return KOVA_ERROR_NULL;
    return Add(MediaInfos(pStreamer), pMediaInfo);
}

int32_t KovaRtspStreamerAddRtpPacker(KovaRtspStreamer *pStreamer, KovaRtpPacker *pPacker)
{
    if (pStreamer == nullptr || pPacker == nullptr)
        return KOVA_ERROR_NULL;
    return Add(Packers(pStreamer), pPacker);
}

int32_t KovaRtspStreamerAddRtpSender(KovaRtspStreamer *pStreamer, KovaRtpSender *pSender)
{
    if (pStreamer == nullptr || pSender == nullptr)
        return KOVA_ERROR_NULL;
    return Add(Senders(pStreamer), pSender);
}

int32_t KovaRtspStreamerRemoveRtspMediaInfo(KovaRtspStreamer *pStreamer,
                                            KovaRtspMediaInfo *pMediaInfo)
{
    if (pStreamer == nullptr || pMediaInfo == nullptr)
        return KOVA_ERROR_NULL;
    return Remove(pStreamer, MediaInfos(pStreamer), pMediaInfo);
}

int32_t KovaRtspStreamerRemoveRtpPacker(KovaRtspStreamer *pStreamer, KovaRtpPacker *pPacker)
{
    if (pStreamer == nullptr || pPacker == nullptr)
        return KOVA_ERROR_NULL;
    return Remove(pStreamer, Packers(pStreamer), pPacker);
}

int32_t KovaRtspStreamerRemoveRtpSender(KovaRtspStreamer *pStreamer, KovaRtpSender *pSender)
{
    if (pStreamer == nullptr || pSender == nullptr)
        return KOVA_ERROR_NULL;
    return Remove(pStreamer, Senders(pStreamer), pSender);
}

void KovaRtspStreamerRemoveAllRtspMediaInfo(KovaRtspStreamer *pStreamer)
{
    if (pStreamer != nullptr)
        RemoveAll(pStreamer, MediaInfos(pStreamer));
}

void KovaRtspStreamerRemoveAllRtpPacker(KovaRtspStreamer *pStreamer)
{
    if (pStreamer != nullptr)
        RemoveAll(pStreamer, Packers(pStreamer));
}

void KovaRtspStreamerRemoveAllRtpSender(KovaRtspStreamer *pStreamer)
{
    if (pStreamer != nullptr)
        RemoveAll(pStreamer, Senders(pStreamer));
}

KovaRtspMediaInfo *KovaRtspStreamerGetRtspMediaInfoByPayloadId(KovaRtspStreamer *pStreamer,
                                                               uint32_t nPayloadId)
{
    if (pStreamer == nullptr)
        return nullptr;
    return static_cast<KovaRtspMediaInfo *>(Get(MediaInfos(pStreamer), nPayloadId));
}

KovaRtpPacker *KovaRtspStreamerGetRtpPackerByPayloadId(KovaRtspStreamer *pStreamer,
                                                       uint32_t nPayloadId)
{
    if (pStreamer == nullptr)
        return nullptr;
    return static_cast<KovaRtpPacker *>(Get(Packers(pStreamer), nPayloadId));
}

KovaRtpSender *KovaRtspStreamerGetRtpSenderByPayloadId(KovaRtspStreamer *pStreamer,
                                                       uint32_t nPayloadId)
{
    if (pStreamer == nullptr)
        return nullptr;
    return static_cast<KovaRtpSender *>(Get(Senders(pStreamer), nPayloadId));
}

int32_t KovaRtspStreamerRemoveRtspMediaInfoByPayloadId(KovaRtspStreamer *pStreamer,
                                                       uint32_t nPayloadId)
{
    if (pStreamer == nullptr)
        return KOVA_ERROR_NULL;
    return RemoveById(pStreamer, MediaInfos(pStreamer), nPayloadId);
}

int32_t KovaRtspStreamerRemoveRtpPackerByPayloadId(KovaRtspStreamer *pStreamer, uint32_t nPayloadId)
{
    if (pStreamer == nullptr)
        return KOVA_ERROR_NULL;
    return RemoveById(pStreamer, Packers(pStreamer), nPayloadId);
}

int32_t KovaRtspStreamerRemoveRtpSenderByPayloadId(KovaRtspStreamer *pStreamer, uint32_t nPayloadId)
{
    if (pStreamer == nullptr)
        return KOVA_ERROR_NULL;
    return RemoveById(pStreamer, Senders(pStreamer), nPayloadId);
}

KovaRtpPacker *KovaStreamerTakePacker(KovaRtspStreamer *pStreamer, uint32_t nPayloadId)
{
    return static_cast<KovaRtpPacker *>(Take(Packers(pStreamer), nPayloadId));
}

void KovaStreamerAwaitPackerThreads(KovaRtspStreamer *pStreamer)
{
    const KovaMutexLock audioLock(&pStreamer->audioUseMutex, kRankAudioUse);
    const KovaMutexLock videoLock(&pStreamer->videoUseMutex, kRankVideoUse);
}
