#include "tests/unit/sleep_shim.h"

#include <unistd.h>

#include <atomic>
#include <ctime>

namespace {

constexpr unsigned kMillion = 1000000;

thread_local bool t_bCounting = false;
std::atomic<bool> g_bArmed{false};
std::atomic<int> g_nSleeps{0};

} // namespace

/// Stands in for the C library's function in the whole program.
extern "C" int usleep(useconds_t nMicroseconds)
{
    if (g_bArmed.load() && !t_bCounting)
        g_nSleeps++;
    const struct timespec time = {static_cast<time_t>(nMicroseconds / kMillion),
                                  static_cast<long>(nMicroseconds % kMillion) * 1000};
    return nanosleep(&time, nullptr);
}

KovaSleepCounter::KovaSleepCounter()
{
    t_bCounting = true;
    g_nSleeps = 0;
    g_bArmed = true;
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
