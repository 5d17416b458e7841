#include "classic/rtp/h264_packer.h"

#include "foundation/byte_order.h"
#include "foundation/heap.h"
#include "foundation/list_view.h"
#include "rtp/annexb.h"
#include "rtp/rtp_header.h"

#include <cstddef>
#include <cstring>

namespace {

/// NAL unit types (ITU-T H.264, table 7-1; RFC 6184, table 1).
enum NalType : uint8_t {
    kNalIdr = 5,
    kNalSei = 6,
    kNalSps = 7,
    kNalPps = 8,
    kNalDelimiter = 9,
    kNalStapA = 24,
    kNalFuA = 28,
};

constexpr uint8_t kTypeMask = 0x1F;
constexpr uint8_t kReferenceMask = 0xE0; // forbidden bit and nal_ref_idc
constexpr uint8_t kFuStart = 0x80;
constexpr uint8_t kFuEnd = 0x40;
constexpr uint32_t kStapSizeField = 2;
constexpr uint32_t kFuHeaders = 2;
constexpr uint32_t kFuCapacity = kH264MaxPayload - kFuHeaders;
constexpr uint32_t kVideoClockPerMillisecond = 90;

KovaRtpH264Packer *AsH264(KovaRtpPacker *pPacker)
{
    static_assert(offsetof(KovaRtpH264Packer, head) == 0, "the head comes first");
    return reinterpret_cast<KovaRtpH264Packer *>(pPacker);
}

uint8_t TypeOf(uint8_t nHeader)
{
    return nHeader & kTypeMask;
}

KovaNalUnit *FirstNal(const KovaRtpH264Packer *pPacker)
{
    return static_cast<KovaNalUnit *>(pPacker->pNalList->data);
}

KovaNalUnit *TakeFirstNal(KovaRtpH264Packer *pPacker)
{
    return static_cast<KovaNalUnit *>(
        KovaUnitStoreTakeFirst(&pPacker->pNalList, &pPacker->pNalListTail));
}

/// Lists a unit whose bytes stay where they are. Without memory it is lost: the
/// decoder conceals one slice, the stream goes on.
void AppendNal(KovaRtpH264Packer *pPacker, uint8_t *pData, uint32_t nSize)
{
    if (void *pRecord = KovaUnitStoreAdd(&pPacker->store))
        new (pRecord) KovaNalUnit{pData[0], pData, nSize};
}

/// A unit that another start code ended: parameter sets are reported, the rest is kept
/// if its bytes are.
void CloseNal(KovaRtpH264Packer *pPacker, uint8_t *pData, uint32_t nSize, bool bKept)
{
    const uint8_t nType = TypeOf(pData[0]);
    if (nType != kNalSps && nType != kNalPps) {
        if (bKept)
            AppendNal(pPacker, pData, nSize);
        return;
    }
    const KovaRtpPacker &head = pPacker->head;
    if (head.pfnStreamInfo != nullptr)
        head.pfnStreamInfo(pData, nSize, nType == kNalSps ? kInfoSps : kInfoPps, head.nPayloadType,
                           head.pStreamInfoContext);
}

bool IsDropped(uint8_t nHeader)
{
    const uint8_t nType = TypeOf(nHeader);
    return nType == kNalSei || nType == kNalDelimiter;
}

/// Lists the units of an access unit, if its bytes are kept. Returns whether it holds a
/// start code.
bool Cut(KovaRtpH264Packer *pPacker, uint8_t *pData, uint32_t nLength, bool bKept)
{
    bool bFound = false;
    bool bOpen = false;
    uint32_t nStart = 0;
    KovaStartCode code = {};
    for (uint32_t nFrom = 0; KovaAnnexBFind(pData, nLength, nFrom, &code); nFrom = code.nEnd) {
        bFound = true;
        if (bOpen && code.nBegin != nStart)
            CloseNal(pPacker, pData + nStart, code.nBegin - nStart, bKept);
        nStart = code.nEnd;
        bOpen = nStart < nLength && !IsDropped(pData[nStart]);
    }
    if (bOpen && bKept)
        AppendNal(pPacker, pData + nStart, nLength - nStart);
    KovaUnitStoreLink(&pPacker->store, &pPacker->pNalList, &pPacker->pNalListTail);
    return bFound;
}

/// Counts the units that fit into one packet and their bytes with size fields.
void MeasureAggregate(KovaRtpH264Packer *pPacker)
{
    uint32_t nBudget = kH264MaxPayload;
    for (const KovaNalUnit *pNal : KovaListOf<KovaNalUnit>(pPacker->pNalList)) {
        const uint32_t nSize = pNal->nSize;
        if (static_cast<uint64_t>(nSize) + kStapSizeField > nBudget)
            return;
        pPacker->nPayloadBytes += nSize + kStapSizeField;
        nBudget -= nSize + kStapSizeField;
        pPacker->nNalCount++;
    }
}

uint32_t PrepareFragment(KovaRtpH264Packer *pPacker, KovaRtpPacket *pPacket)
{
    const uint32_t nRemaining = pPacker->nPayloadBytes - pPacker->nFragmentOffset;
    const bool bLast = nRemaining <= kFuCapacity;
    pPacket->nSize = kRtpHeaderSize + kFuHeaders + (bLast ? nRemaining : kFuCapacity);
    pPacker->head.bMarker = bLast ? 1 : 0;
    return kPackerOk;
}

uint32_t StartFragmenting(KovaRtpH264Packer *pPacker, KovaRtpPacket *pPacket)
{
    // A record of its own: the next push may come before its last fragment.
    pPacker->fragment = *TakeFirstNal(pPacker);
    pPacker->pFragmentNal = &pPacker->fragment;
    pPacker->nPayloadBytes = pPacker->pFragmentNal->nSize;
    pPacker->nFragmentOffset = 1;
    // Frozen: a first fragment has a marker if the whole header byte is 7.
    pPacker->head.bMarker = pPacker->pFragmentNal->nHeader == kNalSps ? 1 : 0;
    pPacket->nSize = kRtpHeaderSize + kH264MaxPayload;
    return kPackerOk;
}

void FillFragment(KovaRtpH264Packer *pPacker, KovaRtpPacket *pPacket)
{
    const KovaNalUnit *pNal = pPacker->pFragmentNal;
    uint8_t *pPayload = pPacket->pData + kRtpHeaderSize;
    pPayload[0] = static_cast<uint8_t>((pNal->nHeader & kReferenceMask) | kNalFuA);
    pPayload[1] = TypeOf(pNal->nHeader);
    if (pPacker->nFragmentOffset == 1) {
        pPayload[1] |= kFuStart;
        if (TypeOf(pNal->nHeader) == kNalIdr)
            pPacket->nFrameType = kFrameKey;
    }
    const uint32_t nCapacity = pPacket->nSize - kRtpHeaderSize - kFuHeaders;
    const uint32_t nLeft = pPacker->nPayloadBytes - pPacker->nFragmentOffset;
    const uint8_t *pFrom = pNal->pData + pPacker->nFragmentOffset;
    if (nCapacity < nLeft) {
        memcpy(pPayload + kFuHeaders, pFrom, nCapacity);
        pPacker->nFragmentOffset += nCapacity;
        return;
    }
    pPayload[1] |= kFuEnd;
    memcpy(pPayload + kFuHeaders, pFrom, nLeft);
    pPacker->pFragmentNal = nullptr;
}

void FillSingle(KovaRtpH264Packer *pPacker, KovaRtpPacket *pPacket)
{
    const KovaNalUnit *pNal = TakeFirstNal(pPacker);
    memcpy(pPacket->pData + kRtpHeaderSize, pNal->pData, pNal->nSize);
    if (TypeOf(pNal->nHeader) == kNalIdr)
        pPacket->nFrameType = kFrameKey;
}

void FillAggregate(KovaRtpH264Packer *pPacker, KovaRtpPacket *pPacket)
{
    uint8_t *pStapHeader = pPacket->pData + kRtpHeaderSize;
    uint8_t *pOut = pStapHeader + 1;
    *pStapHeader = kNalStapA;
    for (; pPacker->nNalCount > 0 && pPacker->pNalList != nullptr; pPacker->nNalCount--) {
        const KovaNalUnit *pNal = TakeFirstNal(pPacker);
        *pStapHeader |= pNal->nHeader & kReferenceMask;
        RtspWriteMB(pOut, pNal->nSize, 16);
        memcpy(pOut + kStapSizeField, pNal->pData, pNal->nSize);
        pOut += kStapSizeField + pNal->nSize;
        if (TypeOf(pNal->nHeader) == kNalIdr)
            pPacket->nFrameType = kFrameKey;
    }
}

} // namespace

