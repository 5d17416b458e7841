#include "foundation/hash.h"

#include "foundation/byte_order.h"
#include "foundation/wipe.h"

#include <cstring>

namespace {

void WriteWord(const KovaHashAlgorithm &algorithm, uint8_t *pBytes, uint32_t nWord)
{
    if (algorithm.bBigEndian)
        RtspWriteMB(pBytes, nWord, 32);
    else
        RtspWriteLB(pBytes, nWord, 32);
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
        const size_t nFilled = static_cast<size_t>(pHash->nBytes % kHashBlockSize);
        const size_t nRoom = kHashBlockSize - nFilled;
        const size_t nPart = nSize < nRoom ? nSize : nRoom;
        memcpy(pHash->block + nFilled, pIn, nPart);
        pHash->nBytes += nPart;
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
    const uint64_t nBits = pHash->nBytes * 8;
    // A one bit, and zeros up to the last eight bytes of a block, which hold the length.
    static constexpr uint8_t padding[kHashBlockSize] = {0x80};
    KovaHashAdd(pHash, padding, static_cast<size_t>((119 - pHash->nBytes % 64) % 64 + 1));
    const auto nHigh = static_cast<uint32_t>(nBits >> 32);
    const auto nLow = static_cast<uint32_t>(nBits);
    uint8_t length[8];
    WriteWord(algorithm, length, algorithm.bBigEndian ? nHigh : nLow);
    WriteWord(algorithm, length + 4, algorithm.bBigEndian ? nLow : nHigh);
    KovaHashAdd(pHash, length, sizeof(length));
    for (size_t nIndex = 0; nIndex < algorithm.nSize; nIndex += 4)
        WriteWord(algorithm, pResult + nIndex, pHash->state[nIndex / 4]);
    KovaWipe(pHash, sizeof(*pHash));
}
