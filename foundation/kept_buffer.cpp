#include "foundation/kept_buffer.h"

#include "foundation/heap.h"

#include <cstring>

namespace {

/// A quarter and a little more, so that what grows slowly does not move each time.
constexpr size_t kLittle = 512;

} // namespace

bool KovaKeptBufferReserve(KovaKeptBuffer *pBuffer, size_t nSize, size_t nKeep)
{
    const bool bKept = nKeep != 0 || pBuffer->nRoom <= kMostKept || nSize > kMostKept;
    if (nSize < pBuffer->nRoom && bKept)
        return true;
    if (nKeep == 0)
        KovaKeptBufferFree(pBuffer);
    size_t nRoom = nSize + nSize / 4 + kLittle;
    uint8_t *pBytes = nRoom > nSize ? static_cast<uint8_t *>(KovaHeapAlloc(nRoom)) : nullptr;
    if (pBytes == nullptr) {
        // What is only there to grow into must not cost what is to be held.
        nRoom = nSize + 1;
        pBytes = nRoom > nSize ? static_cast<uint8_t *>(KovaHeapAlloc(nRoom)) : nullptr;
    }
    if (pBytes == nullptr)
        return false;
    if (nKeep != 0)
        memcpy(pBytes, pBuffer->pBytes, nKeep);
    KovaKeptBufferFree(pBuffer);
    *pBuffer = {pBytes, nRoom};
    return true;
}

void KovaKeptBufferFree(KovaKeptBuffer *pBuffer)
{
    free(pBuffer->pBytes);
    *pBuffer = {};
}
