#include "rtp/annexb.h"

namespace {

/// Position of the next 00 00 01 at or behind nFrom, or nLength.
uint32_t FindPrefix(const uint8_t *pData, uint32_t nLength, uint32_t nFrom)
{
    // Looks at the third byte of a candidate first: unless it is 0, three
    // positions are decided at once.
    uint64_t nThird = static_cast<uint64_t>(nFrom) + 2;
    while (nThird < nLength) {
        if (pData[nThird] == 0)
            nThird += 1;
        else if (pData[nThird] == 1 && pData[nThird - 1] == 0 && pData[nThird - 2] == 0)
            return static_cast<uint32_t>(nThird - 2);
        else
            nThird += 3;
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
    return static_cast<uint64_t>(pStartCode->nBegin) + 3 < nLength;
}
