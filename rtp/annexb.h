#pragma once

#include <cstdint>

/// A start code in an H.264 byte stream (ITU-T H.264, annex B).
struct KovaStartCode {
    uint32_t nBegin; ///< its first byte
    uint32_t nEnd;   ///< the byte behind it: 3 or 4 bytes further
};

/// Finds the first start code, 00 00 01 or 00 00 00 01, at or behind nFrom. One
/// that begins 3 bytes or less before the end is not a start code any more.
/// @return whether there is one.
bool KovaAnnexBFind(const uint8_t *pData, uint32_t nLength, uint32_t nFrom,
                    KovaStartCode *pStartCode);
