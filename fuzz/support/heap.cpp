#include "fuzz/support/require.h"
#include "fuzz/support/world.h"
#include "tests/support/c_calls.h"

#include <sys/mman.h>

#include <cstddef>
#include <cstdint>
#include <vector>

// A stream's rings are large. The sanitizer would map, mark and unmap them with every run, which
// takes longer than everything else; so large blocks are kept here, in front of a page that cannot
// be used, and are zero again when they are given out.

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

void *Malloc(size_t nSize)
{
    return IsLarge(nSize) ? TakeBlock(nSize) : __real_malloc(nSize);
}

void *Calloc(size_t nCount, size_t nSize)
{
    return IsLarge(nCount * nSize) ? TakeBlock(nCount * nSize) : __real_calloc(nCount, nSize);
}

void Free(void *pMemory)
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

/// Stands in for the calls from the start of the program.
const bool g_bReplaced = [] {
    KovaReplaceCall<__real_malloc>(Malloc);
    KovaReplaceCall<__real_calloc>(Calloc);
    KovaReplaceCall<__real_free>(Free);
    return true;
}();

} // namespace
