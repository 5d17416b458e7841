#include "classic/rtsp/server_ports.h"

#include "classic/rtp/held_ports.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace {

constexpr unsigned kFirstPort = 6970;
constexpr unsigned kLastPort = 65533;

/// What became of a pair.
enum Outcome {
    kTaken,   ///< by somebody else, or not to be had; the next one may be free
    kShort,   ///< descriptors, buffers or memory have run out: so they have for the next
    kReserved ///< both sockets are bound
};

/// A search for a port pair.
struct Search {
    int32_t *pRtpSocket;
    int32_t *pRtcpSocket;
    bool bHoldsZero; ///< descriptor 0 came up; kept until the end, or it would come again
};

Outcome OutcomeOfError(int nError)
{
    const bool bShort =
        nError == EMFILE || nError == ENFILE || nError == ENOBUFS || nError == ENOMEM;
    return bShort ? kShort : kTaken;
}

/// Opens a UDP socket. Descriptor 0 does not count: a client with it would never
/// close it.
Outcome OpenSocket(Search *pSearch, int32_t *pSocket)
{
    *pSocket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP);
    if (*pSocket < 0)
        return OutcomeOfError(errno);
    if (*pSocket == 0) {
        pSearch->bHoldsZero = true;
        return kTaken;
    }
    return kReserved;
}

Outcome Bind(int nSocket, unsigned nPort)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(nPort));
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    if (bind(nSocket, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0)
        return kReserved;
    return OutcomeOfError(errno);
}

/// One socket of a pair. Its number stays with the caller, open or not.
Outcome Reserve(Search *pSearch, int32_t *pSocket, unsigned nPort)
{
    const Outcome opened = OpenSocket(pSearch, pSocket);
    if (opened != kReserved)
        return opened;
    const Outcome bound = Bind(*pSocket, nPort);
    if (bound != kReserved)
        close(*pSocket);
    return bound;
}

Outcome TryPair(Search *pSearch, unsigned nPort)
{
    const Outcome rtp = Reserve(pSearch, pSearch->pRtpSocket, nPort);
    if (rtp != kReserved)
        return rtp;
    const Outcome rtcp = Reserve(pSearch, pSearch->pRtcpSocket, nPort + 1);
    if (rtcp != kReserved)
        close(*pSearch->pRtpSocket);
    return rtcp;
}

/// The first port of the pair that was found; 0 when none was.
unsigned FindPair(Search *pSearch)
{
    for (unsigned nPort = kFirstPort; nPort <= kLastPort; nPort += 2) {
        if (KovaHeldPortsHave(static_cast<uint16_t>(nPort)))
            continue;
        const Outcome outcome = TryPair(pSearch, nPort);
        if (outcome != kTaken)
            return outcome == kReserved ? nPort : 0;
    }
    return 0;
}

/// Nothing is ever read from a track's RTP socket. What anybody sends there must
/// not fill a buffer of the usual size; the system raises 0 to its smallest.
void KeepNothing(int nSocket)
{
    const int nSize = 0;
    setsockopt(nSocket, SOL_SOCKET, SO_RCVBUF, &nSize, sizeof(nSize));
}

} // namespace

void GetServerPort(uint16_t, uint16_t, uint16_t *pRtpPort, uint16_t *pRtcpPort, int32_t *pRtpSocket,
                   int32_t *pRtcpSocket)
{
    if (pRtpPort == nullptr || pRtcpPort == nullptr || pRtpSocket == nullptr ||
        pRtcpSocket == nullptr)
        return;
    Search search = {pRtpSocket, pRtcpSocket, false};
    const unsigned nPort = FindPair(&search);
    if (search.bHoldsZero)
        close(0);
    if (nPort == 0)
        return;
    KeepNothing(*pRtpSocket);
    const int nFlags = fcntl(*pRtcpSocket, F_GETFL) | O_NONBLOCK;
    fcntl(*pRtpSocket, F_SETFL, nFlags);
    fcntl(*pRtcpSocket, F_SETFL, nFlags);
    *pRtpPort = static_cast<uint16_t>(nPort);
    *pRtcpPort = static_cast<uint16_t>(nPort + 1);
}
