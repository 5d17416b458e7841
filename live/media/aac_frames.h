#pragma once

#include <cstddef>
#include <cstdint>

/// A frame (access unit) of AAC, without ADTS header, somewhere else.
struct KovaAacFrame {
    const uint8_t *pData;
    uint32_t nSize;
};

/// Goes over the frames of a push.
struct KovaAacFrames {
    const uint8_t *pData; ///< what is left
    size_t nSize;
    bool bRaw;
};

/// The largest frame that an AU header can tell (RFC 3640, sizeLength 13).
constexpr uint32_t kMaxAacFrame = 8191;

/// Takes the next frame; nothing may be left afterwards, but not before.
/// @return KOVA_LIVE_OK; ERROR_DATA when no whole ADTS frame of one raw data block
///         begins there, ERROR_TOO_LARGE for a raw frame above kMaxAacFrame
int32_t KovaAacFramesTake(KovaAacFrames *pFrames, KovaAacFrame *pFrame);

/// What an ADTS header (ISO/IEC 14496-3, 1.A.2; 7 bytes) says, in the form of an
/// AudioSpecificConfig of two bytes: object type, index of the rate, channels.
uint16_t KovaAdtsConfig(const uint8_t *pHeader);
