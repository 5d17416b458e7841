#include "tests/robustness/process_state.h"

#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace {

constexpr int kHighestDescriptor = 8191;

} // namespace

// Only there when a sanitizer brings an allocator of its own.
extern "C" __attribute__((weak)) size_t __sanitizer_get_current_allocated_bytes();

size_t KovaHeapInUse()
{
    if (__sanitizer_get_current_allocated_bytes != nullptr)
        return __sanitizer_get_current_allocated_bytes();
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

int KovaThreadCount()
{
    // Not by reading the directory: the thread sanitizer does not see it opened,
    // and takes its number for the one that another thread had before.
    char szStatus[4096] = {};
    const int nFile = open("/proc/self/status", O_RDONLY);
    const ssize_t nRead = read(nFile, szStatus, sizeof(szStatus) - 1);
    close(nFile);
    const char *pCount = nRead > 0 ? strstr(szStatus, "Threads:") : nullptr;
    return pCount == nullptr ? -1 : atoi(pCount + strlen("Threads:"));
}

int KovaDescriptorCount()
{
    int nCount = 0;
    for (int nDescriptor = 0; nDescriptor <= kHighestDescriptor; nDescriptor++)
        nCount += fcntl(nDescriptor, F_GETFD) >= 0;
    return nCount;
}
