#include "live/media/bit_reader.h"

namespace {

void FetchByte(KovaBitReader *pReader)
{
    if (pReader->bEscaped && pReader->nZeros >= 2 && pReader->nAt < pReader->nSize &&
        pReader->pData[pReader->nAt] == 3) {
        pReader->nAt++;
        pReader->nZeros = 0;
    }
    pReader->nLeft = 8;
    if (pReader->nAt >= pReader->nSize) {
        pReader->nByte = 0;
        pReader->bOver = true;
        return;
    }
    pReader->nByte = pReader->pData[pReader->nAt++];
    pReader->nZeros = pReader->nByte == 0 ? pReader->nZeros + 1 : 0;
}

} // namespace

KovaBitReader KovaBitReaderOf(const uint8_t *pData, size_t nSize)
{
    return {pData, nSize, 0, 0, 0, 0, false, false};
}

KovaBitReader KovaBitReaderOfNal(const uint8_t *pData, size_t nSize)
{
    return {pData, nSize, 0, 0, 0, 0, true, false};
}

uint32_t KovaBitReaderRead(KovaBitReader *pReader, uint32_t nBits)
{
    uint32_t nValue = 0;
    for (; nBits > 0; nBits--) {
        if (pReader->nLeft == 0)
            FetchByte(pReader);
        pReader->nLeft--;
        nValue = nValue << 1 | (pReader->nByte >> pReader->nLeft & 1);
    }
    return nValue;
}

uint32_t KovaBitReaderReadGolomb(KovaBitReader *pReader)
{
    uint32_t nZeros = 0;
    while (nZeros < 32 && !pReader->bOver && KovaBitReaderRead(pReader, 1) == 0)
        nZeros++;
    if (nZeros == 32)
        return UINT32_MAX;
    return (1U << nZeros) - 1 + KovaBitReaderRead(pReader, nZeros);
}
