#pragma once

#include <cstdint>

/// Bytes of an ADTS header without CRC (ISO/IEC 14496-3, 1.A.2).
constexpr uint32_t kAdtsHeaderSize = 7;

/// What an ADTS header says, as far as it is used.
struct KovaAdtsHeader {
    uint32_t nSampleRate; ///< Hz; 0 for a reserved index
    uint16_t nConfig;     ///< AudioSpecificConfig: object type AAC LC, index, channels
    int32_t nFrameLength; ///< bytes, header included; may be negative, see the parser
};

/// Finds the next sync word at or behind nFrom that has more than a header's
/// length before the end. Returns whether there is one.
bool KovaAdtsFind(const uint8_t *pData, uint32_t nLength, uint32_t nFrom, uint32_t *pPosition);

/// Reads the header at pHeader (kAdtsHeaderSize bytes).
KovaAdtsHeader KovaAdtsParse(const uint8_t *pHeader);
