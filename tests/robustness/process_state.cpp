#include "tests/robustness/process_state.h"

#include <dirent.h>
#include <fcntl.h>
#include <malloc.h>

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
    int nCount = 0;
    DIR *pDirectory = opendir("/proc/self/task");
    if (pDirectory == nullptr)
        return -1;
    while (const dirent *pEntry = readdir(pDirectory))
        nCount += pEntry->d_name[0] != '.';
    closedir(pDirectory);
    return nCount;
}

int KovaDescriptorCount()
{
    int nCount = 0;
    for (int nDescriptor = 0; nDescriptor <= kHighestDescriptor; nDescriptor++)
        nCount += fcntl(nDescriptor, F_GETFD) >= 0;
    return nCount;
}
