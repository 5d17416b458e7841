#include "classic/rtp/aac_packer.h"

#include "foundation/byte_order.h"
#include "foundation/heap.h"
#include "foundation/list_view.h"
#include "rtp/adts.h"
#include "rtp/rtp_header.h"

#include <cstddef>
#include <cstdio>
#include <cstring>

namespace {

constexpr uint32_t kAuHeadersSize = 4;
constexpr uint32_t kAuHeaderBits = 16;
constexpr uint32_t kSampleRateTextLength = 6;
constexpr uint32_t kSamplesPerFrame = 1024;
constexpr int32_t kSmallestFrame = 8;

KovaRtpAacPacker *AsAac(KovaRtpPacker *pPacker)
{
    static_assert(offsetof(KovaRtpAacPacker, head) == 0, "the head comes first");
    return reinterpret_cast<KovaRtpAacPacker *>(pPacker);
}

KovaAacUnit *TakeFirstUnit(KovaRtpAacPacker *pPacker)
{
    return KovaListTakeFirstOf<KovaAacUnit>(pPacker->pAuList, pPacker->pAuListTail);
}

void ReportStreamInfo(const KovaRtpPacker &head, const KovaAdtsHeader &header)
{
    if (head.pfnStreamInfo == nullptr)
        return;
    // The receiver is always given six bytes: the longest rate and its NUL.
    char szRate[16] = {};
    snprintf(szRate, sizeof(szRate), "%u", header.nSampleRate);
    head.pfnStreamInfo(reinterpret_cast<const uint8_t *>(szRate), kSampleRateTextLength,
                       kInfoAacSampleRate, head.nPayloadType, head.pStreamInfoContext);
    uint8_t config[2];
    RtspWriteMB(config, header.nConfig, 16);
    head.pfnStreamInfo(config, sizeof(config), kInfoAacConfig, head.nPayloadType,
                       head.pStreamInfoContext);
}

/// Lists the frame at pFrame as an access unit behind its AU headers section
/// (RFC 3640, section 3.2.1). Without memory the frame is lost.
void AppendUnit(KovaRtpAacPacker *pPacker, const uint8_t *pFrame, uint32_t nFrameLength)
{
    const uint32_t nRaw = nFrameLength - kAdtsHeaderSize;
    const uint32_t nSize = kAuHeadersSize + nRaw;
    void *pMemory = KovaHeapAlloc(sizeof(KovaAacUnit) + nSize);
    if (pMemory == nullptr)
        return;
    uint8_t *pData = static_cast<uint8_t *>(pMemory) + sizeof(KovaAacUnit);
    KovaAacUnit *pUnit = new (pMemory) KovaAacUnit{pData, nSize};
    RtspWriteMB(pData, kAuHeaderBits, 16);
    RtspWriteMB(pData + 2, nRaw << 3, 16);
    memcpy(pData + kAuHeadersSize, pFrame + kAdtsHeaderSize, nRaw);
    if (!KovaListPushTail(pPacker->pAuList, pPacker->pAuListTail, pUnit))
        free(pUnit);
}

/// Lists the buffer's frames. Returns false when bytes are left over in which
/// no frame starts.
bool ParseFrames(KovaRtpAacPacker *pPacker, const uint8_t *pData, uint32_t nLength)
{
    uint32_t nPosition = 0;
    do {
        if (!KovaAdtsFind(pData, nLength, nPosition, &nPosition))
            return false;
        const KovaAdtsHeader header = KovaAdtsParse(pData + nPosition);
        pPacker->nSampleRate = header.nSampleRate;
        ReportStreamInfo(pPacker->head, header);
        if (header.nFrameLength < kSmallestFrame ||
            static_cast<uint32_t>(header.nFrameLength) > nLength - nPosition)
            return true;
        const uint32_t nFrameLength = static_cast<uint32_t>(header.nFrameLength);
        AppendUnit(pPacker, pData + nPosition, nFrameLength);
        nPosition += nFrameLength;
    } while (nPosition < nLength);
    return true;
}

/// Samples since the previous push: milliseconds times the sampling rate, a
/// 32-bit product, over 1000 and rounded (in whole 32-bit numbers: the boards
/// have no floating-point unit and no 64-bit division).
uint32_t TimestampStep(const KovaRtpAacPacker *pPacker, uint32_t nPts)
{
    const uint32_t nLastPts = pPacker->head.nPts;
    if (nPts < nLastPts)
        return kSamplesPerFrame;
    const uint32_t nProduct = (nPts - nLastPts) * pPacker->nSampleRate;
    return nProduct / 1000 + (nProduct % 1000 >= 500 ? 1 : 0);
}

/// Bytes of the fragmented unit that are not sent yet. The offset goes on from
/// where the previous large unit of the same push ended, so it can lie behind
/// the end of this one.
uint32_t FragmentRemaining(const KovaRtpAacPacker *pPacker)
{
    return pPacker->nFragmentOffset < pPacker->nFragmentSize
               ? pPacker->nFragmentSize - pPacker->nFragmentOffset
               : 0;
}

/// A packet that is filled twice, or another one than was prepared, may be too
/// small for the first unit.
bool FitsWhole(const KovaRtpAacPacker *pPacker, const KovaRtpPacket *pPacket)
{
    return pPacket->nSize >= kRtpHeaderSize &&
           pPacket->nSize - kRtpHeaderSize >=
               static_cast<KovaAacUnit *>(pPacker->pAuList->data)->nSize;
}

void FillWhole(KovaRtpAacPacker *pPacker, KovaRtpPacket *pPacket)
{
    KovaAacUnit *pUnit = TakeFirstUnit(pPacker);
    memcpy(pPacket->pData + kRtpHeaderSize, pUnit->pData, pUnit->nSize);
    free(pUnit);
}

/// Copies what the packet takes; what the unit cannot fill stays zero.
void FillFragment(KovaRtpAacPacker *pPacker, KovaRtpPacket *pPacket)
{
    const uint32_t nRemaining = FragmentRemaining(pPacker);
    const uint32_t nCapacity = pPacket->nSize - kRtpHeaderSize;
    const uint32_t nCount = nCapacity < nRemaining ? nCapacity : nRemaining;
    if (nCount != 0)
        memcpy(pPacket->pData + kRtpHeaderSize,
               pPacker->pFragmentUnit->pData + pPacker->nFragmentOffset, nCount);
    pPacker->nFragmentOffset += nCount;
    if (nCount == nRemaining) {
        free(pPacker->pFragmentUnit);
        pPacker->pFragmentUnit = nullptr;
    }
}

} // namespace

