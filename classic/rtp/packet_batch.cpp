#include "classic/rtp/packet_batch.h"

namespace {

void Add(KovaPacketBatch *pBatch, KovaRtpPacket *pPacket)
{
    const uint32_t n = pBatch->nCount++;
    pBatch->packets[n] = pPacket;
    pBatch->datagrams[n] = {pPacket->pData, pPacket->nSize};
    pBatch->frames[n] = {pPacket->pData, pPacket->nSize, 0};
}

} // namespace

bool KovaFitsInterleaved(const KovaRtpPacket *pPacket)
{
    return pPacket->pData != nullptr && pPacket->nSize <= kMostInterleavedSize;
}

void KovaPacketBatchFill(KovaPacketBatch *pBatch, KovaRtpSendGroup *pGroup, KovaRtpPacket *pFirst,
                         bool bAlone)
{
    pBatch->nCount = 0;
    uint32_t nBytes = 0;
    // When the queue was flushed, what is in it now follows on something else.
    const KovaList *pNode = pGroup->pPacketList;
    if (pNode != nullptr && pNode->data != pFirst)
        pNode = nullptr;
    KovaRtpPacket *pPacket = pFirst;
    for (;;) {
        Add(pBatch, pPacket);
        nBytes += pPacket->nSize;
        pNode = pNode != nullptr ? pNode->next : nullptr;
        // One that some of the players cannot have goes by itself.
        if (bAlone || pNode == nullptr || !KovaFitsInterleaved(pPacket))
            return;
        pPacket = static_cast<KovaRtpPacket *>(pNode->data);
        if (pPacket->nPts != pFirst->nPts || nBytes + uint64_t{pPacket->nSize} > kBatchMostBytes ||
            pBatch->nCount == kBatchMostPackets || !KovaFitsInterleaved(pPacket))
            return;
        KovaRtpPacketAddRef(pPacket);
    }
}

void KovaPacketBatchRelease(const KovaPacketBatch *pBatch, KovaRtpSendGroup *pGroup)
{
    for (uint32_t n = 0; n < pBatch->nCount; n++) {
        if (KovaRtpSendGroupUnlinkPacket(pGroup, pBatch->packets[n]))
            KovaRtpPacketReleaseRef(pBatch->packets[n]);
        KovaRtpPacketReleaseRef(pBatch->packets[n]);
    }
}
