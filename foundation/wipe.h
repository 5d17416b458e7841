#pragma once

#include <cstddef>
#include <cstring>

/// Overwrites what held a password, a key or what was made of one. A plain memset of
/// memory that nobody reads again is left out by the compiler.
inline void KovaWipe(void *pMemory, size_t nSize)
{
    memset(pMemory, 0, nSize);
    __asm__ volatile("" : : "r"(pMemory) : "memory");
}
