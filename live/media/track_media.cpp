#include "foundation/heap.h"
#include "foundation/owner.h"
#include "foundation/random.h"
#include "live/media/aac_cut.h"
#include "live/media/h264_cut.h"
#include "live/media/track_media_record.h"
#include "rtp/rtp_header.h"

namespace {

constexpr uint32_t kH264ClockRate = 90000;
constexpr size_t kMaxUnit = size_t{16} * 1024 * 1024;
constexpr uint32_t kMinPacket = 64; ///< room for every header
constexpr uint32_t kMaxPacket = 65535;

/// A set that the host gives; without the zero bytes that a start code may have left.
int32_t TakeSet(KovaTrackMedia *pMedia, const uint8_t *pBytes, uint32_t nSize, uint8_t nType)
{
    while (nSize > 0 && pBytes[nSize - 1] == 0)
        nSize--;
    const KovaNal nal = {pBytes, nSize};
    if (nSize == 0 || KovaNalTypeOf(nal) != nType)
        return KOVA_LIVE_ERROR_DATA;
    uint32_t nPlaces = 0;
    return KovaParameterSetsTake(&pMedia->sets, nal, &nPlaces);
}

int32_t SetUpH264(KovaTrackMedia *pMedia, const KovaLiveTrackConfig &config)
{
    pMedia->nClockRate.store(kH264ClockRate);
    if (config.form == KOVA_LIVE_FORM_LENGTH) {
        pMedia->nLengthSize = config.length_size != 0 ? config.length_size : 4;
        if (pMedia->nLengthSize > 4 || pMedia->nLengthSize == 3)
            return KOVA_LIVE_ERROR_ARGUMENT;
    } else if (config.form != KOVA_LIVE_FORM_DEFAULT && config.form != KOVA_LIVE_FORM_ANNEXB) {
        return KOVA_LIVE_ERROR_ARGUMENT;
    }
    if ((config.sps_size != 0 && config.sps == nullptr) ||
        (config.pps_size != 0 && config.pps == nullptr))
        return KOVA_LIVE_ERROR_ARGUMENT;
    int32_t nResult = KOVA_LIVE_OK;
    if (config.sps_size != 0)
        nResult = TakeSet(pMedia, config.sps, config.sps_size, kNalSps);
    if (nResult == KOVA_LIVE_OK && config.pps_size != 0)
        nResult = TakeSet(pMedia, config.pps, config.pps_size, kNalPps);
    // The description has them.
    KovaParameterSetsSent(&pMedia->sets);
    return nResult;
}

int32_t SetUpAac(KovaTrackMedia *pMedia, const KovaLiveTrackConfig &config)
{
    pMedia->bRaw = config.form == KOVA_LIVE_FORM_RAW;
    if (!pMedia->bRaw && config.form != KOVA_LIVE_FORM_DEFAULT &&
        config.form != KOVA_LIVE_FORM_ADTS)
        return KOVA_LIVE_ERROR_ARGUMENT;
    if (config.audio_config_size == 0)
        return pMedia->bRaw ? KOVA_LIVE_ERROR_ARGUMENT : KOVA_LIVE_OK;
    if (config.audio_config == nullptr || config.audio_config_size < 2 ||
        config.audio_config_size > kMaxAacConfig)
        return KOVA_LIVE_ERROR_ARGUMENT;
    KovaAacConfig &given = pMedia->aac.given;
    if (!KovaAacConfigRead(config.audio_config, config.audio_config_size, &given))
        return KOVA_LIVE_ERROR_DATA;
    KovaTrackMediaSetAac(pMedia, given);
    return KOVA_LIVE_OK;
}

/// Where the numbers of the packets begin (RFC 3550, 5.1: unforeseeable).
void DrawNumbers(KovaTrackMedia *pMedia)
{
    struct {
        uint32_t nSsrc;
        uint32_t nTimeOffset;
        uint16_t nSequence;
    } numbers;
    // A mix of clocks, which it gives where the system has nothing better, does as well: the
    // numbers of two tracks shall differ, and nothing is secret about them.
    KovaRandomFill(&numbers, sizeof(numbers));
    pMedia->nSsrc = numbers.nSsrc;
    pMedia->nTimeOffset = numbers.nTimeOffset;
    pMedia->nSequence = numbers.nSequence;
}

bool IsCodec(uint32_t nCodec)
{
    return nCodec == KOVA_LIVE_H264 || nCodec == KOVA_LIVE_AAC;
}

} // namespace

