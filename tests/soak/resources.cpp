#include "tests/soak/resources.h"

#include "tests/support/test_server.h"

#include <dirent.h>
#include <malloc.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

// There where a sanitizer's allocator takes the place of the C library's.
extern "C" size_t __sanitizer_get_current_allocated_bytes() __attribute__((weak));

namespace {

constexpr char kTunables[] = "GLIBC_TUNABLES";
constexpr char kNoCaches[] = "glibc.malloc.tcache_count=0";
constexpr int kSettleMilliseconds = 15000;

int CountThreads()
{
    int nCount = 0;
    DIR *pDirectory = opendir("/proc/self/task");
    while (const dirent *pEntry = readdir(pDirectory))
        nCount += pEntry->d_name[0] != '.';
    closedir(pDirectory);
    return nCount;
}

size_t HeapInUse()
{
    if (__sanitizer_get_current_allocated_bytes != nullptr)
        return __sanitizer_get_current_allocated_bytes();
    malloc_trim(0);
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

std::string Change(const char *szWhat, long nBefore, long nAfter)
{
    return std::string(szWhat) + " " + std::to_string(nBefore) + " -> " + std::to_string(nAfter) +
           "; ";
}

} // namespace

KovaResources KovaTakeResources()
{
    return {KovaOpenDescriptors(), CountThreads(), HeapInUse()};
}

std::string KovaCompareResources(const KovaResources &before, size_t nHeapSlack,
                                 KovaResources *pAfter)
{
    KovaWaitUntil(kSettleMilliseconds, [&] {
        return KovaOpenDescriptors() == before.nDescriptors && CountThreads() == before.nThreads;
    });
    *pAfter = KovaTakeResources();
    std::string text;
    if (pAfter->nDescriptors != before.nDescriptors)
        text += Change("descriptors", before.nDescriptors, pAfter->nDescriptors);
    if (pAfter->nThreads != before.nThreads)
        text += Change("threads", before.nThreads, pAfter->nThreads);
    if (pAfter->nHeap > before.nHeap + nHeapSlack)
        text += Change("heap", static_cast<long>(before.nHeap), static_cast<long>(pAfter->nHeap));
    return text;
}

void KovaUsePlainHeap(char **ppArguments)
{
    const char *szSet = getenv(kTunables);
    if (szSet != nullptr && strcmp(szSet, kNoCaches) == 0)
        return;
    setenv(kTunables, kNoCaches, 1);
    execv("/proc/self/exe", ppArguments); // comes back only if it is impossible
}
