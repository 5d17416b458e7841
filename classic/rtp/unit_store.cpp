#include "classic/rtp/unit_store.h"

#include <cstring>

namespace {

struct Slot {
    KovaList node;
    alignas(void *) unsigned char record[kUnitRecordSize];
};

Slot *Slots(const KovaUnitStore *pStore)
{
    static_assert(alignof(Slot) <= alignof(max_align_t), "blocks of the heap are aligned for it");
    return static_cast<Slot *>(static_cast<void *>(pStore->slots.pBytes));
}

} // namespace

uint8_t *KovaUnitStoreCopy(KovaUnitStore *pStore, const uint8_t *pData, uint32_t nLength,
                           uint8_t **ppHeld, uint32_t nHeld)
{
    KovaKeptBuffer *pCopy = &pStore->copy;
    if (nHeld != 0)
        memmove(pCopy->pBytes, *ppHeld, nHeld);
    const bool bRoom =
        pData != nullptr && KovaKeptBufferReserve(pCopy, size_t{nHeld} + nLength, nHeld);
    *ppHeld = pCopy->pBytes;
    if (!bRoom)
        return nullptr;
    uint8_t *pUnit = pCopy->pBytes + nHeld;
    memcpy(pUnit, pData, nLength);
    return pUnit;
}

void *KovaUnitStoreAdd(KovaUnitStore *pStore)
{
    const size_t nUsed = pStore->nUsed;
    if (!KovaKeptBufferReserve(&pStore->slots, (nUsed + 1) * sizeof(Slot), nUsed * sizeof(Slot)))
        return nullptr;
    pStore->nUsed++;
    return Slots(pStore)[nUsed].record;
}

void KovaUnitStoreLink(KovaUnitStore *pStore, KovaList **ppList, KovaList **ppTail)
{
    KovaList *pLast = nullptr;
    *ppList = nullptr;
    Slot *pSlot = Slots(pStore);
    for (; pStore->nUsed > 0; pStore->nUsed--, pSlot++) {
        pSlot->node = {pSlot->record, pLast, nullptr};
        (pLast != nullptr ? pLast->next : *ppList) = &pSlot->node;
        pLast = &pSlot->node;
    }
    *ppTail = pLast;
}

void *KovaUnitStoreTakeFirst(KovaList **ppList, KovaList **ppTail)
{
    KovaList *pNode = *ppList;
    *ppList = KovaListRemoveLink(pNode, pNode);
    if (*ppTail == pNode)
        *ppTail = nullptr;
    return pNode->data;
}

void KovaUnitStoreFree(KovaUnitStore *pStore)
{
    KovaKeptBufferFree(&pStore->copy);
    KovaKeptBufferFree(&pStore->slots);
}
