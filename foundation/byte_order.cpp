#include "foundation/byte_order.h"

void RtspWriteMB(uint8_t *pBytes, uint32_t nValue, uint16_t nBits)
{
    if (pBytes == nullptr)
        return;
    for (unsigned nIndex = nBits >> 3; nIndex > 0; nIndex--) {
        pBytes[nIndex - 1] = static_cast<uint8_t>(nValue);
        nValue >>= 8;
    }
}

void RtspWriteLB(uint8_t *pBytes, uint32_t nValue, uint16_t nBits)
{
    if (pBytes == nullptr)
        return;
    const unsigned nCount = nBits >> 3;
    for (unsigned nIndex = 0; nIndex < nCount; nIndex++) {
        pBytes[nIndex] = static_cast<uint8_t>(nValue);
        nValue >>= 8;
    }
}

void RtspReadMB(const uint8_t *pBytes, uint32_t *pValue, uint16_t nBits)
{
    if (pValue == nullptr)
        return;
    if (pBytes == nullptr)
        nBits = 0;
    uint32_t nValue = 0;
    const unsigned nCount = nBits >> 3;
    for (unsigned nIndex = 0; nIndex < nCount; nIndex++)
        nValue = nValue << 8 | pBytes[nIndex];
    *pValue = nValue;
}

void RtspReadLB(const uint8_t *pBytes, uint32_t *pValue, uint16_t nBits)
{
    if (pValue == nullptr)
        return;
    if (pBytes == nullptr)
        nBits = 0;
    uint32_t nValue = 0;
    for (unsigned nIndex = nBits >> 3; nIndex > 0; nIndex--)
        nValue = nValue << 8 | pBytes[nIndex - 1];
    *pValue = nValue;
}
