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
    return static_cast<KovaAacUnit *>(
        KovaUnitStoreTakeFirst(&pPacker->pAuList, &pPacker->pAuListTail));
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

/// Adds the frame at pFrame, whose bytes stay there. Without memory it is lost.
void AppendUnit(KovaRtpAacPacker *pPacker, uint8_t *pFrame, uint32_t nFrameLength)
{
    constexpr uint32_t kBefore = kAdtsHeaderSize - kAuHeadersSize;
    if (void *pRecord = KovaUnitStoreAdd(&pPacker->store))
        new (pRecord) KovaAacUnit{pFrame + kBefore, nFrameLength - kBefore};
}

/// Adds the buffer's frames, if its bytes are kept. Returns false when bytes are left
/// over in which no frame starts.
bool ParseFrames(KovaRtpAacPacker *pPacker, uint8_t *pData, uint32_t nLength, bool bKept)
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
        if (bKept)
            AppendUnit(pPacker, pData + nPosition, nFrameLength);
        nPosition += nFrameLength;
    } while (nPosition < nLength);
    return true;
}

/// Lists what was added, each unit behind its AU headers section (RFC 3640, section
/// 3.2.1). That goes over the ADTS header, so not before the push has succeeded: whoever
/// logs bytes that were refused finds them as they came.
void ListUnits(KovaRtpAacPacker *pPacker)
{
    KovaUnitStoreLink(&pPacker->store, &pPacker->pAuList, &pPacker->pAuListTail);
    for (const KovaAacUnit *pUnit : KovaListOf<KovaAacUnit>(pPacker->pAuList)) {
        RtspWriteMB(pUnit->pData, kAuHeaderBits, 16);
        RtspWriteMB(pUnit->pData + 2, (pUnit->nSize - kAuHeadersSize) << 3, 16);
    }
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
    const KovaAacUnit *pUnit = TakeFirstUnit(pPacker);
    memcpy(pPacket->pData + kRtpHeaderSize, pUnit->pData, pUnit->nSize);
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
    if (nCount == nRemaining)
        pPacker->pFragmentUnit = nullptr;
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
    return pHead != nullptr ? KovaRtpAacPackerTake(pHead, pData, nullptr, nLength, nPts)
                            : kPackerInvalid;
}

uint32_t KovaRtpAacPackerTake(KovaRtpPacker *pHead, const uint8_t *pData, uint8_t *pLent,
                              uint32_t nLength, uint32_t nPts)
{
    KovaRtpAacPacker *pPacker = AsAac(pHead);
    if (pPacker->pAuList != nullptr)
        return kPackerNotDrained;
    pPacker->nFragmentOffset = 0;
    pPacker->nFragmentSize = 0;
    if (pData == nullptr)
        nLength = 0;
    KovaAacUnit *pFragment = &pPacker->fragment;
    if (pLent == nullptr)
        pLent = KovaUnitStoreCopy(&pPacker->store, pData, nLength, &pFragment->pData,
                                  pPacker->pFragmentUnit != nullptr ? pFragment->nSize : 0);
    // Without memory what is in it is found all the same, and reported.
    uint8_t *pBytes = pLent != nullptr ? pLent : const_cast<uint8_t *>(pData);
    if (!ParseFrames(pPacker, pBytes, nLength, pLent != nullptr)) {
        pPacker->store.nUsed = 0;
        return kPackerNoFrame;
    }
    ListUnits(pPacker);
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
    pPacker->fragment = *TakeFirstUnit(pPacker);
    pPacker->pFragmentUnit = &pPacker->fragment;
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
    pPacker->pAuList = nullptr;
    pPacker->pAuListTail = nullptr;
}

void KovaRtpAacPackerDiscard(KovaRtpPacker *pHead)
{
    AsAac(pHead)->pFragmentUnit = nullptr;
    KovaRtpAacPackerFreeAccessUnitList(pHead);
}

void KovaRtpAacPackerDestroy(KovaRtpPacker *pHead)
{
    if (pHead == nullptr)
        return;
    KovaUnitStoreFree(&AsAac(pHead)->store);
    free(AsAac(pHead));
}
