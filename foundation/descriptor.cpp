#include "foundation/descriptor.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

int KovaDescriptorRaise(int nDescriptor)
{
    if (nDescriptor < 0)
        return -1;
    if (nDescriptor > STDERR_FILENO)
        return nDescriptor;
    const int nRaised = fcntl(nDescriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const int nError = errno;
    close(nDescriptor);
    errno = nError;
    return nRaised;
}
