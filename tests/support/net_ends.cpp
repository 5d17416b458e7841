#include "tests/support/net_ends.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>

namespace {

sockaddr_in Loopback(uint16_t nPort)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(nPort);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

const sockaddr *Plain(const sockaddr_in &address)
{
    return reinterpret_cast<const sockaddr *>(&address);
}

uint16_t PortOf(int nSocket)
{
    sockaddr_in address = {};
    socklen_t nSize = sizeof(address);
    EXPECT_EQ(getsockname(nSocket, reinterpret_cast<sockaddr *>(&address), &nSize), 0);
    return ntohs(address.sin_port);
}

int Bound(int nType)
{
    const int nSocket = socket(AF_INET, nType, 0);
    EXPECT_EQ(bind(nSocket, Plain(Loopback(0)), sizeof(sockaddr_in)), 0);
    return nSocket;
}

void SetNonBlocking(int nSocket)
{
    EXPECT_EQ(fcntl(nSocket, F_SETFL, O_NONBLOCK), 0);
}

bool Readable(int nSocket, int nMilliseconds)
{
    pollfd entry = {nSocket, POLLIN, 0};
    return poll(&entry, 1, nMilliseconds) == 1;
}

std::optional<KovaBytes> Datagram(int nSocket, int nMilliseconds)
{
    if (!Readable(nSocket, nMilliseconds))
        return std::nullopt;
    KovaBytes bytes(10000);
    const ssize_t nGot = recv(nSocket, bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (nGot < 0)
        return std::nullopt;
    bytes.resize(static_cast<size_t>(nGot));
    return bytes;
}

} // namespace

bool KovaIsOpen(int nDescriptor)
{
    return fcntl(nDescriptor, F_GETFD) >= 0;
}

KovaUdpEnds::KovaUdpEnds()
{
    nServerRtp = Bound(SOCK_DGRAM);
    nServerRtcp = Bound(SOCK_DGRAM);
    SetNonBlocking(nServerRtp);
    SetNonBlocking(nServerRtcp);
    m_nRtp = Bound(SOCK_DGRAM);
    m_nRtcp = Bound(SOCK_DGRAM);
    nRtpPort = PortOf(m_nRtp);
    nRtcpPort = PortOf(m_nRtcp);
}

KovaUdpEnds::~KovaUdpEnds()
{
    close(m_nRtp);
    close(m_nRtcp);
}

KovaRtpClient *KovaUdpEnds::Client(const char *szSessionId)
{
    return KovaRtpClientCreate(szSessionId, nServerRtp, nServerRtcp, nRtpPort, nRtcpPort,
                               Loopback(1), 0, nullptr, 0, 0, 0, 0);
}

std::optional<KovaBytes> KovaUdpEnds::Rtp(int nMilliseconds)
{
    return Datagram(m_nRtp, nMilliseconds);
}

std::optional<KovaBytes> KovaUdpEnds::Rtcp(int nMilliseconds)
{
    return Datagram(m_nRtcp, nMilliseconds);
}

void KovaUdpEnds::SendRtcp(const KovaBytes &bytes)
{
    const sockaddr_in address = Loopback(PortOf(nServerRtcp));
    EXPECT_EQ(sendto(m_nRtcp, bytes.data(), bytes.size(), 0, Plain(address), sizeof(address)),
              static_cast<ssize_t>(bytes.size()));
    EXPECT_TRUE(Readable(nServerRtcp, 2000));
}

KovaTcpEnds::KovaTcpEnds()
{
    const int nListener = Bound(SOCK_STREAM);
    EXPECT_EQ(listen(nListener, 1), 0);
    nPlayer = socket(AF_INET, SOCK_STREAM, 0);
    EXPECT_EQ(connect(nPlayer, Plain(Loopback(PortOf(nListener))), sizeof(sockaddr_in)), 0);
    const int nSocket = accept(nListener, nullptr, nullptr);
    close(nListener);
    SetNonBlocking(nSocket);
    const int nOn = 1;
    setsockopt(nSocket, IPPROTO_TCP, TCP_NODELAY, &nOn, sizeof(nOn));
    m_pField = std::make_unique<int>(nSocket);
    m_pChannel = KovaTcpChannelJoin(m_pField.get());
}

KovaTcpEnds::~KovaTcpEnds()
{
    EndHandler();
    if (nPlayer >= 0)
        close(nPlayer);
}

KovaRtpClient *KovaTcpEnds::Client(const char *szSessionId, uint16_t nRtpChannel,
                                   uint16_t nRtcpChannel)
{
    return KovaRtpClientCreate(szSessionId, 0, 0, 0, 0, Loopback(1), 1, m_pField.get(), nRtpChannel,
                               nRtcpChannel, 0, 0);
}

int KovaTcpEnds::Socket()
{
    return reinterpret_cast<std::atomic<int> *>(m_pField.get())->load();
}

KovaBytes KovaTcpEnds::Receive(size_t nSize, int nMilliseconds)
{
    using Clock = std::chrono::steady_clock;
    const Clock::time_point end = Clock::now() + std::chrono::milliseconds(nMilliseconds);
    KovaBytes bytes;
    while (bytes.size() < nSize) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
        if (!Readable(nPlayer, left > 0 ? static_cast<int>(left) : 0))
            break;
        const size_t nBefore = bytes.size();
        bytes.resize(nSize);
        const ssize_t nGot = recv(nPlayer, bytes.data() + nBefore, nSize - nBefore, MSG_DONTWAIT);
        bytes.resize(nBefore + static_cast<size_t>(nGot > 0 ? nGot : 0));
        if (nGot <= 0)
            break;
    }
    return bytes;
}

size_t KovaTcpEnds::Fill()
{
    const int nSocket = Socket();
    const int nSmall = 4096;
    setsockopt(nSocket, SOL_SOCKET, SO_SNDBUF, &nSmall, sizeof(nSmall));
    const KovaBytes block(4096, 0x5A);
    size_t nTotal = 0;
    // The receiving side may still make room for a while after a refusal.
    for (int nRefused = 0; nRefused < 20;) {
        const ssize_t nSent = send(nSocket, block.data(), block.size(), MSG_DONTWAIT);
        if (nSent > 0) {
            nTotal += static_cast<size_t>(nSent);
            nRefused = 0;
            continue;
        }
        nRefused++;
        usleep(1000);
    }
    return nTotal;
}

void KovaTcpEnds::Reset()
{
    const linger now = {1, 0};
    setsockopt(nPlayer, SOL_SOCKET, SO_LINGER, &now, sizeof(now));
    close(nPlayer);
    nPlayer = -1;
}

void KovaTcpEnds::EndHandler()
{
    if (m_pChannel == nullptr)
        return;
    KovaTcpChannelAbandon(m_pChannel);
    KovaTcpChannelLeave(m_pChannel);
    m_pChannel = nullptr;
    m_pField.reset();
}
