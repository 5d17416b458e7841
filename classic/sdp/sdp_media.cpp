#include "classic/sdp/sdp_media.h"

#include "classic/rtp/rtp_packer.h"
#include "foundation/base64.h"
#include "foundation/heap.h"
#include "foundation/owner.h"
#include "foundation/text.h"
#include "kova_rtsp_server.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

/// Longest decimal text of a sampling rate, with its NUL.
constexpr size_t kRateText = 16;

KovaSdpVideoData *VideoOf(const KovaRtspSdpMedia *pMedia)
{
    return pMedia->nMediaType == KOVA_MEDIA_VIDEO ? static_cast<KovaSdpVideoData *>(pMedia->pData)
                                                  : nullptr;
}

KovaSdpAudioData *AudioOf(const KovaRtspSdpMedia *pMedia)
{
    return pMedia->nMediaType == KOVA_MEDIA_AUDIO ? static_cast<KovaSdpAudioData *>(pMedia->pData)
                                                  : nullptr;
}

void *MakeData(uint32_t nMediaType, void *pDescription)
{
    if (nMediaType == KOVA_MEDIA_AUDIO) {
        KovaSdpAudioData *pAudio = KovaHeapNew<KovaSdpAudioData>();
        if (pAudio != nullptr)
            pAudio->pDescription = static_cast<KovaAudioDescription *>(pDescription);
        return pAudio;
    }
    KovaSdpVideoData *pVideo = KovaHeapNew<KovaSdpVideoData>();
    if (pVideo != nullptr)
        pVideo->pDescription = static_cast<KovaVideoDescription *>(pDescription);
    return pVideo;
}

/// Byte nIndex of what a packer reported; bytes that a short report lacks are 0.
unsigned ByteAt(const uint8_t *pData, uint32_t nLength, uint32_t nIndex)
{
    return nIndex < nLength ? pData[nIndex] : 0U;
}

/// Writes the base64 text of a parameter set; returns whether it fits its field.
bool SetParameterSet(char *szField, const uint8_t *pData, uint32_t nLength)
{
    if (nLength >= kParameterSetText ||
        Base64encode_len(static_cast<int32_t>(nLength)) > static_cast<int32_t>(kParameterSetText))
        return false;
    Base64encode(szField, reinterpret_cast<const char *>(pData), static_cast<int32_t>(nLength));
    return true;
}

void SetSps(KovaSdpVideoData *pVideo, const uint8_t *pData, uint32_t nLength)
{
    if (!SetParameterSet(pVideo->szSpsBase64, pData, nLength))
        return;
    snprintf(pVideo->szProfileLevelId, sizeof(pVideo->szProfileLevelId), "%02X%02X%02X",
             ByteAt(pData, nLength, 1), ByteAt(pData, nLength, 2), ByteAt(pData, nLength, 3));
}

void SetSampleRate(KovaSdpAudioData *pAudio, const uint8_t *pData, uint32_t nLength)
{
    char szRate[kRateText];
    KovaTextCopy(szRate, sizeof(szRate),
                 KovaTextField(reinterpret_cast<const char *>(pData), nLength));
    pAudio->pDescription->nSampleRate = static_cast<uint32_t>(strtol(szRate, nullptr, 10));
}

/// Both sets, SPS first, as far as the field takes them.
void JoinParameterSets(KovaSdpVideoData *pVideo)
{
    char szJoined[2 * kParameterSetText];
    size_t nJoined = 0;
    KovaTextAppend(szJoined, sizeof(szJoined), &nJoined, "%s,%s", pVideo->szSpsBase64,
                   pVideo->szPpsBase64);
    KovaTextCopy(pVideo->szSpropParameterSets, sizeof(pVideo->szSpropParameterSets), szJoined);
}

void AppendVideo(const KovaRtspSdpMedia *pMedia, KovaSdpVideoData *pVideo, char *szBuffer,
                 size_t nCapacity, size_t *pLength)
{
    const int nId = static_cast<int>(pMedia->nPayloadId);
    JoinParameterSets(pVideo);
    // Written from the two sets, not from the joined field: sets that fit their
    // own fields appear whole even when the pair does not fit that one.
    KovaTextAppend(szBuffer, nCapacity, pLength,
                   "m=video %d RTP/AVP %d\r\nb=AS:%d\r\na=rtpmap:%d H264/90000\r\n"
                   "a=control:trackID=%d\r\n"
                   "a=fmtp:%d packetization-mode=1;profile-level-id=%s;"
                   "sprop-parameter-sets=%s,%s;\r\n",
                   0, nId, static_cast<int>(pVideo->pDescription->nBitrate), nId, nId, nId,
                   pVideo->szProfileLevelId, pVideo->szSpsBase64, pVideo->szPpsBase64);
}

