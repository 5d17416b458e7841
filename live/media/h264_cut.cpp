#include "live/media/h264_cut.h"

#include "live/media/h264_recovery_point.h"
#include "live/media/packet_writer.h"
#include "live/media/rtp_time.h"
#include "live/media/track_media_record.h"

#include <cstring>

namespace {

// Payload structures of RFC 6184, table 1, and the bits of a FU header (5.8).
constexpr uint8_t kStapA = 24;
constexpr uint8_t kFuA = 28;
constexpr uint8_t kStart = 0x80;
constexpr uint8_t kEnd = 0x40;

constexpr uint8_t kForbiddenBit = 0x80;
constexpr uint8_t kReferenceBits = 0x60;
constexpr uint32_t kFuHeaders = 2;
constexpr uint32_t kStapHeader = 1;
constexpr uint32_t kStapLength = 2;

/// What an access unit is for those who watch.
struct Traits {
    bool bEntry;
    bool bKey;
    bool bReference;
    bool bMore;        ///< it has NAL units that are no parameter sets
    uint32_t nCarried; ///< places of parameter sets in front of its first slice
};

/// Looks at every NAL unit and remembers the parameter sets.
int32_t Inspect(KovaTrackMedia *pMedia, Traits *pTraits)
{
    const KovaNalList &list = pMedia->nals;
    bool bSlices = false;
    for (uint32_t nIndex = list.nFirst; nIndex < list.nEnd; nIndex++) {
        const KovaNal &nal = list.pNals[nIndex];
        const uint8_t nType = KovaNalTypeOf(nal);
        if (nType == kNalSps || nType == kNalPps) {
            uint32_t nPlaces = 0;
            // A set that cannot be read is the decoder's affair.
            if (KovaParameterSetsTake(&pMedia->sets, nal, &nPlaces) == KOVA_LIVE_ERROR_MEMORY)
                return KOVA_LIVE_ERROR_MEMORY;
            pTraits->nCarried |= bSlices ? 0 : nPlaces;
            continue;
        }
        pTraits->bMore = true;
        if (nType >= kNalSlice && nType <= kNalIdr) {
            bSlices = true;
            pTraits->bReference |= (nal.pData[0] & kReferenceBits) != 0;
            pTraits->bKey |= nType == kNalIdr;
        } else if (nType == kNalSei) {
            pTraits->bEntry |= KovaH264HasRecoveryPoint(nal);
        }
    }
    pTraits->bEntry |= pTraits->bKey;
    // Nobody can tell what a unit without a slice is for.
    pTraits->bReference |= !bSlices;
    return KOVA_LIVE_OK;
}

void InsertMissing(KovaTrackMedia *pMedia, const Traits &traits)
{
    KovaNal nals[kMaxSets];
    uint32_t nSps = 0;
    uint32_t nPps = 0;
    KovaParameterSetsMissing(&pMedia->sets, traits.bEntry, traits.nCarried, nals, &nSps, &nPps);
    KovaNalListInsert(&pMedia->nals, nals, nSps, nals + nSps, nPps);
}

/// FU-A (RFC 6184, 5.8): all fragments but the last are as large as packets may be.
void AddFragments(KovaPacketWriter *pWriter, const KovaNal &nal, uint32_t nMaxPayload)
{
    const uint8_t nIndicator =
        static_cast<uint8_t>((nal.pData[0] & (kForbiddenBit | kReferenceBits)) | kFuA);
    for (uint32_t nAt = 1; nAt < nal.nSize;) {
        const uint32_t nLeft = nal.nSize - nAt;
        const uint32_t nSize = nLeft < nMaxPayload - kFuHeaders ? nLeft : nMaxPayload - kFuHeaders;
        uint8_t *pPayload = KovaPacketWriterAdd(pWriter, kFuHeaders + nSize);
        if (pPayload != nullptr) {
            pPayload[0] = nIndicator;
            pPayload[1] = static_cast<uint8_t>(KovaNalTypeOf(nal) | (nAt == 1 ? kStart : 0) |
                                               (nSize == nLeft ? kEnd : 0));
            memcpy(pPayload + kFuHeaders, nal.pData + nAt, nSize);
        }
        nAt += nSize;
    }
}

/// STAP-A (RFC 6184, 5.7.1).
void AddAggregate(KovaPacketWriter *pWriter, const KovaNal *pNals, uint32_t nCount, uint32_t nSize)
{
    uint8_t *pPayload = KovaPacketWriterAdd(pWriter, nSize);
    if (pPayload == nullptr)
        return;
    uint8_t *pHeader = pPayload;
    uint8_t nForbidden = 0;
    uint8_t nReference = 0;
    pPayload += kStapHeader;
    for (uint32_t nIndex = 0; nIndex < nCount; nIndex++) {
        const KovaNal &nal = pNals[nIndex];
        nForbidden |= nal.pData[0] & kForbiddenBit;
        const uint8_t nIts = nal.pData[0] & kReferenceBits;
        nReference = nIts > nReference ? nIts : nReference;
        pPayload[0] = static_cast<uint8_t>(nal.nSize >> 8);
        pPayload[1] = static_cast<uint8_t>(nal.nSize);
        memcpy(pPayload + kStapLength, nal.pData, nal.nSize);
        pPayload += kStapLength + nal.nSize;
    }
    *pHeader = static_cast<uint8_t>(nForbidden | nReference | kStapA);
}

/// One packet with as many of the NAL units as fit, which is one at least.
/// @return how many
uint32_t AddWhole(KovaPacketWriter *pWriter, const KovaNal *pNals, uint32_t nLeft,
                  uint32_t nMaxPayload)
{
    uint32_t nCount = 0;
    uint32_t nSize = kStapHeader;
    while (nCount < nLeft && nSize + kStapLength + pNals[nCount].nSize <= nMaxPayload)
        nSize += kStapLength + pNals[nCount++].nSize;
    if (nCount > 1) {
        AddAggregate(pWriter, pNals, nCount, nSize);
        return nCount;
    }
    uint8_t *pPayload = KovaPacketWriterAdd(pWriter, pNals[0].nSize);
    if (pPayload != nullptr)
        memcpy(pPayload, pNals[0].pData, pNals[0].nSize);
    return 1;
}

void AddPackets(KovaPacketWriter *pWriter, const KovaNalList &list, uint32_t nMaxPayload)
{
    uint32_t nIndex = list.nFirst;
    while (nIndex < list.nEnd) {
        if (list.pNals[nIndex].nSize > nMaxPayload) {
            AddFragments(pWriter, list.pNals[nIndex++], nMaxPayload);
            continue;
        }
        nIndex += AddWhole(pWriter, list.pNals + nIndex, list.nEnd - nIndex, nMaxPayload);
    }
    KovaPacketWriterMark(pWriter);
}

} // namespace

