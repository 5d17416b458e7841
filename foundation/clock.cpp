#include "foundation/clock.h"

#include <sys/time.h>

#include <ctime>

int32_t RtspGetTime(uint64_t *pTime)
{
    struct timeval now;
    if (pTime == nullptr || gettimeofday(&now, nullptr) != 0)
        return 0;
    const uint32_t nMicroseconds =
        static_cast<uint32_t>(now.tv_sec) * 1000000U + static_cast<uint32_t>(now.tv_usec);
    *pTime = static_cast<uint64_t>(static_cast<int64_t>(static_cast<int32_t>(nMicroseconds)));
    return 1;
}

uint64_t KovaClockMilliseconds()
{
    uint64_t nMicroseconds = 0;
    RtspGetTime(&nMicroseconds);
    // The upper word is all zeros or all ones. Dividing the two words one after the other spares
    // the boards, which divide 32 bits only, the compiler's routine for 64.
    const uint32_t nLow = static_cast<uint32_t>(nMicroseconds);
    if (nMicroseconds >> 32 == 0)
        return nLow / 1000;
    // 2^64 is kWhole thousands and kRest; nBelow is what is missing to 2^64.
    constexpr uint64_t kWhole = 18446744073709551U;
    constexpr uint32_t kRest = 616;
    const uint32_t nBelow = 0U - nLow;
    return kWhole - (nBelow + 999 - kRest) / 1000;
}

uint64_t KovaClockMonotonic()
{
    struct timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000U + static_cast<uint32_t>(now.tv_nsec) / 1000;
}

int32_t KovaClockSeconds()
{
    return static_cast<int32_t>(static_cast<uint32_t>(time(nullptr)));
}

int32_t KovaClockSecondsBetween(int32_t nThen, int32_t nNow)
{
    return static_cast<int32_t>(static_cast<uint32_t>(nNow) - static_cast<uint32_t>(nThen));
}

int32_t KovaClockSecondsAfter(int32_t tMoment, int32_t nSeconds)
{
    return static_cast<int32_t>(static_cast<uint32_t>(tMoment) + static_cast<uint32_t>(nSeconds));
}
