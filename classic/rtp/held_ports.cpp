#include "classic/rtp/held_ports.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <atomic>

namespace {

constexpr unsigned kBits = 32;

/// A search that misses a change finds the port taken, or the next one free.
constexpr std::memory_order kRelaxed = std::memory_order_relaxed;

/// A bit for each even port.
std::atomic<uint32_t> g_held[65536 / 2 / kBits];

std::atomic<uint32_t> *WordOf(uint16_t nPort)
{
    return &g_held[nPort / 2 / kBits];
}

uint32_t BitOf(uint16_t nPort)
{
    return uint32_t{1} << (nPort / 2 % kBits);
}

/// The port of a socket; 0 when it has none of IPv4.
uint16_t PortOf(int nSocket)
{
    sockaddr_in address = {};
    socklen_t nSize = sizeof(address);
    if (getsockname(nSocket, reinterpret_cast<sockaddr *>(&address), &nSize) != 0 ||
        address.sin_family != AF_INET)
        return 0;
    return ntohs(address.sin_port);
}

} // namespace

uint16_t KovaHeldPortsNote(int nSocket)
{
    const uint16_t nPort = PortOf(nSocket);
    // A port noted before is somebody else's to take back.
    if (nPort == 0 || nPort % 2 != 0 ||
        (WordOf(nPort)->fetch_or(BitOf(nPort), kRelaxed) & BitOf(nPort)) != 0)
        return 0;
    return nPort;
}

void KovaHeldPortsRelease(uint16_t nPort)
{
    if (nPort != 0)
        WordOf(nPort)->fetch_and(~BitOf(nPort), kRelaxed);
}

bool KovaHeldPortsHave(uint16_t nPort)
{
    return (WordOf(nPort)->load(kRelaxed) & BitOf(nPort)) != 0;
}
