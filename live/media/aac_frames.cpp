#include "live/media/aac_frames.h"

#include "kova_live.h"
#include "rtp/adts.h"

namespace {

constexpr uint32_t kCrcSize = 2;

/// Sync word, the bits of the layer, which are 0, and none but one raw data block.
bool IsHeader(const uint8_t *pHeader)
{
    return pHeader[0] == 0xFF && (pHeader[1] & 0xF6) == 0xF0 && (pHeader[6] & 3) == 0;
}

int32_t TakeAdts(KovaAacFrames *pFrames, KovaAacFrame *pFrame)
{
    const uint8_t *pHeader = pFrames->pData;
    if (pFrames->nSize < kAdtsHeaderSize || !IsHeader(pHeader))
        return KOVA_LIVE_ERROR_DATA;
    const uint32_t nHeader = kAdtsHeaderSize + ((pHeader[1] & 1) != 0 ? 0 : kCrcSize);
    const uint32_t nLength = (pHeader[3] & 3U) << 11 | static_cast<uint32_t>(pHeader[4]) << 3 |
                             static_cast<uint32_t>(pHeader[5]) >> 5;
    if (nLength <= nHeader || nLength > pFrames->nSize)
        return KOVA_LIVE_ERROR_DATA;
    *pFrame = {pHeader + nHeader, nLength - nHeader};
    pFrames->pData += nLength;
    pFrames->nSize -= nLength;
    return KOVA_LIVE_OK;
}

} // namespace

int32_t KovaAacFramesTake(KovaAacFrames *pFrames, KovaAacFrame *pFrame)
{
    if (!pFrames->bRaw)
        return TakeAdts(pFrames, pFrame);
    if (pFrames->nSize > kMaxAacFrame)
        return KOVA_LIVE_ERROR_TOO_LARGE;
    *pFrame = {pFrames->pData, static_cast<uint32_t>(pFrames->nSize)};
    pFrames->nSize = 0;
    return KOVA_LIVE_OK;
}

uint16_t KovaAdtsConfig(const uint8_t *pHeader)
{
    const uint32_t nObjectType = (pHeader[2] >> 6) + 1U;
    const uint32_t nRateIndex = pHeader[2] >> 2 & 15U;
    const uint32_t nChannels = (pHeader[2] & 1U) << 2 | pHeader[3] >> 6;
    return static_cast<uint16_t>(nObjectType << 11 | nRateIndex << 7 | nChannels << 3);
}
