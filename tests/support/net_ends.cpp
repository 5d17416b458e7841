#include "tests/support/net_ends.h"

#include "tests/support/sockets.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>

namespace {

int Bound()
{
    const int nSocket = KovaBind(SOCK_DGRAM);
    EXPECT_GE(nSocket, 0);
    return nSocket;
}

void SetNonBlocking(int nSocket)
{
    EXPECT_EQ(fcntl(nSocket, F_SETFL, O_NONBLOCK), 0);
}

std::optional<KovaBytes> Datagram(int nSocket, int nMilliseconds)
{
    if (!KovaWaitReadable(nSocket, nMilliseconds))
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
    nServerRtp = Bound();
    nServerRtcp = Bound();
    SetNonBlocking(nServerRtp);
    SetNonBlocking(nServerRtcp);
    m_nRtp = Bound();
    m_nRtcp = Bound();
    nRtpPort = KovaPortOf(m_nRtp);
    nRtcpPort = KovaPortOf(m_nRtcp);
}

KovaUdpEnds::~KovaUdpEnds()
{
    close(m_nRtp);
    close(m_nRtcp);
}

KovaRtpClient *KovaUdpEnds::Client(const char *szSessionId)
{
    return KovaRtpClientCreate(szSessionId, nServerRtp, nServerRtcp, nRtpPort, nRtcpPort,
                               KovaLoopback(1), 0, nullptr, 0, 0, 0, 0);
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
    const sockaddr_in address = KovaLoopback(KovaPortOf(nServerRtcp));
    EXPECT_EQ(sendto(m_nRtcp, bytes.data(), bytes.size(), 0, KovaPlain(address), sizeof(address)),
              static_cast<ssize_t>(bytes.size()));
    EXPECT_TRUE(KovaWaitReadable(nServerRtcp, 2000));
}

KovaTcpEnds::KovaTcpEnds()
{
    const KovaConnection connection = KovaMakeConnection();
    nPlayer = connection.nPlayer;
    const int nSocket = connection.nServer;
    EXPECT_GE(nSocket, 0);
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
    return KovaRtpClientCreate(szSessionId, 0, 0, 0, 0, KovaLoopback(1), 1, m_pField.get(),
                               nRtpChannel, nRtcpChannel, 0, 0);
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
        if (!KovaWaitReadable(nPlayer, left > 0 ? static_cast<int>(left) : 0))
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
    KovaCloseSocket(nPlayer, true);
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
