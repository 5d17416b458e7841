#include "classic/streamer/registries.h"

#include "foundation/list_view.h"
#include "foundation/mutex.h"
#include "kova_rtsp_server.h"

namespace {

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

/// Holds what a change needs beside the registry's own mutex; null: nothing.
class WriterLock {
public:
    explicit WriterLock(KovaMutex *pMutex) KOVA_NO_THREAD_SAFETY_ANALYSIS : m_pMutex(pMutex)
    {
        if (m_pMutex != nullptr)
            KovaMutexTake(m_pMutex, kRankPackers);
    }
    ~WriterLock() KOVA_NO_THREAD_SAFETY_ANALYSIS
    {
        if (m_pMutex != nullptr)
            KovaMutexGive(m_pMutex, kRankPackers);
    }
    WriterLock(const WriterLock &) = delete;
    WriterLock &operator=(const WriterLock &) = delete;

private:
    KovaMutex *m_pMutex;
};

void *FindById(KovaList *pList, uint32_t (*pfnPayloadId)(const void *pElement), uint32_t nPayloadId)
{
    return KovaListFindIf<void>(
        pList, [=](const void *pElement) { return pfnPayloadId(pElement) == nPayloadId; });
}

/// One registry of a stream, and how its elements are keyed and destroyed.
struct Registry {
    KovaList *KovaRtspStreamer::*pList;
    KovaList *KovaRtspStreamer::*pTail;
    KovaMutex KovaRtspStreamer::*pMutex; // held by everybody who walks or changes it
    KovaLockRank rank;
    KovaMutex KovaRtspStreamer::*pWriterMutex; // held in addition by a change; may be null
    uint32_t (*pfnPayloadId)(const void *pElement);
    void (*pfnDestroy)(void *pElement);
};

constexpr Registry kMediaInfos = {&KovaRtspStreamer::pMediaInfoList,
                                  &KovaRtspStreamer::pMediaInfoListTail,
                                  &KovaRtspStreamer::mediaInfoMutex,
                                  kRankLeaf,
                                  nullptr,
                                  MediaInfoId,
                                  DestroyMediaInfo};
constexpr Registry kPackers = {&KovaRtspStreamer::pPackerList,
                               &KovaRtspStreamer::pPackerListTail,
                               &KovaRtspStreamer::packerMutex,
                               kRankPackers,
                               nullptr,
                               PackerId,
                               DestroyPacker};
constexpr Registry kSenders = {&KovaRtspStreamer::pSenderList,
                               &KovaRtspStreamer::pSenderListTail,
                               &KovaRtspStreamer::senderMutex,
                               kRankSenders,
                               &KovaRtspStreamer::packerMutex,
                               SenderId,
                               DestroySender};

/// What an operation does to a registry.
enum Change {
    kAdd,      // pElement
    kUnlink,   // pElement
    kTakeById, // the first element with that payload id
    kTakeFirst // the first element
};

/// Changes a registry under its mutexes. A member pointer hides from the analysis
/// which they are.
/// @param ppElement  what to add or unlink; receives what was taken
/// @return whether there was something to take, and memory to add
bool Apply(KovaRtspStreamer *pStreamer, const Registry &registry, Change change, void **ppElement,
           uint32_t nPayloadId) KOVA_NO_THREAD_SAFETY_ANALYSIS
{
    KovaList **ppList = &(pStreamer->*registry.pList);
    KovaList **ppTail = &(pStreamer->*registry.pTail);
    const KovaMutexLock lock(&(pStreamer->*registry.pMutex), registry.rank);
    const WriterLock writerLock(
        registry.pWriterMutex != nullptr ? &(pStreamer->*registry.pWriterMutex) : nullptr);
    if (change == kAdd)
        return KovaListPushTail(ppList, ppTail, *ppElement);
    if (change == kTakeFirst && *ppList == nullptr)
        return false;
    if (change == kTakeFirst)
        *ppElement = (*ppList)->data;
    else if (change == kTakeById)
        *ppElement = FindById(*ppList, registry.pfnPayloadId, nPayloadId);
    return (*ppElement != nullptr || change == kTakeFirst) &&
           KovaListTake(ppList, ppTail, *ppElement);
}

int32_t Add(KovaRtspStreamer *pStreamer, const Registry &registry, void *pElement)
{
    if (pStreamer == nullptr || pElement == nullptr)
        return KOVA_ERROR_NULL;
    return Apply(pStreamer, registry, kAdd, &pElement, 0) ? KOVA_OK : KOVA_ERROR_FAILED;
}

/// Afterwards no packer thread uses the element any more: it is the caller's.
int32_t Remove(KovaRtspStreamer *pStreamer, const Registry &registry, void *pElement)
{
    if (pStreamer == nullptr || pElement == nullptr)
        return KOVA_ERROR_NULL;
    Apply(pStreamer, registry, kUnlink, &pElement, 0);
    KovaStreamerAwaitPackerThreads(pStreamer);
    return KOVA_OK;
}

void *Get(KovaRtspStreamer *pStreamer, const Registry &registry,
          uint32_t nPayloadId) KOVA_NO_THREAD_SAFETY_ANALYSIS
{
    if (pStreamer == nullptr)
        return nullptr;
    const KovaMutexLock lock(&(pStreamer->*registry.pMutex), registry.rank);
    return FindById(pStreamer->*registry.pList, registry.pfnPayloadId, nPayloadId);
}

/// Takes an element out and destroys it, outside the mutex: a sending thread that
/// is being stopped may be in the middle of a call that somebody who waits for the
/// mutex holds up. Returns whether there was one.
bool TakeAndDestroy(KovaRtspStreamer *pStreamer, const Registry &registry, Change change,
                    uint32_t nPayloadId)
{
    void *pElement = nullptr;
    if (!Apply(pStreamer, registry, change, &pElement, nPayloadId))
        return false;
    KovaStreamerAwaitPackerThreads(pStreamer);
    registry.pfnDestroy(pElement);
    return true;
}

int32_t RemoveById(KovaRtspStreamer *pStreamer, const Registry &registry, uint32_t nPayloadId)
{
    if (pStreamer == nullptr)
        return KOVA_ERROR_NULL;
    return TakeAndDestroy(pStreamer, registry, kTakeById, nPayloadId) ? KOVA_OK : KOVA_ERROR_FAILED;
}

void RemoveAll(KovaRtspStreamer *pStreamer, const Registry &registry)
{
    while (pStreamer != nullptr && TakeAndDestroy(pStreamer, registry, kTakeFirst, 0)) {
    }
}

} // namespace

