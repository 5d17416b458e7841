#include "classic/sdp/sdp_generator.h"

#include "foundation/calendar.h"
#include "foundation/heap.h"
#include "foundation/list_view.h"
#include "foundation/mutex.h"
#include "foundation/owner.h"
#include "foundation/text.h"
#include "kova_rtsp_server.h"

#include <cstdio>
#include <cstring>
#include <ctime>

namespace {

constexpr size_t kSessionTextSize = 64;
constexpr int kRandomRange = 10000;

/// 18 digits that serve as session id and version: the time and four random
/// ones.
void WriteSessionText(char *szSession)
{
    const time_t tNow = time(nullptr);
    struct tm utc = {};
    KovaCalendarUtc(tNow, &utc);
    snprintf(szSession, kSessionTextSize, "%04d%02d%02d%02d%02d%02d%04d", utc.tm_year + 1900,
             utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec,
             rand() % kRandomRange);
}

using OwnedMedia = KovaOwner<KovaRtspSdpMedia, MediaDestroy>;

void AppendSession(const KovaRtspSdpGenerator *pGenerator, char *szText, size_t *pLength)
    KOVA_REQUIRES(pGenerator->sdpMutex)
{
    char szSession[kSessionTextSize];
    WriteSessionText(szSession);
    KovaTextAppend(szText, kSdpTextSize, pLength,
                   "v=0\r\no=- %s %s IN IP4 %s\r\ns= Unnamed\r\nc=IN IP4 %s\r\n"
                   "a=control:rtsp://%s:%d/%.*s\r\na=recvonly\r\na=type:broadcast\r\nt=0 0\r\n",
                   szSession, szSession, pGenerator->szServerIp, "0.0.0.0", pGenerator->szServerIp,
                   pGenerator->nServerPort, static_cast<int>(KOVA_MAX_URI_LENGTH),
                   pGenerator->szUri);
}

KovaRtspSdpMedia *FindMedia(const KovaRtspSdpGenerator *pGenerator, uint32_t nPayloadId)
    KOVA_REQUIRES(pGenerator->sdpMutex)
{
    return KovaListFind(pGenerator->pMediaList, &KovaRtspSdpMedia::nPayloadId, nPayloadId);
}

} // namespace

KovaRtspSdpGenerator *KovaRtspSdpGeneratorCreate(const char *szUri)
{
    if (szUri == nullptr)
        return nullptr;
    KovaRtspSdpGenerator *pGenerator = KovaHeapNew<KovaRtspSdpGenerator>();
    if (pGenerator == nullptr)
        return nullptr;
    memcpy(pGenerator->szUri, szUri, strnlen(szUri, sizeof(pGenerator->szUri)));
    KovaMutexInit(&pGenerator->sdpMutex);
    return pGenerator;
}

void KovaRtspSdpGeneratorDestroy(KovaRtspSdpGenerator *pGenerator)
{
    if (pGenerator == nullptr)
        return;
    KovaRtspSdpGeneratorRemoveAllMedia(pGenerator);
    KovaMutexDestroy(&pGenerator->sdpMutex);
    free(pGenerator);
}

int32_t KovaRtspSdpGeneratorAddMedia(KovaRtspSdpGenerator *pGenerator, uint32_t nMediaType,
                                     uint32_t nPayloadId, const void *pDescription)
{
    if (pGenerator == nullptr || pDescription == nullptr)
        return KOVA_ERROR_NULL;
    OwnedMedia media(MediaCreate(nMediaType, nPayloadId, pDescription));
    if (!media)
        return KOVA_ERROR_FAILED;
    const KovaMutexLock lock(&pGenerator->sdpMutex, kRankLeaf);
    if (!KovaListPush(pGenerator->pMediaList, media.Get()))
        return KOVA_ERROR_FAILED;
    media.Release();
    return KOVA_OK;
}

void KovaRtspSdpGeneratorRemoveMedia(KovaRtspSdpGenerator *pGenerator, KovaRtspSdpMedia *pMedia)
{
    if (pGenerator == nullptr || pMedia == nullptr)
        return;
    KovaMutexLock lock(&pGenerator->sdpMutex, kRankLeaf);
    KovaListTake(pGenerator->pMediaList, nullptr, pMedia);
    lock.Unlock();
    MediaDestroy(pMedia);
}

