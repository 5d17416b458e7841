#include "foundation/random.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <ctime>

namespace {

/// GRND_NONBLOCK of linux/random.h, which older systems lack.
[[maybe_unused]] constexpr unsigned kNonBlocking = 1;

/// Both sources return how many bytes they gave, or -1.
ssize_t FromKernel([[maybe_unused]] uint8_t *pBytes, [[maybe_unused]] size_t nSize)
{
#if defined(SYS_getrandom)
    return syscall(SYS_getrandom, pBytes, nSize, kNonBlocking);
#else
    errno = ENOSYS;
    return -1;
#endif
}

/// @return how many bytes of the buffer are filled.
size_t FillFromKernel(uint8_t *pBytes, size_t nSize)
{
    size_t nFilled = 0;
    while (nFilled < nSize) {
        const ssize_t nGot = FromKernel(pBytes + nFilled, nSize - nFilled);
        if (nGot > 0)
            nFilled += static_cast<size_t>(nGot);
        else if (nGot == 0 || errno != EINTR)
            break;
    }
    return nFilled;
}

size_t FillFromDevice(uint8_t *pBytes, size_t nSize)
{
    const int nDevice = open("/dev/urandom", O_RDONLY | O_CLOEXEC);
    if (nDevice < 0)
        return 0;
    size_t nFilled = 0;
    while (nFilled < nSize) {
        const ssize_t nGot = read(nDevice, pBytes + nFilled, nSize - nFilled);
        if (nGot > 0)
            nFilled += static_cast<size_t>(nGot);
        else if (nGot == 0 || errno != EINTR)
            break;
    }
    close(nDevice);
    return nFilled;
}

/// One step of SplitMix64: every bit of the state reaches every bit of the result.
uint64_t Mix(uint64_t *pState)
{
    uint64_t nValue = (*pState += 0x9E3779B97F4A7C15U);
    nValue = (nValue ^ nValue >> 30) * 0xBF58476D1CE4E5B9U;
    nValue = (nValue ^ nValue >> 27) * 0x94D049BB133111EBU;
    return nValue ^ nValue >> 31;
}

uint64_t Nanoseconds(clockid_t nClock)
{
    struct timespec now = {};
    clock_gettime(nClock, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000000U + static_cast<uint64_t>(now.tv_nsec);
}

void FillFromClocks(uint8_t *pBytes, size_t nSize)
{
    static std::atomic<uint32_t> s_nCount{0};
    uint64_t nState = Nanoseconds(CLOCK_REALTIME) ^ Nanoseconds(CLOCK_MONOTONIC) << 24;
    nState ^= static_cast<uint64_t>(reinterpret_cast<uintptr_t>(pBytes)) << 17;
    nState ^= static_cast<uint64_t>(getpid()) << 40;
    nState += static_cast<uint64_t>(s_nCount.fetch_add(1)) << 32;
    uint64_t nValue = 0;
    for (size_t nIndex = 0; nIndex < nSize; nIndex++) {
        if (nIndex % 8 == 0)
            nValue = Mix(&nState);
        pBytes[nIndex] = static_cast<uint8_t>(nValue >> nIndex % 8 * 8);
    }
}

} // namespace

bool KovaRandomFill(void *pBytes, size_t nSize)
{
    uint8_t *pNext = static_cast<uint8_t *>(pBytes);
    size_t nFilled = FillFromKernel(pNext, nSize);
    if (nFilled < nSize)
        nFilled += FillFromDevice(pNext + nFilled, nSize - nFilled);
    if (nFilled < nSize)
        FillFromClocks(pNext + nFilled, nSize - nFilled);
    return nFilled == nSize;
}
