#include "foundation/ring_buffer.h"

#include <cstring>

namespace {

int32_t LoadPosition(const std::atomic<int32_t> &nPosition)
{
    return nPosition.load(std::memory_order_acquire);
}

/// Whether a transfer stays within the block: a larger one would run past it.
bool Fits(const KovaRingbuffer *pRing, const void *pBytes, int32_t nCount)
{
    return pRing != nullptr && pRing->pBuffer != nullptr && pBytes != nullptr && nCount > 0 &&
           nCount <= pRing->nSize;
}

/// Bytes of a transfer at nPosition that lie before the end of the block.
int32_t FirstPiece(const KovaRingbuffer *pRing, int32_t nPosition, int32_t nCount)
{
    const int32_t nToEnd = pRing->nSize - nPosition;
    return nCount > nToEnd ? nToEnd : nCount;
}

void Advance(const KovaRingbuffer *pRing, std::atomic<int32_t> *pPosition, int32_t nFrom,
             int32_t nCount)
{
    // Neither is negative, so the sum fits the unsigned word that a 32-bit processor divides.
    const uint32_t nNext = (static_cast<uint32_t>(nFrom) + static_cast<uint32_t>(nCount)) %
                           static_cast<uint32_t>(pRing->nSize);
    pPosition->store(static_cast<int32_t>(nNext), std::memory_order_release);
}

} // namespace

void KovaRingbufferInit(KovaRingbuffer *pRing, uint8_t *pBlock, int32_t nSize)
{
    if (pRing == nullptr)
        return;
    pRing->pBuffer = pBlock;
    pRing->nSize = nSize;
    KovaRingbufferReset(pRing);
}

int32_t KovaRingbufferRmpty(KovaRingbuffer *pRing)
{
    const bool bEmpty =
        pRing == nullptr || LoadPosition(pRing->nReadPos) == LoadPosition(pRing->nWritePos);
    return bEmpty ? 1 : 0;
}

int32_t KovaRingbufferFree(KovaRingbuffer *pRing)
{
    if (pRing == nullptr)
        return 0;
    const int32_t nDistance = LoadPosition(pRing->nReadPos) - LoadPosition(pRing->nWritePos);
    return nDistance > 0 ? nDistance - 1 : nDistance + pRing->nSize - 1;
}

int32_t KovaRingbufferAvail(KovaRingbuffer *pRing)
{
    if (pRing == nullptr)
        return 0;
    const int32_t nDistance = LoadPosition(pRing->nWritePos) - LoadPosition(pRing->nReadPos);
    return nDistance < 0 ? nDistance + pRing->nSize : nDistance;
}

KovaRingbuffer *KovaRingbufferFlush(KovaRingbuffer *pRing)
{
    if (pRing != nullptr)
        pRing->nReadPos.store(LoadPosition(pRing->nWritePos), std::memory_order_release);
    return pRing;
}

KovaRingbuffer *KovaRingbufferReset(KovaRingbuffer *pRing)
{
    if (pRing != nullptr) {
        pRing->nReadPos.store(0, std::memory_order_release);
        pRing->nWritePos.store(0, std::memory_order_release);
    }
    return pRing;
}

int32_t KovaRingbufferRead(KovaRingbuffer *pRing, uint8_t *pBytes, int32_t nCount)
{
    if (!Fits(pRing, pBytes, nCount))
        return 0;
    const int32_t nPosition = LoadPosition(pRing->nReadPos);
    const int32_t nFirst = FirstPiece(pRing, nPosition, nCount);
    memcpy(pBytes, pRing->pBuffer + nPosition, static_cast<size_t>(nFirst));
    memcpy(pBytes + nFirst, pRing->pBuffer, static_cast<size_t>(nCount - nFirst));
    Advance(pRing, &pRing->nReadPos, nPosition, nCount);
    return nCount;
}

int32_t KovaRingbufferWrite(KovaRingbuffer *pRing, const uint8_t *pBytes, int32_t nCount)
{
    if (!Fits(pRing, pBytes, nCount))
        return 0;
    const int32_t nPosition = LoadPosition(pRing->nWritePos);
    const int32_t nFirst = FirstPiece(pRing, nPosition, nCount);
    memcpy(pRing->pBuffer + nPosition, pBytes, static_cast<size_t>(nFirst));
    memcpy(pRing->pBuffer, pBytes + nFirst, static_cast<size_t>(nCount - nFirst));
    Advance(pRing, &pRing->nWritePos, nPosition, nCount);
    return nCount;
}
