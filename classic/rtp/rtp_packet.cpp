#include "classic/rtp/rtp_packet.h"

#include "foundation/heap.h"
#include "foundation/mutex.h"

namespace {

/// Where the data of a packet stands that was made with it. Another block never
/// begins there: the heap's own words lie between two blocks.
uint8_t *OwnData(KovaRtpPacket *pPacket)
{
    return reinterpret_cast<uint8_t *>(pPacket + 1);
}

} // namespace

KovaRtpPacket *KovaRtpPacketAlloc(uint32_t nSize)
{
    void *pMemory = KovaHeapAlloc(sizeof(KovaRtpPacket) + nSize);
    if (pMemory == nullptr)
        return nullptr;
    KovaRtpPacket *pPacket = new (pMemory) KovaRtpPacket();
    KovaMutexInit(&pPacket->mutex);
    pPacket->pData = nSize != 0 ? OwnData(pPacket) : nullptr;
    pPacket->nSize = nSize;
    return pPacket;
}

void KovaRtpPacketAddRef(KovaRtpPacket *pPacket)
{
    if (pPacket == nullptr)
        return;
    const KovaMutexLock lock(&pPacket->mutex, kRankLeaf);
    pPacket->nRefCount++;
}

void KovaRtpPacketReleaseRef(KovaRtpPacket *pPacket)
{
    if (pPacket == nullptr)
        return;
    KovaMutexLock lock(&pPacket->mutex, kRankLeaf);
    const int32_t nLeft = --pPacket->nRefCount;
    lock.Unlock();
    if (nLeft == 0)
        KovaRtpFreePacket(pPacket);
}

void KovaRtpFreePacket(KovaRtpPacket *pPacket)
{
    if (pPacket == nullptr)
        return;
    KovaMutexDestroy(&pPacket->mutex);
    if (pPacket->pData != OwnData(pPacket))
        free(pPacket->pData);
    free(pPacket);
}
