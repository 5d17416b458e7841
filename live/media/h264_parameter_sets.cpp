#include "live/media/h264_parameter_sets.h"

#include "foundation/base64.h"
#include "foundation/heap.h"
#include "foundation/text.h"
#include "kova_live.h"
#include "live/media/bit_reader.h"

#include <cstring>

namespace {

constexpr uint32_t kMaxSpsId = 31;
constexpr uint32_t kMaxPpsId = 255;

/// Header, profile, constraints and level stand in front of the id.
constexpr uint32_t kSpsIdAt = 4;

/// For the pushing thread: nobody else changes them.
const KovaParameterSet *OwnView(const KovaParameterSets *pSets) KOVA_NO_THREAD_SAFETY_ANALYSIS
{
    return pSets->sets;
}

bool ReadId(const KovaNal &nal, uint32_t *pId)
{
    const bool bSps = KovaNalTypeOf(nal) == kNalSps;
    if (nal.nSize > kMaxSetSize)
        return false;
    KovaBitReader reader = KovaBitReaderOfNal(nal.pData, nal.nSize);
    KovaBitReaderRead(&reader, 8);
    if (bSps)
        KovaBitReaderRead(&reader, 8 * (kSpsIdAt - 1));
    *pId = KovaBitReaderReadGolomb(&reader);
    if (!bSps && KovaBitReaderReadGolomb(&reader) > kMaxSpsId)
        return false;
    return !reader.bOver && *pId <= (bSps ? kMaxSpsId : kMaxPpsId);
}

bool IsSame(const KovaParameterSet &set, const KovaNal &nal)
{
    return set.nSize == nal.nSize && memcmp(set.pBytes, nal.pData, nal.nSize) == 0;
}

/// Where a set of that id is or shall go: an empty place, else the oldest one's.
uint32_t PlaceOf(const KovaParameterSet *pSets, uint32_t nBegin, uint32_t nEnd, uint32_t nId)
{
    uint32_t nBest = nBegin;
    for (uint32_t nPlace = nBegin; nPlace < nEnd; nPlace++) {
        if (pSets[nPlace].pBytes != nullptr && pSets[nPlace].nId == nId)
            return nPlace;
        const bool bBestFree = pSets[nBest].pBytes == nullptr;
        const bool bFree = pSets[nPlace].pBytes == nullptr;
        if (!bBestFree && (bFree || pSets[nPlace].nChange < pSets[nBest].nChange))
            nBest = nPlace;
    }
    return nBest;
}

int32_t Replace(KovaParameterSets *pSets, uint32_t nPlace, const KovaNal &nal, uint32_t nId)
{
    uint8_t *pBytes = static_cast<uint8_t *>(KovaHeapAlloc(nal.nSize));
    if (pBytes == nullptr)
        return KOVA_LIVE_ERROR_MEMORY;
    memcpy(pBytes, nal.pData, nal.nSize);
    KovaMutexLock lock(&pSets->mutex, kRankLeaf);
    uint8_t *pOld = pSets->sets[nPlace].pBytes;
    pSets->sets[nPlace] = {pBytes, nal.nSize, nId, ++pSets->nChanges, true};
    lock.Unlock();
    free(pOld);
    return KOVA_LIVE_OK;
}

bool IsKnown(const KovaParameterSets *pSets) KOVA_REQUIRES(pSets->mutex)
{
    // Places are filled from the first one on, and none is ever emptied.
    return pSets->sets[0].pBytes != nullptr && pSets->sets[kMaxSps].pBytes != nullptr;
}

bool AppendBase64(const KovaParameterSet &set, char *szText, size_t nCapacity, size_t *pLength)
{
    const int32_t nSize = static_cast<int32_t>(set.nSize);
    if (static_cast<size_t>(Base64encode_len(nSize)) > nCapacity - *pLength)
        return false;
    const char *pBytes = reinterpret_cast<const char *>(set.pBytes);
    *pLength += static_cast<size_t>(Base64encode(szText + *pLength, pBytes, nSize)) - 1;
    return true;
}

} // namespace

void KovaParameterSetsInit(KovaParameterSets *pSets)
{
    KovaMutexInit(&pSets->mutex);
}

void KovaParameterSetsFree(KovaParameterSets *pSets) KOVA_NO_THREAD_SAFETY_ANALYSIS
{
    // Nobody else is there any more.
    for (KovaParameterSet &set : pSets->sets)
        free(set.pBytes);
    KovaMutexDestroy(&pSets->mutex);
}

int32_t KovaParameterSetsTake(KovaParameterSets *pSets, const KovaNal &nal, uint32_t *pSlots)
{
    uint32_t nId = 0;
    if (!ReadId(nal, &nId))
        return KOVA_LIVE_ERROR_DATA;
    const bool bSps = KovaNalTypeOf(nal) == kNalSps;
    const KovaParameterSet *pView = OwnView(pSets);
    const uint32_t nPlace = PlaceOf(pView, bSps ? 0 : kMaxSps, bSps ? kMaxSps : kMaxSets, nId);
    int32_t nResult = KOVA_LIVE_OK;
    if (pView[nPlace].pBytes == nullptr || !IsSame(pView[nPlace], nal))
        nResult = Replace(pSets, nPlace, nal, nId);
    if (nResult == KOVA_LIVE_OK)
        *pSlots |= 1U << nPlace;
    return nResult;
}

void KovaParameterSetsMissing(const KovaParameterSets *pSets, bool bAll, uint32_t nCarried,
                              KovaNal *pNals, uint32_t *pSps, uint32_t *pPps)
{
    const KovaParameterSet *pView = OwnView(pSets);
    *pSps = 0;
    *pPps = 0;
    for (uint32_t nPlace = 0; nPlace < kMaxSets; nPlace++) {
        const KovaParameterSet &set = pView[nPlace];
        if (set.pBytes == nullptr || (nCarried >> nPlace & 1) != 0 || !(bAll || set.bUnsent))
            continue;
        *pNals++ = {set.pBytes, set.nSize};
        (nPlace < kMaxSps ? *pSps : *pPps)++;
    }
}

void KovaParameterSetsSent(KovaParameterSets *pSets) KOVA_NO_THREAD_SAFETY_ANALYSIS
{
    // Only the pushing thread looks at this.
    for (KovaParameterSet &set : pSets->sets)
        set.bUnsent = false;
}

bool KovaParameterSetsKnown(KovaParameterSets *pSets)
{
    KovaMutexLock lock(&pSets->mutex, kRankLeaf);
    return IsKnown(pSets);
}

bool KovaParameterSetsDescribe(KovaParameterSets *pSets, char *szText, size_t nCapacity,
                               size_t *pLength)
{
    KovaMutexLock lock(&pSets->mutex, kRankLeaf);
    if (!IsKnown(pSets))
        return false;
    const uint8_t *pSps = pSets->sets[0].pBytes;
    if (!KovaTextAppend(szText, nCapacity, pLength,
                        "profile-level-id=%02X%02X%02X;sprop-parameter-sets=", pSps[1], pSps[2],
                        pSps[3]))
        return false;
    const char *szSeparator = "";
    for (const KovaParameterSet &set : pSets->sets) {
        if (set.pBytes == nullptr)
            continue;
        if (!KovaTextAppend(szText, nCapacity, pLength, "%s", szSeparator) ||
            !AppendBase64(set, szText, nCapacity, pLength))
            return false;
        szSeparator = ",";
    }
    return true;
}
