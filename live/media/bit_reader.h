#pragma once

#include <cstddef>
#include <cstdint>

/// Reads bits, most significant first. What is asked for beyond the end is 0, and
/// bOver tells so.
struct KovaBitReader {
    const uint8_t *pData;
    size_t nSize;
    size_t nAt;      ///< the next byte that is fetched
    uint32_t nByte;  ///< the byte that is being read
    uint32_t nLeft;  ///< its unread bits
    uint32_t nZeros; ///< zero bytes in front of nAt, if bEscaped
    bool bEscaped;   ///< the 3 of 00 00 03 is no data (ITU-T H.264, 7.3.1)
    bool bOver;
};

/// A reader of plain bytes, and one of the payload of a NAL unit.
KovaBitReader KovaBitReaderOf(const uint8_t *pData, size_t nSize);
KovaBitReader KovaBitReaderOfNal(const uint8_t *pData, size_t nSize);

/// @param nBits  0 to 32
uint32_t KovaBitReaderRead(KovaBitReader *pReader, uint32_t nBits);

/// An unsigned number in Exp-Golomb code (ITU-T H.264, 9.1); UINT32_MAX for one of
/// more than 32 bits, which no field has.
uint32_t KovaBitReaderReadGolomb(KovaBitReader *pReader);
