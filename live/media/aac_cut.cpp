#include "live/media/aac_cut.h"

#include "live/media/aac_frames.h"
#include "live/media/packet_writer.h"
#include "live/media/rtp_time.h"
#include "live/media/track_media_record.h"

#include <cstring>

namespace {

// RFC 3640, 3.2.1 and 3.3.6: the length in bits of the AU headers, then one of 13
// bits size and 3 bits index (0 here, also as a distance: frames are not interleaved).
constexpr uint32_t kHeadersLength = 2;
constexpr uint32_t kAuHeader = 2;
constexpr uint32_t kMaxFramesInPacket = 65535 / (8 * kAuHeader);

/// For the pushing thread: nobody else changes it.
const KovaAacConfig &OwnView(const KovaTrackMedia *pMedia) KOVA_NO_THREAD_SAFETY_ANALYSIS
{
    return pMedia->aac.config;
}

void Write16(uint8_t *pBytes, uint32_t nValue)
{
    pBytes[0] = static_cast<uint8_t>(nValue >> 8);
    pBytes[1] = static_cast<uint8_t>(nValue);
}

void WriteAuHeader(uint8_t *pBytes, const KovaAacFrame &frame)
{
    Write16(pBytes, frame.nSize << 3);
}

/// Whether two configurations mean the same core, so that the one which tells more
/// stays: an ADTS header cannot tell of SBR, nor of frames of 960 samples.
bool IsSameCore(const KovaAacConfig &given, const KovaAacConfig &adts)
{
    return given.nSize != 0 && given.nObjectType == adts.nObjectType &&
           given.nCoreRate == adts.nCoreRate && given.nChannelConfig == adts.nChannelConfig;
}

/// The configuration of frames with an ADTS header like that.
bool ConfigOfAdts(const KovaTrackMedia *pMedia, const uint8_t *pHeader, KovaAacConfig *pConfig)
{
    const uint16_t nConfig = KovaAdtsConfig(pHeader);
    uint8_t bytes[2];
    Write16(bytes, nConfig);
    const KovaAacConfig &given = pMedia->aac.given;
    if ((nConfig >> 3 & 15) == 0) { // the channels stand in the frame; the host has to tell
        *pConfig = given;
        return given.nSize != 0;
    }
    if (!KovaAacConfigRead(bytes, sizeof(bytes), pConfig))
        return false;
    if (IsSameCore(given, *pConfig))
        *pConfig = given;
    return true;
}

/// Checks all frames of a push, and finds their configuration, which is one.
int32_t Inspect(const KovaTrackMedia *pMedia, KovaAacFrames frames, uint32_t *pCount,
                KovaAacConfig *pConfig)
{
    const uint8_t *pFirst = frames.pData;
    *pCount = 0;
    while (frames.nSize > 0) {
        const uint8_t *pHeader = frames.pData;
        KovaAacFrame frame;
        const int32_t nResult = KovaAacFramesTake(&frames, &frame);
        if (nResult != KOVA_LIVE_OK)
            return nResult;
        if (!frames.bRaw && KovaAdtsConfig(pHeader) != KovaAdtsConfig(pFirst))
            return KOVA_LIVE_ERROR_DATA;
        ++*pCount;
    }
    if (frames.bRaw)
        *pConfig = pMedia->aac.given;
    else if (!ConfigOfAdts(pMedia, pFirst, pConfig))
        return KOVA_LIVE_ERROR_DATA;
    return KOVA_LIVE_OK;
}

/// A frame that is larger than a packet (RFC 3640, 3.2.3.1): each fragment tells the
/// size of the whole; the marker stands on the last one.
void AddFragments(KovaPacketWriter *pWriter, const KovaAacFrame &frame, uint32_t nMaxPayload)
{
    const uint32_t nMost = nMaxPayload - kHeadersLength - kAuHeader;
    for (uint32_t nAt = 0; nAt < frame.nSize;) {
        const uint32_t nLeft = frame.nSize - nAt;
        const uint32_t nSize = nLeft < nMost ? nLeft : nMost;
        uint8_t *pPayload = KovaPacketWriterAdd(pWriter, kHeadersLength + kAuHeader + nSize);
        if (pPayload != nullptr) {
            Write16(pPayload, 8 * kAuHeader);
            WriteAuHeader(pPayload + kHeadersLength, frame);
            memcpy(pPayload + kHeadersLength + kAuHeader, frame.pData + nAt, nSize);
        }
        nAt += nSize;
    }
}

/// A packet of nCount whole frames. Goes on to the frame behind them.
void AddWhole(KovaPacketWriter *pWriter, KovaAacFrames *pFrames, uint32_t nCount, uint32_t nSize)
{
    uint8_t *pPayload = KovaPacketWriterAdd(pWriter, nSize);
    if (pPayload != nullptr)
        Write16(pPayload, 8 * kAuHeader * nCount);
    uint32_t nHeaderAt = kHeadersLength;
    uint32_t nDataAt = kHeadersLength + kAuHeader * nCount;
    for (; nCount > 0; nCount--) {
        KovaAacFrame frame;
        KovaAacFramesTake(pFrames, &frame);
        if (pPayload != nullptr) {
            WriteAuHeader(pPayload + nHeaderAt, frame);
            memcpy(pPayload + nDataAt, frame.pData, frame.nSize);
        }
        nHeaderAt += kAuHeader;
        nDataAt += frame.nSize;
    }
}

/// How many of the next frames fit into one packet, and its payload's size then.
uint32_t CountFitting(KovaAacFrames frames, uint32_t nMaxPayload, uint32_t *pSize)
{
    uint32_t nCount = 0;
    *pSize = kHeadersLength;
    KovaAacFrame frame;
    while (frames.nSize > 0 && nCount < kMaxFramesInPacket) {
        KovaAacFramesTake(&frames, &frame);
        if (*pSize + kAuHeader + frame.nSize > nMaxPayload)
            break;
        *pSize += kAuHeader + frame.nSize;
        nCount++;
    }
    return nCount;
}

void AddPackets(KovaPacketWriter *pWriter, KovaAacFrames frames, uint32_t nMaxPayload,
                uint32_t nTimestamp, uint32_t nFrameTicks)
{
    while (frames.nSize > 0) {
        KovaPacketWriterSetTimestamp(pWriter, nTimestamp);
        uint32_t nSize = 0;
        uint32_t nCount = CountFitting(frames, nMaxPayload, &nSize);
        if (nCount > 0) {
            AddWhole(pWriter, &frames, nCount, nSize);
        } else {
            KovaAacFrame frame;
            KovaAacFramesTake(&frames, &frame);
            AddFragments(pWriter, frame, nMaxPayload);
            nCount = 1;
        }
        KovaPacketWriterMark(pWriter);
        nTimestamp += nCount * nFrameTicks;
    }
}

} // namespace

