#include "kova_live.h"

#include "foundation/heap.h"
#include "foundation/owner.h"
#include "foundation/text.h"
#include "live/engine/loop.h"
#include "live/engine/stream.h"

#include <unistd.h>

#include <cstring>

namespace {

constexpr uint32_t kTrackWaitMs = 2000;
constexpr uint32_t kKeepBytes = 4 * 1024 * 1024;
constexpr uint8_t kFirstPayloadType = 96;
constexpr uint8_t kLastPayloadType = 127;

int32_t SetUsers(KovaLiveStream *pStream, const KovaLiveStreamConfig &config)
{
    if (config.user_count == 0) {
        pStream->pUsers = pStream->pLive->pUsers;
        return KOVA_LIVE_OK;
    }
    pStream->bOwnUsers = true;
    return KovaLoginUsersCreate(config.users, config.user_count, pStream->pLive->szRealm,
                                &pStream->pUsers);
}

/// A line of the description; what would end it is replaced.
bool SetName(KovaLiveStream *pStream, const char *szName)
{
    if (szName == nullptr || szName[0] == '\0')
        return true;
    const size_t nSize = strlen(szName) + 1;
    pStream->szName = static_cast<char *>(KovaHeapAlloc(nSize));
    if (pStream->szName != nullptr)
        KovaTextPrintable(pStream->szName, nSize, szName);
    return pStream->szName != nullptr;
}

int32_t Configure(KovaLiveStream *pStream, const KovaLiveStreamConfig &config)
{
    pStream->nTrackWait =
        uint64_t{config.track_wait_ms != 0 ? config.track_wait_ms : kTrackWaitMs} * 1000;
    pStream->bKeepGroup = config.keep_group != 0;
    pStream->nKeepBytes = config.keep_max_bytes != 0 ? config.keep_max_bytes : kKeepBytes;
    return SetName(pStream, config.name) ? SetUsers(pStream, config) : KOVA_LIVE_ERROR_MEMORY;
}

/// Puts the stream into the list; false when the path is taken.
bool Publish(KovaLive *pLive, KovaLiveStream *pStream)
{
    const KovaMutexLock lock(&pLive->streamsMutex, kRankLiveStreams);
    for (const KovaLiveStream *pOther = pLive->pStreams; pOther != nullptr;
         pOther = pOther->pNext) {
        if (strcmp(pOther->szPath, pStream->szPath) == 0)
            return false;
    }
    pStream->nNumber = ++pLive->nLastStream;
    pStream->pNext = pLive->pStreams;
    pLive->pStreams = pStream;
    return true;
}

void Withdraw(KovaLive *pLive, KovaLiveStream *pStream)
{
    const KovaMutexLock lock(&pLive->streamsMutex, kRankLiveStreams);
    KovaLiveStream **ppLink = &pLive->pStreams;
    while (*ppLink != pStream)
        ppLink = &(*ppLink)->pNext;
    *ppLink = pStream->pNext;
}

void WaitForPushes(const KovaLiveStream *pStream)
{
    constexpr unsigned kStep = 200;
    const uint32_t nTracks = pStream->nTracks;
    for (uint32_t nTrack = 0; nTrack < nTracks; nTrack++) {
        while (pStream->pTracks[nTrack]->nPushing != 0)
            usleep(kStep);
    }
}

bool PayloadTypeFree(const KovaLiveStream *pStream, uint32_t nType)
{
    const uint32_t nTracks = pStream->nTracks;
    for (uint32_t nTrack = 0; nTrack < nTracks; nTrack++) {
        if (pStream->pTracks[nTrack]->nPayloadType == nType)
            return false;
    }
    return true;
}

/// The payload type that the host chose, or the next free one; 0: not allowed.
uint8_t ChoosePayloadType(const KovaLiveStream *pStream, uint32_t nWanted)
{
    if (nWanted != 0) {
        const bool bDynamic = nWanted >= kFirstPayloadType && nWanted <= kLastPayloadType;
        return bDynamic && PayloadTypeFree(pStream, nWanted) ? static_cast<uint8_t>(nWanted) : 0;
    }
    uint8_t nType = kFirstPayloadType;
    while (!PayloadTypeFree(pStream, nType))
        nType++;
    return nType;
}

int32_t AddTrack(KovaLiveStream *pStream, const KovaLiveTrackConfig &config,
                 KovaLiveTrack **ppTrack) KOVA_REQUIRES(pStream->mutex)
{
    const uint32_t nIndex = pStream->nTracks;
    if (nIndex == kLiveMaxTracks)
        return KOVA_LIVE_ERROR_TOO_LARGE;
    const uint8_t nType = ChoosePayloadType(pStream, config.payload_type);
    if (nType == 0)
        return KOVA_LIVE_ERROR_ARGUMENT;
    KovaLiveTrack *pTrack = KovaHeapNew<KovaLiveTrack>();
    if (pTrack == nullptr)
        return KOVA_LIVE_ERROR_MEMORY;
    const int32_t nResult = KovaTrackMediaCreate(
        config, nType, nIndex, pStream->pLive->settings.nMaxPacket, &pTrack->pMedia);
    if (nResult != KOVA_LIVE_OK) {
        free(pTrack);
        return nResult;
    }
    pTrack->pStream = pStream;
    pTrack->nIndex = nIndex;
    pTrack->nPayloadType = nType;
    pStream->pTracks[nIndex] = pTrack;
    pStream->nTracks = nIndex + 1;
    *ppTrack = pTrack;
    return KOVA_LIVE_OK;
}

} // namespace

