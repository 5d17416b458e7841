#include "tests/support/sockets.h"

#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

sockaddr_in KovaLoopback(uint16_t nPort)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(nPort);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

uint16_t KovaPortOf(int nSocket)
{
    sockaddr_in address = {};
    socklen_t nSize = sizeof(address);
    getsockname(nSocket, reinterpret_cast<sockaddr *>(&address), &nSize);
    return ntohs(address.sin_port);
}

int KovaBind(int nType, uint16_t nPort)
{
    const int nSocket = socket(AF_INET, nType, 0);
    if (bind(nSocket, KovaPlain(KovaLoopback(nPort)), sizeof(sockaddr_in)) == 0)
        return nSocket;
    close(nSocket);
    return -1;
}

int KovaListen(int nBacklog)
{
    const int nSocket = KovaBind(SOCK_STREAM);
    listen(nSocket, nBacklog);
    return nSocket;
}

int KovaConnect(uint16_t nPort, const KovaConnectOptions &options)
{
    const int nSocket = socket(AF_INET, SOCK_STREAM, 0);
    const int nOn = 1;
    if (options.nReceiveBuffer > 0)
        setsockopt(nSocket, SOL_SOCKET, SO_RCVBUF, &options.nReceiveBuffer, sizeof(int));
    if (options.nMaxSegment > 0)
        setsockopt(nSocket, IPPROTO_TCP, TCP_MAXSEG, &options.nMaxSegment, sizeof(int));
    setsockopt(nSocket, IPPROTO_TCP, TCP_NODELAY, &nOn, sizeof(nOn));
    if (connect(nSocket, KovaPlain(KovaLoopback(nPort)), sizeof(sockaddr_in)) == 0)
        return nSocket;
    close(nSocket);
    return -1;
}

void KovaCloseSocket(int nSocket, bool bReset)
{
    const struct linger reset = {1, 0};
    if (bReset)
        setsockopt(nSocket, SOL_SOCKET, SO_LINGER, &reset, sizeof(reset));
    close(nSocket);
}

KovaConnection KovaMakeConnection(const KovaConnectOptions &options)
{
    KovaConnection connection;
    socklen_t nSize = sizeof(connection.peer);
    const int nListener = KovaListen(1);
    connection.nPlayer = KovaConnect(KovaPortOf(nListener), options);
    if (connection.nPlayer >= 0)
        connection.nServer =
            accept(nListener, reinterpret_cast<sockaddr *>(&connection.peer), &nSize);
    close(nListener);
    return connection;
}

bool KovaWaitReadable(int nSocket, int nMilliseconds)
{
    using Clock = std::chrono::steady_clock;
    struct pollfd entry = {nSocket, POLLIN, 0};
    const Clock::time_point end = Clock::now() + std::chrono::milliseconds(nMilliseconds);
    int nResult = -1;
    do {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
        nResult = poll(&entry, 1, static_cast<int>(std::max<decltype(left)>(left, 0)));
    } while (nResult < 0 && errno == EINTR);
    return nResult == 1;
}
