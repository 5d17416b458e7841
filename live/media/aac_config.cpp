#include "live/media/aac_config.h"

#include "live/media/bit_reader.h"

#include <cstring>

namespace {

/// Sampling frequencies by index (ISO/IEC 14496-3, table 1.18).
constexpr uint32_t kRates[16] = {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050,
                                 16000, 12000, 11025, 8000,  7350,  0,     0,     0};
constexpr uint32_t kRateFollows = 15;

/// Channels by configuration (table 1.19); 0: in a program config element, or reserved.
constexpr uint8_t kChannels[16] = {0, 1, 2, 3, 4, 5, 6, 8, 0, 0, 0, 7, 8, 24, 8, 0};

// Audio object types (table 1.17).
constexpr uint32_t kMain = 1;
constexpr uint32_t kLtp = 4;
constexpr uint32_t kSbr = 5;
constexpr uint32_t kErLc = 17;
constexpr uint32_t kErLtp = 19;
constexpr uint32_t kLowDelay = 23;
constexpr uint32_t kParametricStereo = 29;
constexpr uint32_t kEscape = 31;
constexpr uint32_t kEnhancedLowDelay = 39;

/// What follows the flag of a mixdown in a program config element: mono, stereo, matrix.
constexpr uint8_t kMixdownBits[3] = {4, 4, 3};

uint32_t ReadObjectType(KovaBitReader *pReader)
{
    const uint32_t nType = KovaBitReaderRead(pReader, 5);
    return nType == kEscape ? 32 + KovaBitReaderRead(pReader, 6) : nType;
}

/// 0 for a reserved index.
uint32_t ReadRate(KovaBitReader *pReader)
{
    const uint32_t nIndex = KovaBitReaderRead(pReader, 4);
    return nIndex == kRateFollows ? KovaBitReaderRead(pReader, 24) : kRates[nIndex];
}

bool IsLowDelay(uint32_t nObjectType)
{
    return nObjectType == kLowDelay || nObjectType == kEnhancedLowDelay;
}

bool IsAac(uint32_t nObjectType)
{
    return (nObjectType >= kMain && nObjectType <= kLtp) || nObjectType == kErLc ||
           nObjectType == kErLtp || IsLowDelay(nObjectType);
}

uint32_t ReadElements(KovaBitReader *pReader, uint32_t nCount)
{
    uint32_t nChannels = 0;
    for (; nCount > 0; nCount--) {
        nChannels += 1 + KovaBitReaderRead(pReader, 1);
        KovaBitReaderRead(pReader, 4);
    }
    return nChannels;
}

/// The channels of a program config element (table 4.2).
uint32_t ReadProgramChannels(KovaBitReader *pReader)
{
    KovaBitReaderRead(pReader, 4 + 2 + 4);
    uint32_t nPairable = KovaBitReaderRead(pReader, 4);
    nPairable += KovaBitReaderRead(pReader, 4);
    nPairable += KovaBitReaderRead(pReader, 4);
    const uint32_t nLow = KovaBitReaderRead(pReader, 2);
    KovaBitReaderRead(pReader, 3 + 4);
    for (const uint8_t nBits : kMixdownBits)
        if (KovaBitReaderRead(pReader, 1) != 0)
            KovaBitReaderRead(pReader, nBits);
    return ReadElements(pReader, nPairable) + nLow;
}

/// GASpecificConfig (table 4.1) up to what is used here; the first bit of
/// ELDSpecificConfig means the same.
void ReadFrame(KovaBitReader *pReader, KovaAacConfig *pConfig)
{
    const bool bShort = KovaBitReaderRead(pReader, 1) != 0;
    if (IsLowDelay(pConfig->nObjectType))
        pConfig->nFrameTicks = bShort ? 480 : 512;
    else
        pConfig->nFrameTicks = bShort ? 960 : 1024;
    if (pConfig->nChannelConfig != 0 || pConfig->nObjectType == kEnhancedLowDelay)
        return;
    if (KovaBitReaderRead(pReader, 1) != 0) // depends on a core coder, by a delay
        KovaBitReaderRead(pReader, 14);
    KovaBitReaderRead(pReader, 1);
    pConfig->nChannels = ReadProgramChannels(pReader);
}

} // namespace

bool KovaAacConfigRead(const uint8_t *pBytes, size_t nSize, KovaAacConfig *pConfig)
{
    *pConfig = {};
    if (nSize < 2 || nSize > kMaxAacConfig)
        return false;
    memcpy(pConfig->bytes, pBytes, nSize);
    pConfig->nSize = static_cast<uint32_t>(nSize);
    KovaBitReader reader = KovaBitReaderOf(pBytes, nSize);
    const uint32_t nFirstType = ReadObjectType(&reader);
    pConfig->nObjectType = nFirstType;
    pConfig->nCoreRate = ReadRate(&reader);
    pConfig->nRate = pConfig->nCoreRate;
    pConfig->nChannelConfig = KovaBitReaderRead(&reader, 4);
    pConfig->nChannels = kChannels[pConfig->nChannelConfig];
    if (nFirstType == kSbr || nFirstType == kParametricStereo) {
        pConfig->nRate = ReadRate(&reader);
        pConfig->nObjectType = ReadObjectType(&reader);
    }
    if (!IsAac(pConfig->nObjectType))
        return false;
    ReadFrame(&reader, pConfig);
    if (nFirstType == kParametricStereo && pConfig->nChannels == 1)
        pConfig->nChannels = 2;
    // SBR doubles the rate, or leaves it.
    if (pConfig->nRate == 2 * pConfig->nCoreRate)
        pConfig->nFrameTicks *= 2;
    else if (pConfig->nRate != pConfig->nCoreRate)
        return false;
    return !reader.bOver && pConfig->nCoreRate != 0 && pConfig->nChannels != 0;
}
