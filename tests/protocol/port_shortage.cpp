#include "tests/protocol/port_shortage.h"

#include "tests/support/c_calls.h"

#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

std::atomic<int> g_nFirstFree{0};
std::atomic<int> g_nRefused{0};

bool IsUdp(int nSocket)
{
    int nType = 0;
    socklen_t nSize = sizeof(nType);
    return getsockopt(nSocket, SOL_SOCKET, SO_TYPE, &nType, &nSize) == 0 && nType == SOCK_DGRAM;
}

void SetLimit(rlim_t nLimit)
{
    struct rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = nLimit;
    setrlimit(RLIMIT_NOFILE, &limit);
}

int Bind(int nSocket, const sockaddr *pAddress, socklen_t nSize)
{
    sockaddr_in address = {};
    memcpy(&address, pAddress, nSize < sizeof(address) ? nSize : sizeof(address));
    if (address.sin_family == AF_INET && ntohs(address.sin_port) < g_nFirstFree && IsUdp(nSocket)) {
        g_nRefused++;
        errno = EADDRINUSE;
        return -1;
    }
    return __real_bind(nSocket, pAddress, nSize);
}

} // namespace

KovaPortShortage::KovaPortShortage(int nFirstFree)
{
    g_nRefused = 0;
    g_nFirstFree = nFirstFree;
    KovaReplaceCall<__real_bind>(Bind);
}

KovaPortShortage::~KovaPortShortage()
{
    g_nFirstFree = 0;
}

int KovaPortShortage::Refused() const
{
    return g_nRefused;
}

KovaDescriptorShortage::KovaDescriptorShortage()
{
    struct rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    m_nLimit = limit.rlim_cur;
    // The lowest free number and everything above are out of reach.
    const int nFree = dup(STDERR_FILENO);
    close(nFree);
    SetLimit(static_cast<rlim_t>(nFree));
}

KovaDescriptorShortage::~KovaDescriptorShortage()
{
    SetLimit(m_nLimit);
}