int32_t KovaTrackMediaCreate(const KovaLiveTrackConfig &config, uint8_t nPayloadType,
                             uint32_t nTrack, uint32_t nMaxPacket, KovaTrackMedia **ppMedia)
{
    if (!IsCodec(config.codec))
        return KOVA_LIVE_ERROR_CODEC;
    if (nMaxPacket < kMinPacket || nMaxPacket > kMaxPacket)
        return KOVA_LIVE_ERROR_ARGUMENT;
    KovaTrackMedia *pRecord = KovaHeapNew<KovaTrackMedia>();
    if (pRecord == nullptr)
        return KOVA_LIVE_ERROR_MEMORY;
    KovaParameterSetsInit(&pRecord->sets);
    KovaMutexInit(&pRecord->aac.mutex);
    KovaOwner<KovaTrackMedia, KovaTrackMediaDestroy> media(pRecord);
    media->pPool = KovaUnitPoolCreate();
    if (media->pPool == nullptr)
        return KOVA_LIVE_ERROR_MEMORY;
    media->nCodec = config.codec;
    media->nPayloadType = nPayloadType;
    media->nTrack = nTrack;
    media->nMaxPayload = nMaxPacket - kRtpHeaderSize;
    DrawNumbers(media.Get());
    const int32_t nResult = config.codec == KOVA_LIVE_H264 ? SetUpH264(media.Get(), config)
                                                           : SetUpAac(media.Get(), config);
    if (nResult == KOVA_LIVE_OK)
        *ppMedia = media.Release();
    return nResult;
}

void KovaTrackMediaDestroy(KovaTrackMedia *pMedia)
{
    if (pMedia == nullptr)
        return;
    KovaUnitPoolDestroy(pMedia->pPool);
    KovaNalListFree(&pMedia->nals);
    KovaParameterSetsFree(&pMedia->sets);
    KovaMutexDestroy(&pMedia->aac.mutex);
    free(pMedia);
}

int32_t KovaTrackMediaCut(KovaTrackMedia *pMedia, const uint8_t *pData, size_t nSize, int64_t nPts,
                          KovaUnit **ppUnit)
{
    *ppUnit = nullptr;
    if (nSize == 0)
        return KOVA_LIVE_ERROR_DATA;
    if (nSize > kMaxUnit)
        return KOVA_LIVE_ERROR_TOO_LARGE;
    return pMedia->nCodec == KOVA_LIVE_H264 ? KovaH264Cut(pMedia, pData, nSize, nPts, ppUnit)
                                            : KovaAacCut(pMedia, pData, nSize, nPts, ppUnit);
}

void KovaTrackMediaSetAac(KovaTrackMedia *pMedia, const KovaAacConfig &config)
{
    KovaMutexLock lock(&pMedia->aac.mutex, kRankLeaf);
    // Ticks of another length: what was counted so far says nothing any more.
    if (pMedia->aac.config.nRate != config.nRate)
        pMedia->soundTime.bRunning = false;
    pMedia->aac.config = config;
    pMedia->nClockRate.store(config.nRate);
}

uint32_t KovaTrackMediaCodec(const KovaTrackMedia *pMedia)
{
    return pMedia->nCodec;
}

uint32_t KovaTrackMediaSsrc(const KovaTrackMedia *pMedia)
{
    return pMedia->nSsrc;
}

uint32_t KovaTrackMediaClockRate(const KovaTrackMedia *pMedia)
{
    return pMedia->nClockRate.load();
}

uint32_t KovaTrackMediaTimestamp(const KovaTrackMedia *pMedia, int64_t nPts)
{
    return pMedia->nTimeOffset + KovaRtpTicks(nPts, pMedia->nClockRate.load());
}
