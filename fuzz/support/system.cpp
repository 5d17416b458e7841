#include "fuzz/support/network.h"
#include "fuzz/support/require.h"
#include "fuzz/support/world.h"
#include "tests/support/c_calls.h"

#include <linux/futex.h>
#include <pthread.h>
#include <sys/syscall.h>

#include <cerrno>
#include <cstdio>

// The library's calls come here; those in front by the stand-ins that tests use as well, those with
// __wrap_ in their names by the linker at once.

extern "C" {
void __real_srand(unsigned nSeed);
int __real_pthread_mutex_lock(pthread_mutex_t *pMutex);
}

namespace {

constexpr int64_t kMillion = 1000000;
constexpr int64_t kLockStep = 100; // how long a thread that found a mutex locked looks away, us

/// Threads that idle look up less often by themselves than in the real world: mostly it is the
/// wake-ups that have to work, and a run is not spent on looking.
constexpr int64_t kIdleFactor = 10;

uint32_t g_nRandom = 1;

time_t Time(time_t *pTime)
{
    if (!KovaWorldIsOn())
        return __real_time(pTime);
    const time_t tNow = KovaWorldNow() / kMillion;
    if (pTime != nullptr)
        *pTime = tNow;
    return tNow;
}

int GetTimeOfDay(timeval *pTime, void *pZone)
{
    if (!KovaWorldIsOn())
        return __real_gettimeofday(pTime, pZone);
    pTime->tv_sec = KovaWorldNow() / kMillion;
    pTime->tv_usec = KovaWorldNow() % kMillion;
    return 0;
}

int Sleep(useconds_t nMicroseconds)
{
    if (!KovaWorldIsOn())
        return __real_usleep(nMicroseconds);
    KovaWorldSleep(nMicroseconds);
    return 0;
}

int Rand()
{
    if (!KovaWorldIsOn())
        return __real_rand();
    g_nRandom = g_nRandom * 1664525U + 1013904223U;
    return static_cast<int>(g_nRandom >> 8);
}

int Poll(pollfd *pEntries, nfds_t nCount, int nMilliseconds)
{
    if (!KovaWorldIsOn())
        return __real_poll(pEntries, nCount, nMilliseconds);
    int nReady = __real_poll(pEntries, nCount, 0);
    for (nfds_t n = 0; n < nCount; n++) {
        if (pEntries[n].revents == 0 && KovaNetworkReportWaits(pEntries[n].fd)) {
            pEntries[n].revents = POLLIN;
            nReady++;
        }
    }
    if (nReady != 0 || nMilliseconds == 0)
        return nReady;
    // Without end is until something happens: longer than any world lasts.
    constexpr int64_t kWithoutEnd = int64_t{365} * 24 * 3600 * 1000000;
    KovaWorldSleep(nMilliseconds < 0 ? kWithoutEnd : int64_t{nMilliseconds} * 1000,
                   KovaWorldSockets());
    return __real_poll(pEntries, nCount, 0);
}

int CreateThread(pthread_t *pThread, const pthread_attr_t *pAttributes, void *(*pfnBody)(void *),
                 void *pArgument)
{
    if (!KovaWorldIsOn())
        return __real_pthread_create(pThread, pAttributes, pfnBody, pArgument);
    *pThread = pthread_self();
    KovaWorldStartThread(pfnBody, pArgument);
    return 0;
}

/// The library's events are futexes.
long SystemCall(long nNumber, long nFirst, long nSecond, long nThird, long nFourth, long nFifth,
                long nSixth)
{
    if (!KovaWorldIsOn() || nNumber != SYS_futex)
        return __real_syscall(nNumber, nFirst, nSecond, nThird, nFourth, nFifth, nSixth);
    const void *pWord = reinterpret_cast<const void *>(nFirst);
    if (nSecond == FUTEX_WAKE_PRIVATE) {
        KovaWorldWake(pWord);
        return 1;
    }
    KovaRequire(nSecond == FUTEX_WAIT_PRIVATE, "no other futex operation is used");
    const long *pTimeout = reinterpret_cast<const long *>(nFourth);
    KovaWorldSleep(kIdleFactor * (pTimeout[0] * kMillion + pTimeout[1] / 1000), pWord);
    return 0;
}

/// Stands in for the calls from the start of the program.
const bool g_bReplaced = [] {
    KovaReplaceCall<__real_time>(Time);
    KovaReplaceCall<__real_gettimeofday>(GetTimeOfDay);
    KovaReplaceCall<__real_usleep>(Sleep);
    KovaReplaceCall<__real_rand>(Rand);
    KovaReplaceCall<__real_poll>(Poll);
    KovaReplaceCall<__real_pthread_create>(CreateThread);
    KovaReplaceCall<__real_syscall>(SystemCall);
    return true;
}();

} // namespace

extern "C" void __wrap_srand(unsigned nSeed)
{
    if (KovaWorldIsOn())
        g_nRandom = nSeed;
    else
        __real_srand(nSeed);
}

/// A mutex that is locked here is locked by a thread that sleeps: it gets its turn. Two that wait
/// for each other are found out by the world's limit on waits and turns.
extern "C" int __wrap_pthread_mutex_lock(pthread_mutex_t *pMutex)
{
    if (!KovaWorldIsOn())
        return __real_pthread_mutex_lock(pMutex);
    int nResult;
    while ((nResult = pthread_mutex_trylock(pMutex)) == EBUSY)
        KovaWorldSleep(kLockStep);
    return nResult;
}

// ---- The fuzz programs themselves
// ----------------------------------------------------------------

/// What the library prints is of no interest; the fuzzer itself prints on standard error.
extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    setenv("TZ", "UTC0", 1);
    KovaRequire(freopen("/dev/null", "w", stdout) != nullptr, "standard output can be silenced");
    return 0;
}

/// Streams have 16 MiB of rings each: a large quarantine would only be full of them.
extern "C" const char *__asan_default_options()
{
    return "quarantine_size_mb=32:detect_stack_use_after_return=0";
}
