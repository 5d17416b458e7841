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

/// How many bytes the kernel or the device gave, or -1.
ssize_t From(int nDevice, uint8_t *pBytes, size_t nSize)
{
    if (nDevice >= 0)
        return read(nDevice, pBytes, nSize);
#if defined(SYS_getrandom)
    return syscall(SYS_getrandom, pBytes, nSize, kNonBlocking);
#else
    errno = ENOSYS;
    return -1;
#endif
}

/// nDevice: -1: the kernel. @return how many bytes of the buffer are filled.
size_t Fill(int nDevice, uint8_t *pBytes, size_t nSize)
{
    size_t nFilled = 0;
    while (nFilled < nSize) {
        const ssize_t nGot = From(nDevice, pBytes + nFilled, nSize - nFilled);
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
    const size_t nFilled = Fill(nDevice, pBytes, nSize);
    close(nDevice);
    return nFilled;
}

/// Spreads every bit of a word over the word.
uint32_t Mix(uint32_t nValue)
{
    nValue = (nValue ^ nValue >> 16) * 0x7FEB352DU;
    nValue = (nValue ^ nValue >> 15) * 0x846CA68BU;
    return nValue ^ nValue >> 16;
}

uint32_t Nanoseconds(clockid_t nClock)
{
    struct timespec now = {};
    clock_gettime(nClock, &now);
    return Mix(static_cast<uint32_t>(now.tv_sec)) ^ static_cast<uint32_t>(now.tv_nsec);
}

void FillFromClocks(uint8_t *pBytes, size_t nSize)
{
    static std::atomic<uint32_t> s_nCount{0};
    uint32_t nState = Mix(Nanoseconds(CLOCK_REALTIME));
    nState = Mix(nState ^ Nanoseconds(CLOCK_MONOTONIC));
    nState = Mix(nState ^ static_cast<uint32_t>(reinterpret_cast<uintptr_t>(pBytes)));
    nState = Mix(nState ^ static_cast<uint32_t>(getpid()));
    nState ^= Mix(s_nCount.fetch_add(1, std::memory_order_relaxed));
    for (size_t nIndex = 0; nIndex < nSize; nIndex++)
        pBytes[nIndex] = static_cast<uint8_t>(Mix(nState += 0x9E3779B9U));
}

} // namespace

bool KovaRandomFill(void *pBytes, size_t nSize)
{
    uint8_t *pNext = static_cast<uint8_t *>(pBytes);
    size_t nFilled = Fill(-1, pNext, nSize);
    if (nFilled < nSize)
        nFilled += FillFromDevice(pNext + nFilled, nSize - nFilled);
    if (nFilled < nSize)
        FillFromClocks(pNext + nFilled, nSize - nFilled);
    return nFilled == nSize;
}