void KovaStreamsClear(KovaLive *pLive)
{
    KovaMutexLock lock(&pLive->streamsMutex, kRankLiveStreams);
    while (pLive->pStreams != nullptr) {
        KovaLiveStream *pStream = pLive->pStreams;
        pLive->pStreams = pStream->pNext;
        lock.Unlock();
        KovaStreamRelease(pStream);
        lock.Lock();
    }
}

extern "C" {

int32_t KovaLiveAddStream(KovaLive *pLive, const char *szPath, const KovaLiveStreamConfig *pConfig,
                          KovaLiveStream **ppStream)
{
    KovaLiveStreamConfig config = {};
    if (pLive == nullptr || szPath == nullptr || ppStream == nullptr ||
        (pConfig != nullptr &&
         !KovaLiveRecordCopy(&config, sizeof(config), pConfig, sizeof(config))))
        return KOVA_LIVE_ERROR_ARGUMENT;
    KovaOwner<KovaLiveStream, KovaStreamRelease> stream(KovaHeapNew<KovaLiveStream>());
    if (!stream)
        return KOVA_LIVE_ERROR_MEMORY;
    stream->pLive = pLive;
    stream->nReferences = 1;
    KovaMutexInit(&stream->mutex);
    if (!KovaLivePathNormalize(szPath, stream->szPath))
        return KOVA_LIVE_ERROR_ARGUMENT;
    const int32_t nResult = Configure(stream.Get(), config);
    if (nResult != KOVA_LIVE_OK)
        return nResult;
    if (!Publish(pLive, stream.Get()))
        return KOVA_LIVE_ERROR_EXISTS;
    *ppStream = stream.Release();
    return KOVA_LIVE_OK;
}

int32_t KovaLiveRemoveStream(KovaLiveStream *pStream)
{
    if (pStream == nullptr)
        return KOVA_LIVE_ERROR_ARGUMENT;
    KovaLive *pLive = pStream->pLive;
    if (KovaLoopIsCaller(pLive))
        return KOVA_LIVE_ERROR_IN_CALLBACK;
    Withdraw(pLive, pStream);
    pStream->bGone = true;
    WaitForPushes(pStream);
    for (uint32_t nLoop = 0; nLoop < pLive->nLoops; nLoop++)
        KovaLoopLook(pLive->pLoops[nLoop]);
    KovaStreamRelease(pStream);
    return KOVA_LIVE_OK;
}

int32_t KovaLiveAddTrack(KovaLiveStream *pStream, const KovaLiveTrackConfig *pConfig,
                         KovaLiveTrack **ppTrack)
{
    KovaLiveTrackConfig config = {};
    if (pStream == nullptr || ppTrack == nullptr ||
        !KovaLiveRecordCopy(&config, sizeof(config), pConfig, sizeof(config)))
        return KOVA_LIVE_ERROR_ARGUMENT;
    const KovaMutexLock lock(&pStream->mutex, kRankLiveStream);
    return AddTrack(pStream, config, ppTrack);
}

} // extern "C"
