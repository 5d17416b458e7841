#pragma once

#include "foundation/list.h"

#include <cstdint>

struct KovaKeyedNode;

/// Keys to the nodes of a list, which stays what it was: look-up, appending and
/// removal take a time that does not depend on its length. Zeroed for an empty
/// list. A look-up allocates nothing; for 4 nodes there is about one bucket, and
/// the few buckets of an empty list are given back. Takes no lock.
///
/// Whoever else reads the list sees the same nodes in the same order. Nodes that
/// somebody else puts at its front or its end are noticed: from then on, until
/// the list is empty, the calls walk it. Nodes made here are removed by these
/// calls only.
struct KovaKeyedList {
    KovaKeyedNode **ppBuckets; ///< null as long as pOnlyBucket will do
    KovaKeyedNode *pOnlyBucket;
    uint32_t nBits; ///< there are 2^nBits buckets
    uint32_t nCount;
    const KovaList *pFirst; ///< as this index left the list
    KovaList *pLast;
};

/// Whether an element is the wanted one.
using KovaKeyedMatch = bool (*)(const void *pData, const void *pWanted);

/// The key of a text, of an address.
uint32_t KovaKeyOfText(const char *szText);
uint32_t KovaKeyOfAddress(const void *pAddress);

/// Appends pData to the list at *ppList. False, and nothing has changed, when
/// memory is exhausted.
bool KovaKeyedPush(KovaKeyedList *pIndex, KovaList **ppList, uint32_t nKey, void *pData);

/// The first element that was appended with the key and matches; null elements
/// are skipped. Null when there is none.
void *KovaKeyedFind(KovaKeyedList *pIndex, KovaList *pList, uint32_t nKey, KovaKeyedMatch pfnMatch,
                    const void *pWanted);

/// Removes the first node that holds pData. With a wrong key it is found all the
/// same, by walking. Returns whether there was one.
bool KovaKeyedTake(KovaKeyedList *pIndex, KovaList **ppList, uint32_t nKey, void *pData);

/// Removes the first node and returns its data, null when the list is empty.
void *KovaKeyedTakeFirst(KovaKeyedList *pIndex, KovaList **ppList);

/// The same by reference, for the analysis of locks (foundation/list.h).
inline bool KovaKeyedPush(KovaKeyedList *pIndex, KovaList *&pList, uint32_t nKey, void *pData)
{
    return KovaKeyedPush(pIndex, &pList, nKey, pData);
}
inline bool KovaKeyedTake(KovaKeyedList *pIndex, KovaList *&pList, uint32_t nKey, void *pData)
{
    return KovaKeyedTake(pIndex, &pList, nKey, pData);
}
inline void *KovaKeyedTakeFirst(KovaKeyedList *pIndex, KovaList *&pList)
{
    return KovaKeyedTakeFirst(pIndex, &pList);
}
