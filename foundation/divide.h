#pragma once

#include <cstdint>

/// Division of 64-bit numbers by 32-bit ones. For '/' and '%' a processor of 32 bits needs four
/// routines of the compiler's, of more than 1 KiB each.

/// What KovaDivide() does on a processor of 32 bits.
uint64_t KovaDivideByWords(uint64_t nValue, uint32_t nDivisor, uint32_t *pRest);

/// nValue / nDivisor.
/// @param nDivisor  not 0
/// @param pRest     receives nValue % nDivisor; may be null
inline uint64_t KovaDivide(uint64_t nValue, uint32_t nDivisor, uint32_t *pRest = nullptr)
{
    if (sizeof(void *) == sizeof(uint32_t))
        return KovaDivideByWords(nValue, nDivisor, pRest);
    if (pRest != nullptr)
        *pRest = static_cast<uint32_t>(nValue % nDivisor);
    return nValue / nDivisor;
}

/// nValue / nDivisor rounded down, for negative values too.
/// @param nDivisor  not 0
/// @param pRest     receives what is left, from 0 up to the divisor
int64_t KovaDivideDown(int64_t nValue, uint32_t nDivisor, uint32_t *pRest);
