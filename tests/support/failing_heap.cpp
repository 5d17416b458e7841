#include "tests/support/failing_heap.h"

#include "tests/support/c_calls.h"

#include <sys/mman.h>

#include <cerrno>

namespace {

thread_local bool t_bArmed = false;
thread_local int t_nGood = 0;
thread_local int t_nBad = 0;
thread_local int t_nFailed = 0;

bool Fails()
{
    if (!t_bArmed || t_nGood-- > 0)
        return false;
    t_nGood = 0;
    if (t_nFailed == t_nBad)
        return false;
    t_nFailed++;
    errno = ENOMEM;
    return true;
}

void *Calloc(size_t nCount, size_t nSize)
{
    return Fails() ? nullptr : __real_calloc(nCount, nSize);
}

void *Map(void *pWish, size_t nSize, int nProtection, int nFlags, int nFile, off_t nOffset)
{
    return Fails() ? MAP_FAILED : __real_mmap(pWish, nSize, nProtection, nFlags, nFile, nOffset);
}

} // namespace

KovaFailingHeap::KovaFailingHeap(int nGood, int nBad)
{
    KovaReplaceCall<__real_calloc>(Calloc);
    KovaReplaceCall<__real_mmap>(Map);
    t_nGood = nGood;
    t_nBad = nBad;
    t_nFailed = 0;
    t_bArmed = true;
}

KovaFailingHeap::~KovaFailingHeap()
{
    t_bArmed = false;
}

int KovaFailingHeap::Failed() const
{
    return t_nFailed;
}
