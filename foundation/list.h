#pragma once

#include "foundation/export.h"

#include <cstddef>

/// Doubly linked list of untyped pointers, named by its first node; the empty
/// list is null. Every operation that can change the first node returns it. The
/// list owns its nodes, never the data, and takes no lock.
/// Frozen: callers from outside read the fields at these places.
struct KovaList {
    void *data;
    KovaList *prev;
    KovaList *next;
};

/// A new node with all fields null, or null when memory is exhausted.
KOVA_API KovaList *KovaListAlloc(void);

/// Frees a node, not its data. Null is ignored.
KOVA_API void KovaListFree(KovaList *pNode);

/// The first node of the list that pNode belongs to; null for null.
KOVA_API KovaList *KovaListFirst(KovaList *pNode);

/// The last node of the list that pNode belongs to; null for null.
KOVA_API KovaList *KovaListLast(KovaList *pNode);

/// The next node, or null.
KOVA_API KovaList *KovaListNext(KovaList *pNode);

/// The previous node, or null.
KOVA_API KovaList *KovaListPrevious(KovaList *pNode);

/// Number of nodes from pList on.
KOVA_API unsigned KovaListLength(KovaList *pList);

/// Appends pData behind the last node, found by walking. Returns the first
/// node; without memory the list comes back as it was.
KOVA_API KovaList *KovaListAppend(KovaList *pList, void *pData);

/// The same in constant time: *ppTail is the caller's last node and is moved.
KOVA_API KovaList *KovaListAppendTail(KovaList *pList, KovaList **ppTail, void *pData);

/// Unlinks a node without freeing it and returns the first node. A neighbour
/// whose link does not lead back is reported on standard output and left alone.
KOVA_API KovaList *KovaListRemoveLink(KovaList *pList, KovaList *pNode);

/// Unlinks and frees the first node that holds pData; returns the first node.
KOVA_API KovaList *KovaListRemove(KovaList *pList, void *pData);

/// Appends to the list at *ppList. Returns false, and changes nothing, when
/// memory is exhausted.
bool KovaListPush(KovaList **ppList, void *pData);

/// Appends to a list with a tail reference. Returns false, and changes nothing,
/// when memory is exhausted.
bool KovaListPushTail(KovaList **ppList, KovaList **ppTail, void *pData);

/// Removes the first node that holds pData and keeps *ppTail on a live node
/// (ppTail may be null). Returns whether there was one.
bool KovaListTake(KovaList **ppList, KovaList **ppTail, void *pData);

/// Removes the first node and returns its data, null when the list is empty.
/// ppTail may be null.
void *KovaListTakeFirst(KovaList **ppList, KovaList **ppTail);

/// The same by reference: so the analysis of locks sees a list being changed, which
/// it does not where only its address is taken.
inline bool KovaListPush(KovaList *&pList, void *pData)
{
    return KovaListPush(&pList, pData);
}
inline bool KovaListPushTail(KovaList *&pList, KovaList *&pTail, void *pData)
{
    return KovaListPushTail(&pList, &pTail, pData);
}
inline bool KovaListTake(KovaList *&pList, KovaList *&pTail, void *pData)
{
    return KovaListTake(&pList, &pTail, pData);
}
inline bool KovaListTake(KovaList *&pList, std::nullptr_t, void *pData)
{
    return KovaListTake(&pList, nullptr, pData);
}
