#include "rtp/adts.h"

#include <cstring>

namespace {

/// Sampling frequencies by index (ISO/IEC 14496-3, table 1.18).
constexpr uint32_t kSampleRates[16] = {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050,
                                       16000, 12000, 11025, 8000,  7350,  0,     0,     0};

constexpr uint16_t kConfigAacLc = 0x1000;

/// The middle byte of the length counts as a signed number, so a frame whose
/// middle length byte has its top bit set reads as negative and ends the parse.
int32_t FrameLength(const uint8_t *pHeader)
{
    const uint32_t nMiddle = static_cast<uint32_t>(static_cast<int8_t>(pHeader[4])) << 3;
    const uint32_t nLength =
        (pHeader[3] & 3U) << 11 | nMiddle | static_cast<uint32_t>(pHeader[5]) >> 5;
    return static_cast<int32_t>(nLength);
}

/// Object type always AAC LC; the channel bits are taken as they stand, which
/// is right for one to three channels.
uint16_t Config(const uint8_t *pHeader)
{
    return static_cast<uint16_t>(kConfigAacLc | (pHeader[2] & 0x3C) << 5 | (pHeader[2] & 1) << 4 |
                                 ((pHeader[3] >> 6) & 3) << 3);
}

} // namespace

bool KovaAdtsFind(const uint8_t *pData, uint32_t nLength, uint32_t nFrom, uint32_t *pPosition)
{
    while (nFrom < nLength && nLength - nFrom > kAdtsHeaderSize) {
        const void *pFound = memchr(pData + nFrom, 0xFF, nLength - nFrom - kAdtsHeaderSize);
        if (pFound == nullptr)
            return false;
        const uint8_t *pSync = static_cast<const uint8_t *>(pFound);
        const uint32_t nAt = static_cast<uint32_t>(pSync - pData);
        if ((pSync[1] & 0xF0) == 0xF0) {
            *pPosition = nAt;
            return true;
        }
        nFrom = nAt + 1;
    }
    return false;
}

KovaAdtsHeader KovaAdtsParse(const uint8_t *pHeader)
{
    return {kSampleRates[(pHeader[2] & 0x3C) >> 2], Config(pHeader), FrameLength(pHeader)};
}
