#include "live/engine/picture_group.h"

#include "foundation/heap.h"

namespace {

constexpr uint32_t kFirstRoom = 64;

bool Append(KovaPictureGroup *pGroup, KovaUnit *pUnit)
{
    if (pGroup->nUnits == pGroup->nRoom) {
        const uint32_t nRoom = pGroup->nRoom != 0 ? pGroup->nRoom * 2 : kFirstRoom;
        void *pRoom = realloc(pGroup->ppUnits, nRoom * sizeof(void *));
        if (pRoom == nullptr)
            return false;
        pGroup->ppUnits = static_cast<KovaUnit **>(pRoom);
        pGroup->nRoom = nRoom;
    }
    KovaUnitAddReference(pUnit);
    pGroup->ppUnits[pGroup->nUnits++] = pUnit;
    pGroup->nBytes += pUnit->nBytes;
    return true;
}

void Empty(KovaPictureGroup *pGroup)
{
    for (uint32_t nUnit = 0; nUnit < pGroup->nUnits; nUnit++)
        KovaUnitRelease(pGroup->ppUnits[nUnit]);
    pGroup->nUnits = 0;
    pGroup->nBytes = 0;
    pGroup->bWhole = false;
}

} // namespace

void KovaPictureGroupAdd(KovaPictureGroup *pGroup, KovaUnit *pUnit, uint32_t nMostBytes)
{
    if (pUnit->bKey) {
        Empty(pGroup);
        pGroup->bWhole = true;
    }
    if (!pGroup->bWhole)
        return;
    if (pGroup->nBytes + pUnit->nBytes > nMostBytes || !Append(pGroup, pUnit))
        Empty(pGroup);
}

void KovaPictureGroupCopy(const KovaPictureGroup *pGroup, KovaUnit ***pppUnits, uint32_t *pnUnits)
{
    *pppUnits = nullptr;
    *pnUnits = 0;
    if (pGroup->nUnits == 0)
        return;
    auto **ppUnits = static_cast<KovaUnit **>(KovaHeapAlloc(pGroup->nUnits * sizeof(void *)));
    if (ppUnits == nullptr)
        return;
    for (uint32_t nUnit = 0; nUnit < pGroup->nUnits; nUnit++) {
        ppUnits[nUnit] = pGroup->ppUnits[nUnit];
        KovaUnitAddReference(ppUnits[nUnit]);
    }
    *pppUnits = ppUnits;
    *pnUnits = pGroup->nUnits;
}

void KovaPictureGroupClear(KovaPictureGroup *pGroup)
{
    Empty(pGroup);
    free(pGroup->ppUnits);
    *pGroup = {};
}