void AppendAudio(const KovaRtspSdpMedia *pMedia, const KovaSdpAudioData *pAudio, char *szBuffer,
                 size_t nCapacity, size_t *pLength)
{
    const int nId = static_cast<int>(pMedia->nPayloadId);
    const KovaAudioDescription *pDescription = pAudio->pDescription;
    KovaTextAppend(szBuffer, nCapacity, pLength,
                   "m=audio %d RTP/AVP %d\r\nb=AS:%d\r\nb=RR:0\r\n"
                   "a=rtpmap:%d mpeg4-generic/%d/%d\r\na=control:trackID=%d\r\n"
                   "a=fmtp:%d streamtype=5;profile-level-id=15;mode=AAC-hbr;config=%s;"
                   "sizeLength=13;indexLength=3;indexDeltaLength=3;Profile=1;\r\n",
                   0, nId, static_cast<int>(pDescription->nBitrate), nId,
                   static_cast<int>(pDescription->nSampleRate),
                   static_cast<int>(pDescription->nChannels), nId, nId, pAudio->szConfig);
}

} // namespace

KovaRtspSdpMedia *MediaCreate(uint32_t nMediaType, uint32_t nPayloadId, const void *pDescription)
{
    KovaOwner<void, free> copy(KovaMediaDescriptionCopy(nMediaType, pDescription));
    if (!copy)
        return nullptr;
    KovaOwner<void, free> data(MakeData(nMediaType, copy.Get()));
    KovaRtspSdpMedia *pMedia = data ? KovaHeapNew<KovaRtspSdpMedia>() : nullptr;
    if (pMedia == nullptr)
        return nullptr;
    copy.Release(); // the data's from here on
    pMedia->nMediaType = nMediaType;
    pMedia->nPayloadId = nPayloadId;
    pMedia->pData = data.Release();
    return pMedia;
}

void MediaDestroy(KovaRtspSdpMedia *pMedia)
{
    if (pMedia == nullptr)
        return;
    if (const KovaSdpVideoData *pVideo = VideoOf(pMedia))
        free(pVideo->pDescription);
    else if (const KovaSdpAudioData *pAudio = AudioOf(pMedia))
        free(pAudio->pDescription);
    free(pMedia->pData);
    free(pMedia);
}

void KovaSdpMediaSetInfo(KovaRtspSdpMedia *pMedia, uint32_t nInfoType, const uint8_t *pData,
                         uint32_t nLength)
{
    KovaSdpVideoData *pVideo = VideoOf(pMedia);
    KovaSdpAudioData *pAudio = nLength != 0 ? AudioOf(pMedia) : nullptr;
    if (pVideo != nullptr && nInfoType == kInfoSps)
        SetSps(pVideo, pData, nLength);
    else if (pVideo != nullptr && nInfoType == kInfoPps)
        SetParameterSet(pVideo->szPpsBase64, pData, nLength);
    else if (pAudio != nullptr && nInfoType == kInfoAacConfig)
        snprintf(pAudio->szConfig, sizeof(pAudio->szConfig), "%02X%02X", ByteAt(pData, nLength, 0),
                 ByteAt(pData, nLength, 1));
    else if (pAudio != nullptr && nInfoType == kInfoAacSampleRate)
        SetSampleRate(pAudio, pData, nLength);
}

bool KovaSdpMediaIsComplete(const KovaRtspSdpMedia *pMedia)
{
    if (const KovaSdpVideoData *pVideo = VideoOf(pMedia))
        return pVideo->szPpsBase64[0] != '\0' && pVideo->szSpsBase64[0] != '\0';
    const KovaSdpAudioData *pAudio = AudioOf(pMedia);
    return pAudio != nullptr && pAudio->szConfig[0] != '\0';
}

void KovaSdpMediaAppend(KovaRtspSdpMedia *pMedia, char *szBuffer, size_t nCapacity, size_t *pLength)
{
    if (KovaSdpVideoData *pVideo = VideoOf(pMedia))
        AppendVideo(pMedia, pVideo, szBuffer, nCapacity, pLength);
    else if (const KovaSdpAudioData *pAudio = AudioOf(pMedia))
        AppendAudio(pMedia, pAudio, szBuffer, nCapacity, pLength);
}