void KovaRtspSdpGeneratorRemoveAllMedia(KovaRtspSdpGenerator *pGenerator)
{
    if (pGenerator == nullptr)
        return;
    const KovaMutexLock lock(&pGenerator->sdpMutex, kRankLeaf);
    while (pGenerator->pMediaList != nullptr)
        MediaDestroy(KovaListTakeFirstOf<KovaRtspSdpMedia>(pGenerator->pMediaList, nullptr));
}

KovaRtspSdpMedia *KovaRtspSdpGeneratorGetMediaByPayloadId(KovaRtspSdpGenerator *pGenerator,
                                                          uint32_t nPayloadId)
{
    if (pGenerator == nullptr)
        return nullptr;
    const KovaMutexLock lock(&pGenerator->sdpMutex, kRankLeaf);
    return FindMedia(pGenerator, nPayloadId);
}

void KovaRtspSdpGeneratorRemoveMediaByPayloadId(KovaRtspSdpGenerator *pGenerator,
                                                uint32_t nPayloadId)
{
    if (pGenerator == nullptr)
        return;
    KovaMutexLock lock(&pGenerator->sdpMutex, kRankLeaf);
    KovaRtspSdpMedia *pMedia = FindMedia(pGenerator, nPayloadId);
    if (pMedia != nullptr)
        KovaListTake(pGenerator->pMediaList, nullptr, pMedia);
    lock.Unlock();
    MediaDestroy(pMedia);
}

void KovaRtspSdpGeneratorSetNetworkInfo(KovaRtspSdpGenerator *pGenerator, const char *szServerIp,
                                        uint16_t nServerPort, const char *szClientIp)
{
    if (pGenerator == nullptr || szServerIp == nullptr || szClientIp == nullptr)
        return;
    const KovaMutexLock lock(&pGenerator->sdpMutex, kRankLeaf);
    KovaTextCopy(pGenerator->szServerIp, sizeof(pGenerator->szServerIp), szServerIp);
    pGenerator->nServerPort = nServerPort;
    KovaTextCopy(pGenerator->szClientIp, sizeof(pGenerator->szClientIp), szClientIp);
}

void KovaRtspSdpGeneratorSetMediaInfo(KovaRtspSdpGenerator *pGenerator, uint32_t nPayloadId,
                                      uint32_t nInfoType, const uint8_t *pData, uint32_t nLength)
{
    if (pGenerator == nullptr || pData == nullptr)
        return;
    // Found and written under one lock: the host may remove the section, and a
    // player may be reading it.
    const KovaMutexLock lock(&pGenerator->sdpMutex, kRankLeaf);
    KovaRtspSdpMedia *pMedia = FindMedia(pGenerator, nPayloadId);
    if (pMedia != nullptr)
        KovaSdpMediaSetInfo(pMedia, nInfoType, pData, nLength);
}

int32_t KovaRtspSdpGeneratorIsReady(KovaRtspSdpGenerator *pGenerator)
{
    if (pGenerator == nullptr)
        return 0;
    int32_t nReady = 0;
    const KovaMutexLock lock(&pGenerator->sdpMutex, kRankLeaf);
    for (const KovaRtspSdpMedia *pMedia : KovaListOf<KovaRtspSdpMedia>(pGenerator->pMediaList)) {
        if (pMedia->nMediaType != KOVA_MEDIA_AUDIO && pMedia->nMediaType != KOVA_MEDIA_VIDEO)
            continue;
        if (!KovaSdpMediaIsComplete(pMedia))
            return 0;
        nReady = 1;
    }
    return nReady;
}

void KovaRtspGenerateSdpGetSdpInfo(KovaRtspSdpGenerator *pGenerator, char *szText, int32_t *pLength)
{
    if (pGenerator == nullptr || szText == nullptr || pLength == nullptr)
        return;
    const KovaMutexLock lock(&pGenerator->sdpMutex, kRankLeaf);
    size_t nLength = 0;
    AppendSession(pGenerator, szText, &nLength);
    for (KovaRtspSdpMedia *pMedia : KovaListOf<KovaRtspSdpMedia>(pGenerator->pMediaList)) {
        if (pMedia->pData != nullptr)
            KovaSdpMediaAppend(pMedia, szText, kSdpTextSize, &nLength);
    }
    *pLength = static_cast<int32_t>(nLength);
}
