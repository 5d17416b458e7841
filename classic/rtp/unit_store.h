#pragma once

#include "foundation/kept_buffer.h"
#include "foundation/list.h"

#include <cstdint>

/// Most bytes of a record in the store.
constexpr size_t kUnitRecordSize = 24;

/// What a packer needs for the NAL units or audio frames of one access unit, used
/// again for the next: their records with the nodes of the list that outsiders read,
/// and, where the bytes are not the packer's to keep, a copy of all of them. Nothing
/// is allocated or freed for one unit. All zero is an empty one. One thread at a time.
struct KovaUnitStore {
    KovaKeptBuffer copy;  ///< of the access unit
    KovaKeptBuffer slots; ///< of the records, in order
    size_t nUsed;         ///< slots that are not linked yet
};

/// Copies an access unit of nLength bytes. What is still needed of the copy before it,
/// nHeld bytes at *ppHeld (may be 0), is moved, and *ppHeld with it. Returns the copy;
/// null for null and without memory.
uint8_t *KovaUnitStoreCopy(KovaUnitStore *pStore, const uint8_t *pData, uint32_t nLength,
                           uint8_t **ppHeld, uint32_t nHeld);

/// Room for the next record, kUnitRecordSize bytes, or null without memory. The others
/// may move.
void *KovaUnitStoreAdd(KovaUnitStore *pStore);

/// Makes a list of all records that were added, in order; both become null when none
/// was.
void KovaUnitStoreLink(KovaUnitStore *pStore, KovaList **ppList, KovaList **ppTail);

/// Takes the first record off such a list, which is not empty. The record stays
/// readable until the next is added.
void *KovaUnitStoreTakeFirst(KovaList **ppList, KovaList **ppTail);

/// Frees all of it.
void KovaUnitStoreFree(KovaUnitStore *pStore);
