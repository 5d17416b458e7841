#include "tests/support/failing_heap.h"

#include "tests/support/c_calls.h"

#include <cerrno>

namespace {

thread_local bool t_bArmed = false;
thread_local int t_nGood = 0;
thread_local int t_nFailed = 0;

void *Calloc(size_t nCount, size_t nSize)
{
    if (!t_bArmed || t_nGood-- > 0)
        return __real_calloc(nCount, nSize);
    t_nGood = 0;
    t_nFailed++;
    errno = ENOMEM;
    return nullptr;
}

} // namespace

KovaFailingHeap::KovaFailingHeap(int nGood)
{
    KovaReplaceCall<__real_calloc>(Calloc);
    t_nGood = nGood;
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