KovaRtpPacker *KovaRtpAacPackerCreate(void)
{
    KovaRtpAacPacker *pPacker = KovaHeapNew<KovaRtpAacPacker>();
    return pPacker != nullptr ? &pPacker->head : nullptr;
}

uint32_t KovaRtpAacPackerPushData(KovaRtpPacker *pHead, const uint8_t *pData, uint32_t nLength,
                                  uint32_t nPts)
{
    if (pHead == nullptr)
        return kPackerInvalid;
    KovaRtpAacPacker *pPacker = AsAac(pHead);
    if (pPacker->pAuList != nullptr)
        return kPackerNotDrained;
    pPacker->nFragmentOffset = 0;
    pPacker->nFragmentSize = 0;
    if (pData == nullptr || !ParseFrames(pPacker, pData, nLength)) {
        KovaRtpAacPackerFreeAccessUnitList(pHead);
        return kPackerNoFrame;
    }
    pHead->nTimestamp += TimestampStep(pPacker, nPts);
    pHead->nPts = nPts;
    return kPackerOk;
}

uint32_t KovaRtpAacPackerPrepareRtpPacket(KovaRtpPacker *pHead, KovaRtpPacket *pPacket)
{
    if (pHead == nullptr || pPacket == nullptr)
        return kPackerInvalid;
    KovaRtpAacPacker *pPacker = AsAac(pHead);
    pPacker->bWholeUnit = 0;
    if (pPacker->pFragmentUnit != nullptr) {
        const uint32_t nRemaining = FragmentRemaining(pPacker);
        const bool bLast = nRemaining <= kAacMaxPayload;
        pPacket->nSize = kRtpHeaderSize + (bLast ? nRemaining : kAacMaxPayload);
        pHead->bMarker = bLast ? 1 : 0;
        return kPackerOk;
    }
    if (pPacker->pAuList == nullptr)
        return kPackerNothing;
    const uint32_t nSize = static_cast<KovaAacUnit *>(pPacker->pAuList->data)->nSize;
    if (nSize <= kAacMaxPayload) {
        pPacket->nSize = kRtpHeaderSize + nSize;
        pPacker->bWholeUnit = 1;
        pHead->bMarker = 1;
        return kPackerOk;
    }
    // The offset is left where it is: only a push starts it anew.
    pPacker->pFragmentUnit = TakeFirstUnit(pPacker);
    pPacker->nFragmentSize = nSize;
    pPacket->nSize = kRtpHeaderSize + kAacMaxPayload;
    pHead->bMarker = 0;
    return kPackerOk;
}

uint32_t KovaRtpAacPackerGetRtpPacket(KovaRtpPacker *pHead, KovaRtpPacket *pPacket)
{
    if (pHead == nullptr || pPacket == nullptr || pPacket->pData == nullptr)
        return kPackerInvalid;
    KovaRtpAacPacker *pPacker = AsAac(pHead);
    pPacket->nFrameType = kFrameAudio;
    if (pPacker->bWholeUnit != 0 && pPacker->pAuList != nullptr) {
        if (!FitsWhole(pPacker, pPacket))
            return kPackerNothing;
        FillWhole(pPacker, pPacket);
        return kPackerOk;
    }
    if (pPacker->pFragmentUnit == nullptr || pPacket->nSize < kRtpHeaderSize)
        return kPackerNothing;
    FillFragment(pPacker, pPacket);
    return kPackerOk;
}

void KovaRtpAacPackerFreeAccessUnitList(KovaRtpPacker *pHead)
{
    if (pHead == nullptr)
        return;
    KovaRtpAacPacker *pPacker = AsAac(pHead);
    while (pPacker->pAuList != nullptr)
        free(TakeFirstUnit(pPacker));
}

void KovaRtpAacPackerDiscard(KovaRtpPacker *pHead)
{
    KovaRtpAacPacker *pPacker = AsAac(pHead);
    free(pPacker->pFragmentUnit);
    pPacker->pFragmentUnit = nullptr;
    KovaRtpAacPackerFreeAccessUnitList(pHead);
}

void KovaRtpAacPackerDestroy(KovaRtpPacker *pHead)
{
    if (pHead == nullptr)
        return;
    KovaRtpAacPackerDiscard(pHead);
    free(AsAac(pHead));
}
