#include "foundation/heap.h"
#include "foundation/mutex.h"
#include "live/media/unit.h"

#include <cstdlib>
#include <new>

/// What is free is kept in the order in which it came back, latest first.
struct KovaUnitPool {
    KovaMutex mutex;
    KovaUnit *pFree KOVA_GUARDED_BY(mutex);
    uint32_t nOut KOVA_GUARDED_BY(mutex); ///< units that are in use
    bool bClosed KOVA_GUARDED_BY(mutex);  ///< the last unit that comes back frees the pool
};

namespace {

/// A track has few units under way; more are free only after a slow player went.
constexpr uint32_t kMaxFree = 8;
constexpr size_t kMaxFreeBytes = size_t{1024} * 1024;

/// A unit in a block that is much too large would hold memory that no bound on the
/// bytes of waiting units knows of.
constexpr size_t kMaxWaste = 4096;

/// Sizes in steps of an eighth: the next unit of about the same size fits.
size_t RoundUp(size_t nSize)
{
    size_t nStep = 64;
    while (nStep * 16 <= nSize)
        nStep *= 2;
    return (nSize + nStep - 1) / nStep * nStep;
}

/// The smallest free block that fits and is not much too large, or null.
KovaUnit *TakeFree(KovaUnitPool *pPool, size_t nNeeded) KOVA_REQUIRES(pPool->mutex)
{
    KovaUnit **ppBest = nullptr;
    for (KovaUnit **ppUnit = &pPool->pFree; *ppUnit != nullptr; ppUnit = &(*ppUnit)->pNext) {
        const size_t nCapacity = (*ppUnit)->nCapacity;
        if (nCapacity < nNeeded || nCapacity > 2 * nNeeded + kMaxWaste)
            continue;
        if (ppBest == nullptr || nCapacity < (*ppBest)->nCapacity)
            ppBest = ppUnit;
    }
    if (ppBest == nullptr)
        return nullptr;
    KovaUnit *pUnit = *ppBest;
    *ppBest = pUnit->pNext;
    return pUnit;
}

/// Takes out what is above the bounds, those first that have been free for longest.
KovaUnit *TakeSurplus(KovaUnitPool *pPool) KOVA_REQUIRES(pPool->mutex)
{
    uint32_t nKept = 0;
    size_t nKeptBytes = 0;
    KovaUnit **ppUnit = &pPool->pFree;
    while (*ppUnit != nullptr && nKept < kMaxFree &&
           nKeptBytes + (*ppUnit)->nCapacity <= kMaxFreeBytes) {
        nKept++;
        nKeptBytes += (*ppUnit)->nCapacity;
        ppUnit = &(*ppUnit)->pNext;
    }
    KovaUnit *pSurplus = *ppUnit;
    *ppUnit = nullptr;
    return pSurplus;
}

void FreeAll(KovaUnit *pUnit)
{
    while (pUnit != nullptr) {
        KovaUnit *pNext = pUnit->pNext;
        free(pUnit);
        pUnit = pNext;
    }
}

/// An empty record at the head of a block.
KovaUnit *MakeUnit(void *pBlock)
{
    // A block is never smaller than the record: RoundUp() only adds.
    // NOLINTNEXTLINE(clang-analyzer-cplusplus.PlacementNew)
    return new (pBlock) KovaUnit();
}

void FreePool(KovaUnitPool *pPool)
{
    KovaMutexDestroy(&pPool->mutex);
    free(pPool);
}

/// Puts a block that nobody uses any more where it belongs.
void GiveBack(KovaUnitPool *pPool, KovaUnit *pUnit)
{
    KovaMutexLock lock(&pPool->mutex, kRankLeaf);
    pUnit->pNext = pPool->pFree;
    pPool->pFree = pUnit;
    pPool->nOut--;
    KovaUnit *pSurplus = nullptr;
    bool bLast = false;
    if (pPool->bClosed) {
        pSurplus = pPool->pFree;
        pPool->pFree = nullptr;
        bLast = pPool->nOut == 0;
    } else {
        pSurplus = TakeSurplus(pPool);
    }
    lock.Unlock();
    FreeAll(pSurplus);
    if (bLast)
        FreePool(pPool);
}

/// A unit that was counted as in use cannot be had.
void CountOut(KovaUnitPool *pPool)
{
    KovaMutexLock lock(&pPool->mutex, kRankLeaf);
    pPool->nOut--;
}

} // namespace

void KovaUnitAddReference(KovaUnit *pUnit)
{
    pUnit->nReferences.fetch_add(1, std::memory_order_relaxed);
}

void KovaUnitRelease(KovaUnit *pUnit)
{
    if (pUnit != nullptr && pUnit->nReferences.fetch_sub(1, std::memory_order_acq_rel) == 1)
        GiveBack(pUnit->pPool, pUnit);
}

KovaUnitPool *KovaUnitPoolCreate()
{
    KovaUnitPool *pPool = KovaHeapNew<KovaUnitPool>();
    if (pPool != nullptr)
        KovaMutexInit(&pPool->mutex);
    return pPool;
}

void KovaUnitPoolDestroy(KovaUnitPool *pPool)
{
    if (pPool == nullptr)
        return;
    KovaMutexLock lock(&pPool->mutex, kRankLeaf);
    KovaUnit *pFree = pPool->pFree;
    pPool->pFree = nullptr;
    pPool->bClosed = true;
    const bool bLast = pPool->nOut == 0;
    lock.Unlock();
    FreeAll(pFree);
    if (bLast)
        FreePool(pPool);
}

KovaUnit *KovaUnitPoolTake(KovaUnitPool *pPool, uint32_t nPackets, uint32_t nBytes)
{
    const uint64_t nWanted =
        sizeof(KovaUnit) + nBytes + static_cast<uint64_t>(nPackets) * sizeof(KovaUnitPacket);
    if (nWanted > SIZE_MAX / 2)
        return nullptr;
    size_t nCapacity = static_cast<size_t>(nWanted);
    KovaMutexLock lock(&pPool->mutex, kRankLeaf);
    void *pBlock = TakeFree(pPool, nCapacity);
    pPool->nOut++;
    lock.Unlock();
    if (pBlock != nullptr) {
        nCapacity = static_cast<KovaUnit *>(pBlock)->nCapacity;
    } else {
        nCapacity = RoundUp(nCapacity);
        pBlock = KovaHeapAlloc(nCapacity);
        if (pBlock == nullptr) {
            CountOut(pPool);
            return nullptr;
        }
    }
    KovaUnit *pUnit = MakeUnit(pBlock);
    KovaUnitPacket *pPackets = reinterpret_cast<KovaUnitPacket *>(pUnit + 1);
    pUnit->nReferences.store(1, std::memory_order_relaxed);
    pUnit->pPool = pPool;
    pUnit->pPackets = pPackets;
    pUnit->pBytes = reinterpret_cast<uint8_t *>(pPackets + nPackets);
    pUnit->nCapacity = nCapacity;
    return pUnit;
}
