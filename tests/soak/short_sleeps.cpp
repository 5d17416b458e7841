#include "tests/soak/short_sleeps.h"

#include <unistd.h>

#include <atomic>
#include <ctime>

namespace {

constexpr unsigned kLong = 100000;
constexpr unsigned kMillion = 1000000;

std::atomic<unsigned> g_nDivisor{1};

} // namespace

/// Stands in for the C library's function in the whole program.
extern "C" int usleep(useconds_t nMicroseconds)
{
    const unsigned nTime =
        nMicroseconds < kLong ? nMicroseconds : nMicroseconds / g_nDivisor.load();
    const struct timespec time = {static_cast<time_t>(nTime / kMillion),
                                  static_cast<long>(nTime % kMillion) * 1000};
    return nanosleep(&time, nullptr);
}

KovaShortSleeps::KovaShortSleeps(unsigned nDivisor)
{
    g_nDivisor = nDivisor;
}

KovaShortSleeps::~KovaShortSleeps()
{
    g_nDivisor = 1;
}
