#include "tests/support/failing_heap.h"

#include <cerrno>
#include <cstddef>

// The C library's own, and the one that a sanitizer puts in its place.
extern "C" void *__libc_calloc(size_t nCount, size_t nSize) __attribute__((weak));
extern "C" void *__interceptor_calloc(size_t nCount, size_t nSize) __attribute__((weak));

namespace {

thread_local bool t_bArmed = false;
thread_local int t_nGood = 0;
thread_local int t_nFailed = 0;

} // namespace

/// Stands in for the C library's function in the whole program. Threads call it
/// before the thread sanitizer knows them: it must not be instrumented.
extern "C" __attribute__((no_sanitize("thread"))) void *calloc(size_t nCount, size_t nSize) noexcept
{
    if (t_bArmed && t_nGood-- <= 0) {
        t_nGood = 0;
        t_nFailed++;
        errno = ENOMEM;
        return nullptr;
    }
    return __interceptor_calloc != nullptr ? __interceptor_calloc(nCount, nSize)
                                           : __libc_calloc(nCount, nSize);
}

KovaFailingHeap::KovaFailingHeap(int nGood)
{
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
