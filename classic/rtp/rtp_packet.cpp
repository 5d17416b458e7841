#include "classic/rtp/rtp_packet.h"

#include "foundation/heap.h"
#include "foundation/scope_guard.h"

KovaRtpPacket *KovaRtpPacketAlloc()
{
    KovaRtpPacket *pPacket = KovaHeapNew<KovaRtpPacket>();
    if (pPacket != nullptr)
        pthread_mutex_init(&pPacket->mutex, nullptr);
    return pPacket;
}

void KovaRtpPacketAddRef(KovaRtpPacket *pPacket)
{
    if (pPacket == nullptr)
        return;
    const KovaMutexLock lock(&pPacket->mutex);
    pPacket->nRefCount++;
}

void KovaRtpPacketReleaseRef(KovaRtpPacket *pPacket)
{
    if (pPacket == nullptr)
        return;
    KovaMutexLock lock(&pPacket->mutex);
    const int32_t nLeft = --pPacket->nRefCount;
    lock.Unlock();
    if (nLeft == 0)
        KovaRtpFreePacket(pPacket);
}

void KovaRtpFreePacket(KovaRtpPacket *pPacket)
{
    if (pPacket == nullptr)
        return;
    pthread_mutex_destroy(&pPacket->mutex);
    free(pPacket->pData);
    free(pPacket);
}
