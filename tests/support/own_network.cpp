#include "tests/support/own_network.h"

#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

namespace {

int BoundSocket(uint16_t nPort)
{
    const int nSocket = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(nPort);
    if (bind(nSocket, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0)
        return nSocket;
    close(nSocket);
    return -1;
}

} // namespace

bool KovaUseOwnNetwork()
{
    if (unshare(CLONE_NEWNET) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0)
        return false;
    const int nSocket = socket(AF_INET, SOCK_DGRAM, 0);
    struct ifreq request = {};
    memcpy(request.ifr_name, "lo", sizeof("lo"));
    request.ifr_flags = IFF_UP;
    const bool bUp = ioctl(nSocket, SIOCSIFFLAGS, &request) == 0;
    close(nSocket);
    return bUp;
}

uint16_t KovaFirstFreePair(uint16_t nFrom)
{
    for (unsigned nPort = nFrom; nPort <= 65533; nPort += 2) {
        const KovaHeldPort first(static_cast<uint16_t>(nPort));
        const KovaHeldPort second(static_cast<uint16_t>(nPort + 1));
        if (first.IsHeld() && second.IsHeld())
            return static_cast<uint16_t>(nPort);
    }
    return 0;
}

KovaHeldPort::KovaHeldPort(uint16_t nPort) : m_nSocket(BoundSocket(nPort)) {}

KovaHeldPort::~KovaHeldPort()
{
    if (m_nSocket >= 0)
        close(m_nSocket);
}
