#include "rtp/annexb.h"

#include <cstring>

namespace {

/// Position of the next 00 00 01 at or behind nFrom, or nLength.
uint32_t FindPrefix(const uint8_t *pData, uint32_t nLength, uint32_t nFrom)
{
    // By its last byte: the C library looks for one byte many at a time, and in runs
    // of zeros, which encoders write, there is none.
    while (nFrom < nLength && nLength - nFrom > 2) {
        const void *pFound = memchr(pData + nFrom + 2, 1, nLength - nFrom - 2);
        if (pFound == nullptr)
            break;
        const uint8_t *pOne = static_cast<const uint8_t *>(pFound);
        nFrom = static_cast<uint32_t>(pOne - pData) + 1;
        if (pOne[-1] == 0 && pOne[-2] == 0)
            return nFrom - 3;
    }
    return nLength;
}

} // namespace

bool KovaAnnexBFind(const uint8_t *pData, uint32_t nLength, uint32_t nFrom,
                    KovaStartCode *pStartCode)
{
    const uint32_t nPrefix = FindPrefix(pData, nLength, nFrom);
    if (nPrefix == nLength)
        return false;
    const bool bLong = nPrefix > nFrom && pData[nPrefix - 1] == 0;
    pStartCode->nBegin = bLong ? nPrefix - 1 : nPrefix;
    pStartCode->nEnd = nPrefix + 3;
    return nLength - pStartCode->nBegin > 3;
}
