#include "foundation/keyed_list.h"

#include "foundation/heap.h"

/// A node of the list, found in the chain of its bucket as well.
struct KovaKeyedNode {
    KovaList link;
    KovaKeyedNode *pNext;
    uint32_t nKey;
};

namespace {

constexpr uint32_t kNodesPerBucket = 4;
constexpr unsigned kKeyBits = 32;
constexpr size_t kBucketSize = sizeof(void *);

KovaKeyedNode *NodeOf(KovaList *pLink)
{
    return reinterpret_cast<KovaKeyedNode *>(pLink);
}

KovaKeyedNode **BucketOf(KovaKeyedList *pIndex, uint32_t nKey)
{
    if (pIndex->ppBuckets == nullptr)
        return &pIndex->pOnlyBucket;
    // The upper bits of the product depend on all bits of the key.
    return &pIndex->ppBuckets[(nKey * 2654435769U) >> (kKeyBits - pIndex->nBits)];
}

void GiveUp(KovaKeyedList *pIndex)
{
    free(pIndex->ppBuckets);
    *pIndex = {};
}

/// Whether the index knows every node. One that somebody else has overtaken is
/// given up: it then differs from the list until that is empty.
bool KnowsAll(KovaKeyedList *pIndex, const KovaList *pList)
{
    if (pIndex->pFirst == pList && (pList == nullptr || pIndex->pLast->next == nullptr))
        return true;
    GiveUp(pIndex);
    return pList == nullptr;
}

/// Chains every node anew in 2^nBits buckets. Without memory the chains stay.
void Resize(KovaKeyedList *pIndex, uint32_t nBits)
{
    KovaKeyedNode **ppBuckets = nullptr;
    if (nBits != 0) {
        ppBuckets = static_cast<KovaKeyedNode **>(KovaHeapAlloc(kBucketSize << nBits));
        if (ppBuckets == nullptr)
            return;
    }
    free(pIndex->ppBuckets);
    pIndex->ppBuckets = ppBuckets;
    pIndex->pOnlyBucket = nullptr;
    pIndex->nBits = nBits;
    // Backwards, so that each chain has the order of the list.
    for (KovaList *pLink = pIndex->pLast; pLink != nullptr; pLink = pLink->prev) {
        KovaKeyedNode *pNode = NodeOf(pLink);
        KovaKeyedNode **ppBucket = BucketOf(pIndex, pNode->nKey);
        pNode->pNext = *ppBucket;
        *ppBucket = pNode;
    }
}

void Take(KovaKeyedList *pIndex, KovaList **ppList, KovaKeyedNode *pNode)
{
    KovaKeyedNode **ppLink = BucketOf(pIndex, pNode->nKey);
    while (*ppLink != pNode)
        ppLink = &(*ppLink)->pNext;
    *ppLink = pNode->pNext;
    if (pIndex->pLast == &pNode->link)
        pIndex->pLast = pNode->link.prev;
    *ppList = KovaListRemoveLink(*ppList, &pNode->link);
    KovaListFree(&pNode->link);
    pIndex->pFirst = *ppList;
    pIndex->nCount--;
    if (*ppList == nullptr)
        GiveUp(pIndex);
    else if (pIndex->nBits != 0 && pIndex->nCount < (1U << pIndex->nBits) / 2)
        Resize(pIndex, pIndex->nBits - 1);
}

} // namespace

uint32_t KovaKeyOfText(const char *szText)
{
    uint32_t nKey = 2166136261U; // FNV-1a
    for (; *szText != '\0'; szText++)
        nKey = (nKey ^ static_cast<uint8_t>(*szText)) * 16777619U;
    return nKey;
}

uint32_t KovaKeyOfAddress(const void *pAddress)
{
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(pAddress) >> 3);
}

bool KovaKeyedPush(KovaKeyedList *pIndex, KovaList **ppList, uint32_t nKey, void *pData)
{
    if (!KnowsAll(pIndex, *ppList))
        return KovaListPush(ppList, pData);
    KovaKeyedNode *pNode = KovaHeapNew<KovaKeyedNode>();
    if (pNode == nullptr)
        return false;
    pNode->link.data = pData;
    pNode->nKey = nKey;
    pNode->link.prev = pIndex->pLast;
    *(pIndex->pLast != nullptr ? &pIndex->pLast->next : ppList) = &pNode->link;
    pIndex->pLast = &pNode->link;
    pIndex->pFirst = *ppList;
    KovaKeyedNode **ppLink = BucketOf(pIndex, nKey);
    while (*ppLink != nullptr)
        ppLink = &(*ppLink)->pNext;
    *ppLink = pNode;
    pIndex->nCount++;
    if (pIndex->nCount > kNodesPerBucket << pIndex->nBits)
        Resize(pIndex, pIndex->nBits + 1);
    return true;
}

void *KovaKeyedFind(KovaKeyedList *pIndex, KovaList *pList, uint32_t nKey, KovaKeyedMatch pfnMatch,
                    const void *pWanted)
{
    if (!KnowsAll(pIndex, pList)) {
        while (pList != nullptr && (pList->data == nullptr || !pfnMatch(pList->data, pWanted)))
            pList = pList->next;
        return pList != nullptr ? pList->data : nullptr;
    }
    KovaKeyedNode *pNode = *BucketOf(pIndex, nKey);
    while (pNode != nullptr && (pNode->nKey != nKey || !pfnMatch(pNode->link.data, pWanted)))
        pNode = pNode->pNext;
    return pNode != nullptr ? pNode->link.data : nullptr;
}

bool KovaKeyedTake(KovaKeyedList *pIndex, KovaList **ppList, uint32_t nKey, void *pData)
{
    if (!KnowsAll(pIndex, *ppList))
        return KovaListTake(ppList, nullptr, pData);
    KovaKeyedNode *pNode = *BucketOf(pIndex, nKey);
    while (pNode != nullptr && pNode->link.data != pData)
        pNode = pNode->pNext;
    if (pNode == nullptr) {
        KovaList *pLink = *ppList;
        while (pLink != nullptr && pLink->data != pData)
            pLink = pLink->next;
        pNode = NodeOf(pLink);
    }
    if (pNode == nullptr)
        return false;
    Take(pIndex, ppList, pNode);
    return true;
}

void *KovaKeyedTakeFirst(KovaKeyedList *pIndex, KovaList **ppList)
{
    if (!KnowsAll(pIndex, *ppList) || *ppList == nullptr)
        return KovaListTakeFirst(ppList, nullptr);
    void *pData = (*ppList)->data;
    Take(pIndex, ppList, NodeOf(*ppList));
    return pData;
}