KovaRtpPacker *KovaRtpH264PackerCreate(void)
{
    KovaRtpH264Packer *pPacker = KovaHeapNew<KovaRtpH264Packer>();
    return pPacker != nullptr ? &pPacker->head : nullptr;
}

uint32_t KovaRtpH264PackerPushData(KovaRtpPacker *pHead, const uint8_t *pData, uint32_t nLength,
                                   uint32_t nPts)
{
    return pHead != nullptr ? KovaRtpH264PackerTake(pHead, pData, nullptr, nLength, nPts)
                            : kPackerInvalid;
}

uint32_t KovaRtpH264PackerTake(KovaRtpPacker *pHead, const uint8_t *pData, uint8_t *pLent,
                               uint32_t nLength, uint32_t nPts)
{
    KovaRtpH264Packer *pPacker = AsH264(pHead);
    if (pPacker->pNalList != nullptr)
        return kPackerNotDrained;
    pHead->nPts = nPts;
    pHead->nTimestamp = nPts * kVideoClockPerMillisecond;
    if (pData == nullptr)
        nLength = 0;
    KovaNalUnit *pFragment = &pPacker->fragment;
    if (pLent == nullptr)
        pLent = KovaUnitStoreCopy(&pPacker->store, pData, nLength, &pFragment->pData,
                                  pPacker->pFragmentNal != nullptr ? pFragment->nSize : 0);
    // Without memory what is in it is found all the same, and reported.
    uint8_t *pBytes = pLent != nullptr ? pLent : const_cast<uint8_t *>(pData);
    return Cut(pPacker, pBytes, nLength, pLent != nullptr) ? kPackerOk : kPackerNoStartCode;
}

