#include "tests/soak/resources.h"

#include "tests/robustness/process_state.h"
#include "tests/support/test_server.h"

#include <malloc.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr char kTunables[] = "GLIBC_TUNABLES";
constexpr char kNoCaches[] = "glibc.malloc.tcache_count=0";
constexpr int kSettleMilliseconds = 15000;

std::string Change(const char *szWhat, long nBefore, long nAfter)
{
    return std::string(szWhat) + " " + std::to_string(nBefore) + " -> " + std::to_string(nAfter) +
           "; ";
}

} // namespace

KovaResources KovaTakeResources()
{
    // What is free but not given back yet is not in use.
    malloc_trim(0);
    return {KovaOpenDescriptors(), KovaThreadCount(), KovaHeapInUse()};
}

std::string KovaCompareResources(const KovaResources &before, size_t nHeapSlack,
                                 KovaResources *pAfter)
{
    KovaWaitUntil(kSettleMilliseconds, [&] {
        return KovaOpenDescriptors() == before.nDescriptors && KovaThreadCount() == before.nThreads;
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

void KovaReportResources(const char *szMode, const KovaResources &before,
                         const KovaResources &after)
{
    fprintf(stderr, "%s: descriptors %d -> %d, threads %d -> %d, heap %zu -> %zu bytes\n", szMode,
            before.nDescriptors, after.nDescriptors, before.nThreads, after.nThreads, before.nHeap,
            after.nHeap);
}

void KovaUsePlainHeap(char **ppArguments)
{
    const char *szSet = getenv(kTunables);
    if (szSet != nullptr && strcmp(szSet, kNoCaches) == 0)
        return;
    setenv(kTunables, kNoCaches, 1);
    execv("/proc/self/exe", ppArguments); // comes back only if it is impossible
}
