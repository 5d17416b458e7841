#pragma once

#include <cstddef>
#include <cstdlib>
#include <new>
#include <type_traits>

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
    // Zeroed memory is what such a record would be made into.
    if constexpr (std::is_trivially_default_constructible_v<Record>)
        return static_cast<Record *>(pMemory);
    else
        return pMemory != nullptr ? new (pMemory) Record() : nullptr;
}
