#include "fuzz/support/require.h"
#include "fuzz/support/world.h"

#include <sys/mman.h>

#include <cstddef>
#include <cstdint>
#include <vector>

// A stream's rings are large. The sanitizer would map, mark and unmap them with every run, which
// takes longer than everything else; so large blocks are kept here, in front of a page that cannot
// be used, and are zero again when they are given out.

extern "C" {
void *__real_malloc(size_t nSize);
void *__real_calloc(size_t nCount, size_t nSize);
void __real_free(void *pBlock);
}

namespace {

constexpr size_t kLarge = 1024 * 1024;
constexpr size_t kPage = 4096;

struct Block {
    void *pMemory;
    size_t nSize;
    bool bTaken;
};
std::vector<Block> g_blocks;

Block *MakeBlock(size_t nSize)
{
    void *pMemory = mmap(nullptr, nSize + kPage, PROT_READ | PROT_WRITE,
                         MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    KovaRequire(pMemory != MAP_FAILED, "memory for a large block");
    mprotect(static_cast<uint8_t *>(pMemory) + nSize, kPage, PROT_NONE);
    g_blocks.push_back({pMemory, nSize, false});
    return &g_blocks.back();
}

bool IsLarge(size_t nSize)
{
    return KovaWorldIsOn() && nSize >= kLarge && nSize % kPage == 0;
}

void *TakeBlock(size_t nSize)
{
    Block *pFree = nullptr;
    for (Block &block : g_blocks) {
        if (!block.bTaken && block.nSize == nSize)
            pFree = &block;
    }
    if (pFree == nullptr)
        pFree = MakeBlock(nSize);
    pFree->bTaken = true;
    return pFree->pMemory;
}

} // namespace

extern "C" void *__wrap_malloc(size_t nSize)
{
    return IsLarge(nSize) ? TakeBlock(nSize) : __real_malloc(nSize);
}

extern "C" void *__wrap_calloc(size_t nCount, size_t nSize)
{
    return IsLarge(nCount * nSize) ? TakeBlock(nCount * nSize) : __real_calloc(nCount, nSize);
}

extern "C" void __wrap_free(void *pMemory)
{
    for (Block &block : g_blocks) {
        if (block.pMemory != pMemory)
            continue;
        KovaRequire(block.bTaken, "no large block is freed twice");
        madvise(pMemory, block.nSize, MADV_DONTNEED);
        block.bTaken = false;
        return;
    }
    __real_free(pMemory);
}
