#include "tests/hostile_client/connection.h"

#include "tests/support/rtsp_text.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <thread>
#include <utility>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kConnectMilliseconds = 300;

bool WaitFor(int nSocket, short nEvents, int nMilliseconds)
{
    struct pollfd entry = {nSocket, nEvents, 0};
    return poll(&entry, 1, nMilliseconds) == 1;
}

/// Whether the connection comes about soon. A server that takes none while its
/// queue is full leaves the attempt hanging.
bool IsConnected(int nSocket)
{
    int nError = 0;
    socklen_t nSize = sizeof(nError);
    return WaitFor(nSocket, POLLOUT, kConnectMilliseconds) &&
           getsockopt(nSocket, SOL_SOCKET, SO_ERROR, &nError, &nSize) == 0 && nError == 0;
}

} // namespace

KovaHostileConnection::KovaHostileConnection(const KovaHostileTarget &target)
{
    Open(target);
}

KovaHostileConnection::~KovaHostileConnection()
{
    Close();
}

KovaHostileConnection::KovaHostileConnection(KovaHostileConnection &&other) noexcept
    : m_nSocket(std::exchange(other.m_nSocket, -1))
{}

bool KovaHostileConnection::Open(const KovaHostileTarget &target, int nReceiveBuffer)
{
    Close();
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(target.nPort);
    if (inet_pton(AF_INET, target.host.c_str(), &address.sin_addr) != 1)
        return false;
    m_nSocket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (m_nSocket < 0)
        return false;
    if (nReceiveBuffer > 0)
        setsockopt(m_nSocket, SOL_SOCKET, SO_RCVBUF, &nReceiveBuffer, sizeof(nReceiveBuffer));
    const int nOn = 1;
    setsockopt(m_nSocket, IPPROTO_TCP, TCP_NODELAY, &nOn, sizeof(nOn));
    connect(m_nSocket, reinterpret_cast<const sockaddr *>(&address), sizeof(address));
    if (IsConnected(m_nSocket))
        return true;
    Close();
    return false;
}

bool KovaHostileConnection::Send(std::string_view bytes)
{
    const Clock::time_point end = Clock::now() + std::chrono::seconds(1);
    while (!bytes.empty() && Clock::now() < end) {
        if (!WaitFor(m_nSocket, POLLOUT, 100))
            continue;
        const ssize_t nSent =
            send(m_nSocket, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (nSent <= 0)
            return false;
        bytes.remove_prefix(static_cast<size_t>(nSent));
    }
    return bytes.empty();
}

std::string KovaHostileConnection::Receive(int nMilliseconds)
{
    char bytes[16384];
    if (!WaitFor(m_nSocket, POLLIN, nMilliseconds))
        return {};
    const ssize_t nGot = recv(m_nSocket, bytes, sizeof(bytes), MSG_DONTWAIT);
    return std::string(bytes, nGot > 0 ? static_cast<size_t>(nGot) : 0);
}

void KovaHostileConnection::Drain(int nMilliseconds)
{
    const Clock::time_point end = Clock::now() + std::chrono::milliseconds(nMilliseconds);
    char bytes[16384];
    while (Clock::now() < end) {
        if (WaitFor(m_nSocket, POLLIN, 20) &&
            recv(m_nSocket, bytes, sizeof(bytes), MSG_DONTWAIT) <= 0)
            return;
    }
}

void KovaHostileConnection::CloseSending()
{
    shutdown(m_nSocket, SHUT_WR);
}

void KovaHostileConnection::Close()
{
    if (m_nSocket >= 0)
        close(m_nSocket);
    m_nSocket = -1;
}

void KovaHostileConnection::Reset()
{
    const struct linger reset = {1, 0};
    if (m_nSocket >= 0)
        setsockopt(m_nSocket, SOL_SOCKET, SO_LINGER, &reset, sizeof(reset));
    Close();
}

std::string KovaHostileRequest(std::string_view method, const KovaHostileTarget &target,
                               std::string_view lines, std::string_view behindUri)
{
    const std::string url = "rtsp://" + target.host + ":" + std::to_string(target.nPort) + "/" +
                            target.uri + std::string(behindUri);
    return KovaRequestText(method, url, 1, {}, lines);
}

std::string KovaHostileSession(const std::string &response)
{
    // Frames may stand before it.
    const size_t nAt = response.find("RTSP/1.0 ");
    return nAt == std::string::npos ? std::string()
                                    : KovaReadResponse(response.substr(nAt)).Session();
}

void KovaHostileSleep(unsigned nMilliseconds)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(nMilliseconds));
}

bool KovaHostileServerAnswers(const KovaHostileTarget &target)
{
    const Clock::time_point end = Clock::now() + std::chrono::seconds(5);
    do {
        KovaHostileConnection connection(target);
        if (connection.IsOpen() &&
            connection.Ask(KovaHostileRequest("OPTIONS", target)).find("RTSP/1.0 200 OK\r\n") == 0)
            return true;
        KovaHostileSleep(20);
    } while (Clock::now() < end);
    return false;
}
