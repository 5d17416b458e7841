#include "foundation/list.h"

#include "foundation/heap.h"

#include <cstdio>

namespace {

void ReportCorruption()
{
    printf("corrupted double-linked list detected");
}

KovaList *FindData(KovaList *pList, const void *pData)
{
    while (pList != nullptr && pList->data != pData)
        pList = pList->next;
    return pList;
}

void TakeNode(KovaList **ppList, KovaList **ppTail, KovaList *pNode)
{
    if (ppTail != nullptr && *ppTail == pNode)
        *ppTail = pNode->prev;
    *ppList = KovaListRemoveLink(*ppList, pNode);
    KovaListFree(pNode);
}

} // namespace

KovaList *KovaListAlloc(void)
{
    return KovaHeapNew<KovaList>();
}

void KovaListFree(KovaList *pNode)
{
    free(pNode);
}

KovaList *KovaListFirst(KovaList *pNode)
{
    while (pNode != nullptr && pNode->prev != nullptr)
        pNode = pNode->prev;
    return pNode;
}

KovaList *KovaListLast(KovaList *pNode)
{
    while (pNode != nullptr && pNode->next != nullptr)
        pNode = pNode->next;
    return pNode;
}

KovaList *KovaListNext(KovaList *pNode)
{
    return pNode != nullptr ? pNode->next : nullptr;
}

KovaList *KovaListPrevious(KovaList *pNode)
{
    return pNode != nullptr ? pNode->prev : nullptr;
}

unsigned KovaListLength(KovaList *pList)
{
    unsigned nCount = 0;
    for (; pList != nullptr; pList = pList->next)
        nCount++;
    return nCount;
}

KovaList *KovaListAppend(KovaList *pList, void *pData)
{
    KovaList *pLast = KovaListLast(pList);
    return KovaListAppendTail(pList, &pLast, pData);
}

KovaList *KovaListAppendTail(KovaList *pList, KovaList **ppTail, void *pData)
{
    // A registry that cannot grow stays as it is: writing through the missing
    // node would take the whole host down for a passing shortage.
    KovaList *pNode = ppTail != nullptr ? KovaListAlloc() : nullptr;
    if (pNode == nullptr)
        return pList;
    pNode->data = pData;
    if (pList == nullptr) {
        *ppTail = pNode;
        return pNode;
    }
    KovaList *pLast = *ppTail != nullptr ? *ppTail : KovaListLast(pList);
    pLast->next = pNode;
    pNode->prev = pLast;
    *ppTail = pNode;
    return pList;
}

KovaList *KovaListRemoveLink(KovaList *pList, KovaList *pNode)
{
    if (pNode == nullptr)
        return pList;
    if (pNode->prev != nullptr) {
        if (pNode->prev->next == pNode)
            pNode->prev->next = pNode->next;
        else
            ReportCorruption();
    }
    if (pNode->next != nullptr) {
        if (pNode->next->prev == pNode)
            pNode->next->prev = pNode->prev;
        else
            ReportCorruption();
    }
    if (pNode == pList)
        pList = pNode->next;
    pNode->prev = nullptr;
    pNode->next = nullptr;
    return pList;
}

KovaList *KovaListRemove(KovaList *pList, void *pData)
{
    KovaListTake(&pList, nullptr, pData);
    return pList;
}

bool KovaListPush(KovaList **ppList, void *pData)
{
    KovaList *pTail = KovaListLast(*ppList);
    return KovaListPushTail(ppList, &pTail, pData);
}

bool KovaListPushTail(KovaList **ppList, KovaList **ppTail, void *pData)
{
    const KovaList *pBefore = *ppTail;
    *ppList = KovaListAppendTail(*ppList, ppTail, pData);
    return *ppTail != pBefore;
}

bool KovaListTake(KovaList **ppList, KovaList **ppTail, void *pData)
{
    KovaList *pNode = FindData(*ppList, pData);
    if (pNode == nullptr)
        return false;
    TakeNode(ppList, ppTail, pNode);
    return true;
}

void *KovaListTakeFirst(KovaList **ppList, KovaList **ppTail)
{
    KovaList *pNode = *ppList;
    if (pNode == nullptr)
        return nullptr;
    void *pData = pNode->data;
    TakeNode(ppList, ppTail, pNode);
    return pData;
}
