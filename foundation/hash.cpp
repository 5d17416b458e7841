#include "foundation/hash.h"

#include "foundation/byte_order.h"
#include "foundation/wipe.h"

#include <cstring>

namespace {

/// A number in the algorithm's order of bytes; its high half, if nBits is 64, is zero.
void WriteNumber(const KovaHashAlgorithm &algorithm, uint8_t *pBytes, uint32_t nNumber,
                 uint16_t nBits)
{
    if (algorithm.bBigEndian)
        RtspWriteMB(pBytes, nNumber, nBits);
    else
        RtspWriteLB(pBytes, nNumber, nBits);
}

} // namespace

void KovaHashBegin(KovaHash *pHash, const KovaHashAlgorithm &algorithm)
{
    pHash->pAlgorithm = &algorithm;
    pHash->nBytes = 0;
    memcpy(pHash->state, algorithm.begin, sizeof(pHash->state));
}

void KovaHashAdd(KovaHash *pHash, const void *pBytes, size_t nSize)
{
    const auto *pIn = static_cast<const uint8_t *>(pBytes);
    while (nSize != 0) {
        const size_t nFilled = pHash->nBytes % kHashBlockSize;
        const size_t nRoom = kHashBlockSize - nFilled;
        const size_t nPart = nSize < nRoom ? nSize : nRoom;
        memcpy(pHash->block + nFilled, pIn, nPart);
        pHash->nBytes += static_cast<uint32_t>(nPart);
        pIn += nPart;
        nSize -= nPart;
        if (nPart == nRoom)
            pHash->pAlgorithm->pfnBlock(pHash->state, pHash->block);
    }
}

void KovaHashAdd(KovaHash *pHash, std::string_view text)
{
    KovaHashAdd(pHash, text.data(), text.size());
}

void KovaHashEnd(KovaHash *pHash, uint8_t *pResult)
{
    const KovaHashAlgorithm &algorithm = *pHash->pAlgorithm;
    uint8_t length[8];
    WriteNumber(algorithm, length, pHash->nBytes * 8, 64);
    // A one bit, and zeros up to the last eight bytes of a block, which hold the length.
    uint8_t nPad = 0x80;
    do {
        KovaHashAdd(pHash, &nPad, 1);
        nPad = 0;
    } while (pHash->nBytes % kHashBlockSize != kHashBlockSize - sizeof(length));
    KovaHashAdd(pHash, length, sizeof(length));
    for (size_t nIndex = 0; nIndex < algorithm.nSize; nIndex += 4)
        WriteNumber(algorithm, pResult + nIndex, pHash->state[nIndex / 4], 32);
    KovaWipe(pHash, sizeof(*pHash));
}
