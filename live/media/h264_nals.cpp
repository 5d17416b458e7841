#include "live/media/h264_nals.h"

#include "foundation/heap.h"
#include "kova_live.h"

#include <cstring>

namespace {

constexpr uint32_t kFirstRoom = 64;
constexpr uint32_t kMaxRoom = 65536 + kNalsInFront;

/// Doubles the array.
bool Grow(KovaNalList *pList)
{
    const uint32_t nRoom = pList->nRoom == 0             ? kFirstRoom
                           : 2 * pList->nRoom < kMaxRoom ? 2 * pList->nRoom
                                                         : kMaxRoom;
    KovaNal *pNals = static_cast<KovaNal *>(KovaHeapAlloc(nRoom * sizeof(KovaNal)));
    if (pNals == nullptr)
        return false;
    if (pList->pNals != nullptr)
        memcpy(pNals, pList->pNals, pList->nEnd * sizeof(KovaNal));
    free(pList->pNals);
    pList->pNals = pNals;
    pList->nRoom = nRoom;
    return true;
}

void Clear(KovaNalList *pList)
{
    pList->nFirst = kNalsInFront;
    pList->nEnd = kNalsInFront;
    pList->bAny = false;
}

bool IsSent(uint8_t nType)
{
    return nType != 0 && nType != kNalDelimiter && nType != kNalFiller &&
           nType < kNalFirstUnspecified;
}

int32_t Add(KovaNalList *pList, const uint8_t *pData, size_t nSize)
{
    pList->bAny = true;
    const KovaNal nal = {pData, static_cast<uint32_t>(nSize)};
    if (!IsSent(KovaNalTypeOf(nal)))
        return KOVA_LIVE_OK;
    if (pList->nEnd == kMaxRoom)
        return KOVA_LIVE_ERROR_TOO_LARGE;
    if (pList->nEnd >= pList->nRoom && !Grow(pList))
        return KOVA_LIVE_ERROR_MEMORY;
    pList->pNals[pList->nEnd++] = nal;
    return KOVA_LIVE_OK;
}

/// Position of the next 00 00 01 at or behind nFrom, or nSize. Looks for the 1, which
/// is rare in coded pictures, with what the C library has for that.
size_t FindPrefix(const uint8_t *pData, size_t nSize, size_t nFrom)
{
    size_t nAt = nFrom + 2;
    while (nAt < nSize) {
        const void *pOne = memchr(pData + nAt, 1, nSize - nAt);
        if (pOne == nullptr)
            break;
        nAt = static_cast<size_t>(static_cast<const uint8_t *>(pOne) - pData);
        if (pData[nAt - 1] == 0 && pData[nAt - 2] == 0)
            return nAt - 2;
        nAt++;
    }
    return nSize;
}

bool IsZero(const uint8_t *pData, size_t nSize)
{
    while (nSize > 0 && pData[nSize - 1] == 0)
        nSize--;
    return nSize == 0;
}

} // namespace

void KovaNalListFree(KovaNalList *pList)
{
    free(pList->pNals);
    *pList = {};
}

int32_t KovaNalListFillAnnexB(KovaNalList *pList, const uint8_t *pData, size_t nSize)
{
    Clear(pList);
    size_t nPrefix = FindPrefix(pData, nSize, 0);
    if (!IsZero(pData, nPrefix))
        return KOVA_LIVE_ERROR_DATA;
    while (nPrefix < nSize) {
        const size_t nBegin = nPrefix + 3;
        nPrefix = FindPrefix(pData, nSize, nBegin);
        size_t nEnd = nPrefix;
        while (nEnd > nBegin && pData[nEnd - 1] == 0)
            nEnd--;
        const int32_t nResult =
            nEnd > nBegin ? Add(pList, pData + nBegin, nEnd - nBegin) : int32_t{KOVA_LIVE_OK};
        if (nResult != KOVA_LIVE_OK)
            return nResult;
    }
    return pList->bAny ? KOVA_LIVE_OK : KOVA_LIVE_ERROR_DATA;
}

int32_t KovaNalListFillLengths(KovaNalList *pList, const uint8_t *pData, size_t nSize,
                               uint32_t nLengthSize)
{
    Clear(pList);
    size_t nAt = 0;
    while (nAt < nSize) {
        if (nSize - nAt < nLengthSize)
            return KOVA_LIVE_ERROR_DATA;
        uint32_t nLength = 0;
        for (uint32_t nIndex = 0; nIndex < nLengthSize; nIndex++)
            nLength = nLength << 8 | pData[nAt++];
        if (nLength > nSize - nAt)
            return KOVA_LIVE_ERROR_DATA;
        const int32_t nResult =
            nLength > 0 ? Add(pList, pData + nAt, nLength) : int32_t{KOVA_LIVE_OK};
        if (nResult != KOVA_LIVE_OK)
            return nResult;
        nAt += nLength;
    }
    return pList->bAny ? KOVA_LIVE_OK : KOVA_LIVE_ERROR_DATA;
}

void KovaNalListInsert(KovaNalList *pList, const KovaNal *pSps, uint32_t nSps, const KovaNal *pPps,
                       uint32_t nPps)
{
    KovaNal *pOld = pList->pNals + pList->nFirst;
    KovaNal *pNew = pOld - nSps - nPps;
    pList->nFirst -= nSps + nPps;
    for (uint32_t nIndex = 0; nIndex < nSps; nIndex++)
        *pNew++ = pSps[nIndex];
    const KovaNal *pEnd = pList->pNals + pList->nEnd;
    for (; pOld < pEnd; pOld++) {
        const uint8_t nType = KovaNalTypeOf(*pOld);
        if (nType != kNalSps && nType != kNalPps && nType != kNalSpsExtension &&
            nType != kNalSubsetSps)
            break;
        *pNew++ = *pOld;
    }
    for (uint32_t nIndex = 0; nIndex < nPps; nIndex++)
        *pNew++ = pPps[nIndex];
}
