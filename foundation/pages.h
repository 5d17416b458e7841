#pragma once

#include <cstddef>

/// Returns nSize zeroed bytes in pages of their own, or null when memory is
/// exhausted. For large records of which most is never written: a page takes memory
/// from its first write on only, while the heap would zero, and so write, memory
/// that somebody had before. Given back with KovaPagesFree.
void *KovaPagesAlloc(size_t nSize);

/// Gives pages back to the system. nSize as asked for.
void KovaPagesFree(void *pMemory, size_t nSize);
