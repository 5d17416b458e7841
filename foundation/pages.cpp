#include "foundation/pages.h"

#include <sys/mman.h>

void *KovaPagesAlloc(size_t nSize)
{
    void *pMemory =
        mmap(nullptr, nSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return pMemory != MAP_FAILED ? pMemory : nullptr;
}

void KovaPagesFree(void *pMemory, size_t nSize)
{
    munmap(pMemory, nSize);
}
