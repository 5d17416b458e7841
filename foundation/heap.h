#pragma once

#include <cstddef>
#include <cstdlib>
#include <new>

/// Returns nSize zeroed bytes (at least one), or null when memory is exhausted.
/// Zeroed on purpose everywhere: nothing that a packet or a record leaves
/// unfilled may carry old heap content. Freed with free().
inline void *KovaHeapAlloc(size_t nSize)
{
    return calloc(1, nSize != 0 ? nSize : 1);
}

/// Makes a zeroed record on the heap, or returns null. A template because the
/// library has no operator new and the record's type must be constructed.
template <typename Record> Record *KovaHeapNew()
{
    void *pMemory = KovaHeapAlloc(sizeof(Record));
    return pMemory != nullptr ? new (pMemory) Record() : nullptr;
}
