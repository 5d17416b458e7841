#include "classic/rtp/rtp_packet.h"

#include "foundation/heap.h"
#include "foundation/mutex.h"

KovaRtpPacket *KovaRtpPacketAlloc()
{
    KovaRtpPacket *pPacket = KovaHeapNew<KovaRtpPacket>();
    if (pPacket != nullptr)
        KovaMutexInit(&pPacket->mutex);
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
    free(pPacket->pData);
    free(pPacket);
}