int32_t KovaAacCut(KovaTrackMedia *pMedia, const uint8_t *pData, size_t nSize, int64_t nPts,
                   KovaUnit **ppUnit)
{
    const KovaAacFrames frames = {pData, nSize, pMedia->bRaw};
    uint32_t nCount = 0;
    KovaAacConfig config;
    const int32_t nResult = Inspect(pMedia, frames, &nCount, &config);
    if (nResult != KOVA_LIVE_OK)
        return nResult;
    const KovaAacConfig &known = OwnView(pMedia);
    if (known.nSize != config.nSize || memcmp(known.bytes, config.bytes, config.nSize) != 0)
        KovaTrackMediaSetAac(pMedia, config);

    KovaPacketWriter writer = {};
    const uint32_t nTimestamp = KovaSoundTimeOf(
        pMedia->soundTime, KovaTrackMediaTimestamp(pMedia, nPts), config.nFrameTicks, config.nRate);
    AddPackets(&writer, frames, pMedia->nMaxPayload, nTimestamp, config.nFrameTicks);
    KovaUnit *pUnit = KovaPacketWriterBegin(&writer, pMedia, nPts, nTimestamp);
    if (pUnit == nullptr)
        return KOVA_LIVE_ERROR_MEMORY;
    AddPackets(&writer, frames, pMedia->nMaxPayload, nTimestamp, config.nFrameTicks);
    pUnit->bEntry = true;
    pUnit->bReference = true;
    pMedia->soundTime = {true, nTimestamp + nCount * config.nFrameTicks};
    *ppUnit = pUnit;
    return KOVA_LIVE_OK;
}