int32_t KovaRtspStreamerAddRtspMediaInfo(KovaRtspStreamer *pStreamer, KovaRtspMediaInfo *pMediaInfo)
{
    return Add(pStreamer, kMediaInfos, pMediaInfo);
}

int32_t KovaRtspStreamerAddRtpPacker(KovaRtspStreamer *pStreamer, KovaRtpPacker *pPacker)
{
    return Add(pStreamer, kPackers, pPacker);
}

int32_t KovaRtspStreamerAddRtpSender(KovaRtspStreamer *pStreamer, KovaRtpSender *pSender)
{
    return Add(pStreamer, kSenders, pSender);
}

int32_t KovaRtspStreamerRemoveRtspMediaInfo(KovaRtspStreamer *pStreamer,
                                            KovaRtspMediaInfo *pMediaInfo)
{
    return Remove(pStreamer, kMediaInfos, pMediaInfo);
}

int32_t KovaRtspStreamerRemoveRtpPacker(KovaRtspStreamer *pStreamer, KovaRtpPacker *pPacker)
{
    return Remove(pStreamer, kPackers, pPacker);
}

int32_t KovaRtspStreamerRemoveRtpSender(KovaRtspStreamer *pStreamer, KovaRtpSender *pSender)
{
    return Remove(pStreamer, kSenders, pSender);
}

void KovaRtspStreamerRemoveAllRtspMediaInfo(KovaRtspStreamer *pStreamer)
{
    RemoveAll(pStreamer, kMediaInfos);
}

void KovaRtspStreamerRemoveAllRtpPacker(KovaRtspStreamer *pStreamer)
{
    RemoveAll(pStreamer, kPackers);
}

void KovaRtspStreamerRemoveAllRtpSender(KovaRtspStreamer *pStreamer)
{
    RemoveAll(pStreamer, kSenders);
}

KovaRtspMediaInfo *KovaRtspStreamerGetRtspMediaInfoByPayloadId(KovaRtspStreamer *pStreamer,
                                                               uint32_t nPayloadId)
{
    return static_cast<KovaRtspMediaInfo *>(Get(pStreamer, kMediaInfos, nPayloadId));
}

KovaRtpPacker *KovaRtspStreamerGetRtpPackerByPayloadId(KovaRtspStreamer *pStreamer,
                                                       uint32_t nPayloadId)
{
    return static_cast<KovaRtpPacker *>(Get(pStreamer, kPackers, nPayloadId));
}

KovaRtpSender *KovaRtspStreamerGetRtpSenderByPayloadId(KovaRtspStreamer *pStreamer,
                                                       uint32_t nPayloadId)
{
    return static_cast<KovaRtpSender *>(Get(pStreamer, kSenders, nPayloadId));
}

int32_t KovaRtspStreamerRemoveRtspMediaInfoByPayloadId(KovaRtspStreamer *pStreamer,
                                                       uint32_t nPayloadId)
{
    return RemoveById(pStreamer, kMediaInfos, nPayloadId);
}

int32_t KovaRtspStreamerRemoveRtpPackerByPayloadId(KovaRtspStreamer *pStreamer, uint32_t nPayloadId)
{
    return RemoveById(pStreamer, kPackers, nPayloadId);
}

int32_t KovaRtspStreamerRemoveRtpSenderByPayloadId(KovaRtspStreamer *pStreamer, uint32_t nPayloadId)
{
    return RemoveById(pStreamer, kSenders, nPayloadId);
}

KovaRtpPacker *KovaStreamerTakePacker(KovaRtspStreamer *pStreamer, uint32_t nPayloadId)
{
    void *pPacker = nullptr;
    Apply(pStreamer, kPackers, kTakeById, &pPacker, nPayloadId);
    return static_cast<KovaRtpPacker *>(pPacker);
}

void KovaStreamerAwaitPackerThreads(KovaRtspStreamer *pStreamer)
{
    const KovaMutexLock audioLock(&pStreamer->audioUseMutex, kRankAudioUse);
    const KovaMutexLock videoLock(&pStreamer->videoUseMutex, kRankVideoUse);
}
