#include "tests/unit/sleep_shim.h"

#include "tests/support/c_calls.h"

namespace {

thread_local bool t_bCounting = false;
std::atomic<bool> g_bArmed{false};
std::atomic<int> g_nSleeps{0};

/// What the sleeps went to before they were counted.
std::atomic<int (*)(useconds_t)> g_pfnSleep{__real_usleep};

int CountAndSleep(useconds_t nMicroseconds)
{
    if (g_bArmed.load() && !t_bCounting)
        g_nSleeps++;
    return g_pfnSleep.load()(nMicroseconds);
}

} // namespace

KovaSleepCounter::KovaSleepCounter()
{
    t_bCounting = true;
    g_nSleeps = 0;
    g_bArmed = true;
    const auto pfnBefore = KovaStandIn<__real_usleep>.exchange(CountAndSleep);
    if (pfnBefore != nullptr && pfnBefore != CountAndSleep)
        g_pfnSleep = pfnBefore;
}

KovaSleepCounter::~KovaSleepCounter()
{
    g_bArmed = false;
    t_bCounting = false;
}

int KovaSleepCounter::Count() const
{
    return g_nSleeps;
}
