#include "foundation/divide.h"

uint64_t KovaDivideByWords(uint64_t nValue, uint32_t nDivisor, uint32_t *pRest)
{
    const uint32_t nHigh = static_cast<uint32_t>(nValue >> 32);
    uint32_t nLow = static_cast<uint32_t>(nValue);
    uint32_t nRest = nHigh % nDivisor;
    // Bit by bit the low word goes out into the rest, and its quotient comes in behind it.
    for (int nBit = 0; nBit < 32; nBit++) {
        const bool bCarry = nRest >> 31 != 0;
        nRest = nRest << 1 | nLow >> 31;
        nLow <<= 1;
        if (bCarry || nRest >= nDivisor) {
            nRest -= nDivisor;
            nLow |= 1;
        }
    }
    if (pRest != nullptr)
        *pRest = nRest;
    return uint64_t{nHigh / nDivisor} << 32 | nLow;
}

int64_t KovaDivideDown(int64_t nValue, uint32_t nDivisor, uint32_t *pRest)
{
    // Of a negative value ~nValue, which is -nValue - 1, is taken: nothing overflows.
    const bool bNegative = nValue < 0;
    const int64_t nQuotient = static_cast<int64_t>(
        KovaDivide(static_cast<uint64_t>(bNegative ? ~nValue : nValue), nDivisor, pRest));
    if (!bNegative)
        return nQuotient;
    *pRest = nDivisor - 1 - *pRest;
    return ~nQuotient;
}
