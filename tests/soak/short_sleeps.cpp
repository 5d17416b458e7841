#include "tests/soak/short_sleeps.h"

#include "tests/support/c_calls.h"

namespace {

constexpr useconds_t kLong = 100000;

std::atomic<unsigned> g_nDivisor{1};

int Sleep(useconds_t nMicroseconds)
{
    return __real_usleep(nMicroseconds < kLong ? nMicroseconds : nMicroseconds / g_nDivisor.load());
}

} // namespace

KovaShortSleeps::KovaShortSleeps(unsigned nDivisor)
{
    g_nDivisor = nDivisor;
    KovaReplaceCall<__real_usleep>(Sleep);
}

KovaShortSleeps::~KovaShortSleeps()
{
    g_nDivisor = 1;
}
