#include "tests/support/fake_clock.h"

#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <ctime>

namespace {

constexpr int64_t kMillion = 1000000;
constexpr int64_t kBillion = 1000000000;

/// The shown time is the value, plus the real time if the clock runs. Both are
/// in one word, so that readers never see one without the other.
struct KovaShownTime {
    int64_t nMicroseconds : 63;
    bool bRuns : 1;
};
std::atomic<KovaShownTime> g_shown{KovaShownTime{0, true}};
std::atomic<bool> g_bFails{false};
std::atomic<int64_t> g_nMonotonicSeconds{0};

/// From the system itself, because all the library functions for it are below.
struct timespec RealTime(clockid_t nClock)
{
    struct timespec now = {};
    syscall(SYS_clock_gettime, nClock, &now);
    return now;
}

int64_t RealNanoseconds()
{
    const struct timespec now = RealTime(CLOCK_REALTIME);
    return now.tv_sec * kBillion + now.tv_nsec;
}

int64_t ShownNanoseconds()
{
    const KovaShownTime shown = g_shown.load();
    return shown.nMicroseconds * 1000 + (shown.bRuns ? RealNanoseconds() : 0);
}

bool Fails()
{
    if (!g_bFails.load())
        return false;
    errno = EFAULT;
    return true;
}

} // namespace

// These stand in for the functions of the C library in the whole program.

extern "C" int gettimeofday(struct timeval *__restrict pTime, void *__restrict) noexcept
{
    if (Fails())
        return -1;
    const int64_t nNow = ShownNanoseconds() / 1000;
    pTime->tv_sec = nNow / kMillion;
    pTime->tv_usec = nNow % kMillion;
    return 0;
}

extern "C" time_t time(time_t *pTime) noexcept
{
    if (Fails())
        return -1;
    const time_t tNow = ShownNanoseconds() / kBillion;
    if (pTime != nullptr)
        *pTime = tNow;
    return tNow;
}

extern "C" int clock_gettime(clockid_t nClock, struct timespec *pTime) noexcept
{
    if (nClock != CLOCK_REALTIME) {
        const int nResult = static_cast<int>(syscall(SYS_clock_gettime, nClock, pTime));
        if (nClock == CLOCK_MONOTONIC)
            pTime->tv_sec += g_nMonotonicSeconds.load();
        return nResult;
    }
    if (Fails())
        return -1;
    const int64_t nNow = ShownNanoseconds();
    pTime->tv_sec = nNow / kBillion;
    pTime->tv_nsec = nNow % kBillion;
    return 0;
}

KovaFakeClock::~KovaFakeClock()
{
    g_shown.store(KovaShownTime{0, true});
    g_bFails.store(false);
    g_nMonotonicSeconds.store(0);
}

void KovaFakeClock::Fix(int64_t nMicroseconds)
{
    g_shown.store(KovaShownTime{nMicroseconds, false});
}

void KovaFakeClock::StartAt(int64_t nMicroseconds)
{
    g_shown.store(KovaShownTime{nMicroseconds - RealNanoseconds() / 1000, true});
}

void KovaFakeClock::Advance(int64_t nMicroseconds)
{
    KovaShownTime shown = g_shown.load();
    KovaShownTime moved = shown;
    do {
        moved.bRuns = shown.bRuns;
        moved.nMicroseconds = shown.nMicroseconds + nMicroseconds;
    } while (!g_shown.compare_exchange_weak(shown, moved));
}

void KovaFakeClock::AdvanceMonotonic(int64_t nSeconds)
{
    g_nMonotonicSeconds += nSeconds;
}

void KovaFakeClock::Fail(bool bFail)
{
    g_bFails.store(bFail);
}

int64_t KovaFakeClock::Now() const
{
    return ShownNanoseconds() / 1000;
}
