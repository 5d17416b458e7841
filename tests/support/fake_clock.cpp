#include "tests/support/fake_clock.h"

#include "tests/support/c_calls.h"

#include <atomic>
#include <cerrno>

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

int64_t RealNanoseconds()
{
    timespec now = {};
    __real_clock_gettime(CLOCK_REALTIME, &now);
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

int GetTimeOfDay(timeval *pTime, void *)
{
    if (Fails())
        return -1;
    const int64_t nNow = ShownNanoseconds() / 1000;
    pTime->tv_sec = nNow / kMillion;
    pTime->tv_usec = nNow % kMillion;
    return 0;
}

time_t Time(time_t *pTime)
{
    if (Fails())
        return -1;
    const time_t tNow = ShownNanoseconds() / kBillion;
    if (pTime != nullptr)
        *pTime = tNow;
    return tNow;
}

int GetClock(clockid_t nClock, timespec *pTime)
{
    if (nClock != CLOCK_REALTIME) {
        const int nResult = __real_clock_gettime(nClock, pTime);
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

} // namespace

KovaFakeClock::KovaFakeClock()
{
    KovaReplaceCall<__real_gettimeofday>(GetTimeOfDay);
    KovaReplaceCall<__real_time>(Time);
    KovaReplaceCall<__real_clock_gettime>(GetClock);
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
