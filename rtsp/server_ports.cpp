#include "rtsp/server_ports.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr unsigned kFirstPort = 6970;
constexpr unsigned kLastPort = 65533;

/// A search for a port pair.
struct Search {
    int32_t *pRtpSocket;
    int32_t *pRtcpSocket;
    bool bHoldsZero; ///< descriptor 0 came up; kept until the end, or it would come again
};

/// Opens a UDP socket. Descriptor 0 does not count: a client with it would never
/// close it.
bool OpenSocket(Search *pSearch, int32_t *pSocket)
{
    *pSocket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP);
    if (*pSocket == 0)
        pSearch->bHoldsZero = true;
    return *pSocket > 0;
}

bool Bind(int nSocket, unsigned nPort)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(nPort));
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    return bind(nSocket, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0;
}

bool TryPair(Search *pSearch, unsigned nPort)
{
    if (!OpenSocket(pSearch, pSearch->pRtpSocket))
        return false;
    if (!Bind(*pSearch->pRtpSocket, nPort) || !OpenSocket(pSearch, pSearch->pRtcpSocket)) {
        close(*pSearch->pRtpSocket);
        return false;
    }
    if (!Bind(*pSearch->pRtcpSocket, nPort + 1)) {
        close(*pSearch->pRtpSocket);
        close(*pSearch->pRtcpSocket);
        return false;
    }
    return true;
}

} // namespace

void GetServerPort(uint16_t, uint16_t, uint16_t *pRtpPort, uint16_t *pRtcpPort, int32_t *pRtpSocket,
                   int32_t *pRtcpSocket)
{
    if (pRtpPort == nullptr || pRtcpPort == nullptr || pRtpSocket == nullptr ||
        pRtcpSocket == nullptr)
        return;
    Search search = {pRtpSocket, pRtcpSocket, false};
    unsigned nPort = kFirstPort;
    while (nPort <= kLastPort && !TryPair(&search, nPort))
        nPort += 2;
    if (search.bHoldsZero)
        close(0);
    if (nPort > kLastPort)
        return;
    const int nFlags = fcntl(*pRtcpSocket, F_GETFL) | O_NONBLOCK;
    fcntl(*pRtpSocket, F_SETFL, nFlags);
    fcntl(*pRtcpSocket, F_SETFL, nFlags);
    *pRtpPort = static_cast<uint16_t>(nPort);
    *pRtcpPort = static_cast<uint16_t>(nPort + 1);
}
