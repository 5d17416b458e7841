#include "bench/udp_ports.h"

#include "tests/support/sockets.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int kTries = 100;
constexpr int kReceiveBuffer = 1024 * 1024;

int Open(int nPort)
{
    const int nSocket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    address.sin_port = htons(static_cast<uint16_t>(nPort));
    if (nSocket >= 0 &&
        bind(nSocket, reinterpret_cast<sockaddr *>(&address), sizeof(address)) == 0) {
        // Beyond the system's limit where that is allowed.
        if (setsockopt(nSocket, SOL_SOCKET, SO_RCVBUFFORCE, &kReceiveBuffer, sizeof(int)) != 0)
            setsockopt(nSocket, SOL_SOCKET, SO_RCVBUF, &kReceiveBuffer, sizeof(int));
        return nSocket;
    }
    if (nSocket >= 0)
        close(nSocket);
    return -1;
}

} // namespace

bool KovaOpenUdpPorts(KovaUdpPorts *pPorts)
{
    for (int nTry = 0; nTry < kTries; nTry++) {
        pPorts->nRtpSocket = Open(0);
        if (pPorts->nRtpSocket < 0)
            return false;
        pPorts->nPort = KovaPortOf(pPorts->nRtpSocket);
        if (pPorts->nPort != 0 && pPorts->nPort % 2 == 0)
            pPorts->nRtcpSocket = Open(pPorts->nPort + 1);
        if (pPorts->nRtcpSocket >= 0)
            return true;
        close(pPorts->nRtpSocket);
    }
    return false;
}

void KovaTakeDatagrams(int nSocket, KovaDatagramHeads *pHeads)
{
    iovec parts[kDatagrams];
    mmsghdr messages[kDatagrams] = {};
    for (size_t nAt = 0; nAt < kDatagrams; nAt++) {
        parts[nAt] = {pHeads->bytes[nAt], kLoadRtpHeader};
        messages[nAt].msg_hdr.msg_iov = &parts[nAt];
        messages[nAt].msg_hdr.msg_iovlen = 1;
    }
    // With MSG_TRUNC the sizes are those of the whole datagrams.
    const int nGot = recvmmsg(nSocket, messages, kDatagrams, MSG_DONTWAIT | MSG_TRUNC, nullptr);
    pHeads->nCount = nGot > 0 ? static_cast<size_t>(nGot) : 0;
    for (size_t nAt = 0; nAt < pHeads->nCount; nAt++)
        pHeads->nSizes[nAt] = messages[nAt].msg_len;
}