uint32_t KovaRtpH264PackerPrepareRtpPacket(KovaRtpPacker *pHead, KovaRtpPacket *pPacket)
{
    if (pHead == nullptr || pPacket == nullptr)
        return kPackerInvalid;
    KovaRtpH264Packer *pPacker = AsH264(pHead);
    if (pPacker->pFragmentNal != nullptr)
        return PrepareFragment(pPacker, pPacket);
    if (pPacker->pNalList == nullptr)
        return kPackerNothing;
    pPacker->nPayloadBytes = 0;
    pPacker->nNalCount = 0;
    MeasureAggregate(pPacker);
    if (pPacker->nNalCount == 0)
        return StartFragmenting(pPacker, pPacket);
    if (pPacker->nNalCount == 1)
        pPacker->nPayloadBytes = FirstNal(pPacker)->nSize;
    else
        pPacker->nPayloadBytes += 1;
    pHead->bMarker = 1;
    pPacket->nSize = kRtpHeaderSize + pPacker->nPayloadBytes;
    return kPackerOk;
}

uint32_t KovaRtpH264PackerGetRtpPacket(KovaRtpPacker *pHead, KovaRtpPacket *pPacket)
{
    if (pHead == nullptr || pPacket == nullptr || pPacket->pData == nullptr)
        return kPackerInvalid;
    KovaRtpH264Packer *pPacker = AsH264(pHead);
    pPacket->nFrameType = kFrameVideo;
    if (pPacker->pFragmentNal != nullptr) {
        if (pPacket->nSize < kRtpHeaderSize + kFuHeaders)
            return kPackerNothing;
        FillFragment(pPacker, pPacket);
        return kPackerOk;
    }
    if (pPacker->nNalCount == 0 || pPacker->pNalList == nullptr)
        return kPackerNothing;
    // A packet that is filled twice, or another one than was prepared, may be too small.
    const uint32_t nBytes =
        pPacker->nNalCount == 1 ? FirstNal(pPacker)->nSize : pPacker->nPayloadBytes;
    if (pPacket->nSize < kRtpHeaderSize || pPacket->nSize - kRtpHeaderSize < nBytes)
        return kPackerNothing;
    if (pPacker->nNalCount == 1)
        FillSingle(pPacker, pPacket);
    else
        FillAggregate(pPacker, pPacket);
    return kPackerOk;
}

void KovaRtpH264PackerFreeNalList(KovaRtpPacker *pHead)
{
    if (pHead == nullptr)
        return;
    KovaRtpH264Packer *pPacker = AsH264(pHead);
    pPacker->pNalList = nullptr;
    pPacker->pNalListTail = nullptr;
}

void KovaRtpH264PackerDiscard(KovaRtpPacker *pHead)
{
    AsH264(pHead)->pFragmentNal = nullptr;
    KovaRtpH264PackerFreeNalList(pHead);
}

void KovaRtpH264PackerDestroy(KovaRtpPacker *pHead)
{
    if (pHead == nullptr)
        return;
    KovaUnitStoreFree(&AsH264(pHead)->store);
    free(AsH264(pHead));
}
