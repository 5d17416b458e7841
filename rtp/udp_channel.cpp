#include "rtp/udp_channel.h"

#include <sys/socket.h>

#include <cerrno>

KovaSendOutcome KovaUdpSend(int nSocket, const sockaddr_in &address, const uint8_t *pData,
                            size_t nSize)
{
    // A request with half a transport makes a client with descriptor 0, which
    // is the host's standard input: nothing of ours goes there.
    if (nSocket <= 0) {
        errno = nSocket == 0 ? ENOTSOCK : EBADF;
        return kSendFailed;
    }
    const ssize_t nSent = sendto(nSocket, pData, nSize, MSG_DONTWAIT | MSG_NOSIGNAL,
                                 reinterpret_cast<const sockaddr *>(&address), sizeof(address));
    return nSent >= 0 ? kSendDone : KovaSendOutcomeOfError(errno);
}

bool KovaUdpTakeOne(int nSocket)
{
    if (nSocket <= 0)
        return false;
    uint8_t first[64]; // the rest of a datagram goes away with it
    return recvfrom(nSocket, first, sizeof(first), MSG_DONTWAIT, nullptr, nullptr) > 0;
}