int32_t KovaH264Cut(KovaTrackMedia *pMedia, const uint8_t *pData, size_t nSize, int64_t nPts,
                    KovaUnit **ppUnit)
{
    int32_t nResult = pMedia->nLengthSize != 0
                          ? KovaNalListFillLengths(&pMedia->nals, pData, nSize, pMedia->nLengthSize)
                          : KovaNalListFillAnnexB(&pMedia->nals, pData, nSize);
    Traits traits = {};
    if (nResult == KOVA_LIVE_OK)
        nResult = Inspect(pMedia, &traits);
    if (nResult != KOVA_LIVE_OK || !traits.bMore)
        return nResult;
    InsertMissing(pMedia, traits);

    KovaPacketWriter writer = {};
    AddPackets(&writer, pMedia->nals, pMedia->nMaxPayload);
    KovaUnit *pUnit =
        KovaPacketWriterBegin(&writer, pMedia, nPts, KovaTrackMediaTimestamp(pMedia, nPts));
    if (pUnit == nullptr)
        return KOVA_LIVE_ERROR_MEMORY;
    AddPackets(&writer, pMedia->nals, pMedia->nMaxPayload);
    pUnit->bEntry = traits.bEntry;
    pUnit->bKey = traits.bKey;
    pUnit->bReference = traits.bReference;
    KovaParameterSetsSent(&pMedia->sets);
    *ppUnit = pUnit;
    return KOVA_LIVE_OK;
}
