#include "classic/rtp/packet_batch.h"

#include <cstring>

namespace {

/// Players who are served before the frames are laid out: fewer are not worth the copy.
constexpr uint32_t kPlayersThatShare = 2;

void Add(KovaPacketBatch *pBatch, KovaRtpPacket *pPacket)
{
    const uint32_t n = pBatch->nCount++;
    pBatch->packets[n] = pPacket;
    pBatch->datagrams[n] = {pPacket->pData, pPacket->nSize};
    pBatch->frames[n] = {pPacket->pData, pPacket->nSize, 0, false};
}

/// Lays the frames one behind the other; without memory they stay where they are.
void LayOut(KovaPacketBatch *pBatch)
{
    size_t nBytes = 0;
    for (uint32_t n = 0; n < pBatch->nCount; n++)
        nBytes += kInterleavedHeaderSize + pBatch->frames[n].nSize;
    if (!KovaKeptBufferReserve(&pBatch->framed, nBytes, 0))
        return;
    uint8_t *pFrame = pBatch->framed.pBytes;
    for (uint32_t n = 0; n < pBatch->nCount; n++) {
        KovaInterleavedFrame *pNext = &pBatch->frames[n];
        KovaInterleavedHeaderWrite(pFrame, pNext->nChannel, pNext->nSize);
        memcpy(pFrame + kInterleavedHeaderSize, pNext->pPacket, pNext->nSize);
        pNext->pPacket = pFrame + kInterleavedHeaderSize;
        pNext->bHeaderInFront = true;
        pFrame += kInterleavedHeaderSize + pNext->nSize;
    }
    pBatch->bFramed = true;
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
    pBatch->nAsked = 0;
    pBatch->bFramed = false;
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

const KovaInterleavedFrame *KovaPacketBatchFrames(KovaPacketBatch *pBatch, uint8_t nChannel)
{
    // A packet that no connection can take stands alone.
    if (pBatch->nAsked++ == kPlayersThatShare && KovaFitsInterleaved(pBatch->packets[0]))
        LayOut(pBatch);
    for (uint32_t n = 0; n < pBatch->nCount; n++) {
        KovaInterleavedFrame *pFrame = &pBatch->frames[n];
        pFrame->nChannel = nChannel;
        if (pBatch->bFramed)
            pBatch->framed
                .pBytes[pFrame->pPacket - pBatch->framed.pBytes - kInterleavedHeaderSize + 1] =
                nChannel;
    }
    return pBatch->frames;
}

void KovaPacketBatchRelease(const KovaPacketBatch *pBatch, KovaRtpSendGroup *pGroup)
{
    for (uint32_t n = 0; n < pBatch->nCount; n++) {
        if (KovaRtpSendGroupUnlinkPacket(pGroup, pBatch->packets[n]))
            KovaRtpPacketReleaseRef(pBatch->packets[n]);
        KovaRtpPacketReleaseRef(pBatch->packets[n]);
    }
}
