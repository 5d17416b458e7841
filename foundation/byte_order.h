#pragma once

#include "foundation/export.h"

#include <cstdint>

/// Integers of a given width in bits, in byte buffers of any alignment. A width
/// that is no multiple of 8 is cut down to whole bytes.

/// Writes nBits/8 bytes, most significant byte first; bytes beyond the value's
/// 32 bits are 0.
KOVA_API void RtspWriteMB(uint8_t *pBytes, uint32_t nValue, uint16_t nBits);

/// Writes nBits/8 bytes, least significant byte first.
KOVA_API void RtspWriteLB(uint8_t *pBytes, uint32_t nValue, uint16_t nBits);

/// Reads nBits/8 bytes, most significant byte first, into *pValue; of more than
/// four bytes the low 32 bits are kept.
KOVA_API void RtspReadMB(const uint8_t *pBytes, uint32_t *pValue, uint16_t nBits);

/// Reads nBits/8 bytes, least significant byte first, into *pValue.
KOVA_API void RtspReadLB(const uint8_t *pBytes, uint32_t *pValue, uint16_t nBits);
