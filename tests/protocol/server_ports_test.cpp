#include "classic/rtsp/server_ports.h"
#include "tests/protocol/port_shortage.h"
#include "tests/protocol/protocol_fixture.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

/// What a search gives; the sockets are closed if there are ports.
class Found {
public:
    Found()
    {
        GetServerPort(5000, 5001, &nRtpPort, &nRtcpPort, &nRtpSocket, &nRtcpSocket);
    }
    ~Found()
    {
        if (nRtpPort == kUnset)
            return;
        close(nRtpSocket);
        close(nRtcpSocket);
    }
    Found(const Found &) = delete;
    Found &operator=(const Found &) = delete;

    static constexpr uint16_t kUnset = 4711;
    uint16_t nRtpPort = kUnset;
    uint16_t nRtcpPort = kUnset;
    int32_t nRtpSocket = -77;
    int32_t nRtcpSocket = -77;
};

sockaddr_in BoundTo(int nSocket)
{
    sockaddr_in address = {};
    socklen_t nSize = sizeof(address);
    getsockname(nSocket, reinterpret_cast<sockaddr *>(&address), &nSize);
    return address;
}

TEST(ServerPorts, FirstFreeEvenPairOnAnyAddress)
{
    const uint16_t nPort = KovaFirstFreePair(6970);
    const Found found;
    EXPECT_EQ(found.nRtpPort, nPort);
    EXPECT_EQ(found.nRtcpPort, nPort + 1);
    EXPECT_EQ(ntohs(BoundTo(found.nRtpSocket).sin_port), nPort);
    EXPECT_EQ(ntohs(BoundTo(found.nRtcpSocket).sin_port), nPort + 1);
    EXPECT_EQ(BoundTo(found.nRtpSocket).sin_addr.s_addr, htonl(INADDR_ANY));
    EXPECT_EQ(BoundTo(found.nRtcpSocket).sin_addr.s_addr, htonl(INADDR_ANY));
    EXPECT_NE(fcntl(found.nRtpSocket, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_NE(fcntl(found.nRtcpSocket, F_GETFL) & O_NONBLOCK, 0);
}

int ReceiveBuffer(int nSocket)
{
    int nSize = 0;
    socklen_t nLength = sizeof(nSize);
    getsockopt(nSocket, SOL_SOCKET, SO_RCVBUF, &nSize, &nLength);
    return nSize;
}

/// How many of 200 datagrams of 1000 bytes a bound socket keeps.
int Kept(int nSocket)
{
    sockaddr_in address = BoundTo(nSocket);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int nSender = socket(AF_INET, SOCK_DGRAM, 0);
    char bytes[1000] = {};
    for (int i = 0; i < 200; i++)
        sendto(nSender, bytes, sizeof(bytes), 0, reinterpret_cast<const sockaddr *>(&address),
               sizeof(address));
    close(nSender);
    int nKept = 0;
    while (recv(nSocket, bytes, sizeof(bytes), MSG_DONTWAIT) > 0)
        nKept++;
    return nKept;
}

TEST(ServerPorts, RtpSocketsWhichNobodyReadsKeepNextToNothing)
{
    const int nPlain = socket(AF_INET, SOCK_DGRAM, 0);
    const int nUsual = ReceiveBuffer(nPlain);
    const int nNothing = 0;
    ASSERT_EQ(setsockopt(nPlain, SOL_SOCKET, SO_RCVBUF, &nNothing, sizeof(nNothing)), 0);
    const int nSmallest = ReceiveBuffer(nPlain);
    close(nPlain);
    ASSERT_LT(nSmallest, nUsual);
    const Found found;
    EXPECT_EQ(ReceiveBuffer(found.nRtpSocket), nSmallest);
    EXPECT_EQ(ReceiveBuffer(found.nRtcpSocket), nUsual);
    EXPECT_LE(Kept(found.nRtpSocket), 5);
    EXPECT_GT(Kept(found.nRtcpSocket), 20);
}

TEST(ServerPorts, TakenPairsAreSteppedOver)
{
    const uint16_t nFirst = KovaFirstFreePair(6970);
    const uint16_t nNext = KovaFirstFreePair(static_cast<uint16_t>(nFirst + 2));
    const int nBefore = KovaOpenDescriptors();
    {
        const KovaHeldPort even(nFirst);
        EXPECT_EQ(Found().nRtpPort, nNext);
    }
    {
        const KovaHeldPort odd(static_cast<uint16_t>(nFirst + 1));
        EXPECT_EQ(Found().nRtpPort, nNext);
    }
    {
        const KovaHeldPort even(nFirst);
        const KovaHeldPort odd(static_cast<uint16_t>(nFirst + 1));
        EXPECT_EQ(Found().nRtpPort, nNext);
    }
    EXPECT_EQ(Found().nRtpPort, nFirst);
    EXPECT_EQ(KovaOpenDescriptors(), nBefore);
}

TEST(ServerPorts, EachSearchStartsAnew)
{
    const uint16_t nFirst = KovaFirstFreePair(6970);
    {
        const Found one;
        const Found two;
        EXPECT_EQ(one.nRtpPort, nFirst);
        EXPECT_GT(two.nRtpPort, nFirst);
        EXPECT_EQ(two.nRtpPort % 2, 0);
    }
    EXPECT_EQ(Found().nRtpPort, nFirst);
}

TEST(ServerPorts, LastPairIs65532)
{
    const KovaPortShortage shortage(65532);
    const Found found;
    EXPECT_EQ(found.nRtpPort, 65532);
    EXPECT_EQ(found.nRtcpPort, 65533);
    EXPECT_EQ(shortage.Refused(), (65532 - 6970) / 2);
}

TEST(ServerPorts, ExhaustedRangeLeavesPortsAndDescriptors)
{
    const int nBefore = KovaOpenDescriptors();
    const KovaPortShortage shortage;
    const Found found;
    EXPECT_EQ(shortage.Refused(), (65534 - 6970) / 2);
    EXPECT_EQ(found.nRtpPort, Found::kUnset);
    EXPECT_EQ(found.nRtcpPort, Found::kUnset);
    EXPECT_EQ(fcntl(found.nRtpSocket, F_GETFD), -1);
    EXPECT_EQ(fcntl(found.nRtcpSocket, F_GETFD), -1);
    EXPECT_EQ(KovaOpenDescriptors(), nBefore);
}

TEST(ServerPorts, WithoutDescriptorsNothingIsFound)
{
    const int nBefore = KovaOpenDescriptors();
    {
        const KovaDescriptorShortage shortage;
        const Found found;
        EXPECT_EQ(found.nRtpPort, Found::kUnset);
        EXPECT_EQ(found.nRtpSocket, -1);
    }
    EXPECT_EQ(KovaOpenDescriptors(), nBefore);
}

TEST(ServerPorts, NullPointersStopItAtOnce)
{
    const int nBefore = KovaOpenDescriptors();
    uint16_t nPort = 1;
    int32_t nSocket = 2;
    GetServerPort(1, 2, nullptr, &nPort, &nSocket, &nSocket);
    GetServerPort(1, 2, &nPort, nullptr, &nSocket, &nSocket);
    GetServerPort(1, 2, &nPort, &nPort, nullptr, &nSocket);
    GetServerPort(1, 2, &nPort, &nPort, &nSocket, nullptr);
    EXPECT_EQ(nPort, 1);
    EXPECT_EQ(nSocket, 2);
    EXPECT_EQ(KovaOpenDescriptors(), nBefore);
}

using SetupPorts = ProtocolTest;

TEST_F(SetupPorts, SetupWithoutAFreePairAnswersZeroAndMakesNoClient)
{
    const int nBefore = KovaOpenDescriptors();
    const KovaPortShortage shortage;
    capture.Clear();
    const KovaTestResponse response = client.SetupUdp("live", 97, 5000);
    EXPECT_EQ(response.nStatus, 200);
    EXPECT_EQ(response.Header("Transport"),
              "RTP/AVP/UDP;unicast;client_port=5000-5001;server_port=0-0;ssrc=" +
                  std::to_string(server.Ssrc(97)));
    EXPECT_EQ(Printed().find("Client: 5000-5001, Server: 0-0, Client Socket: "), 0u);
    EXPECT_EQ(server.Clients(97).size(), 0u);
    EXPECT_EQ(server.SessionCount(), 1u);
    EXPECT_EQ(client.Options("live").nStatus, 200);
    EXPECT_EQ(KovaOpenDescriptors(), nBefore);
}

TEST_F(SetupPorts, SetupWithoutDescriptorsMakesNoClient)
{
    const int nBefore = KovaOpenDescriptors();
    {
        const KovaDescriptorShortage shortage;
        EXPECT_EQ(client.SetupUdp("live", 97, 5000).nStatus, 200);
        EXPECT_EQ(client.Options("live").nStatus, 200);
    }
    EXPECT_EQ(server.Clients(97).size(), 0u);
    EXPECT_EQ(KovaOpenDescriptors(), nBefore);
    EXPECT_EQ(client.SetupUdp("live", 97, 5000).nStatus, 200);
    EXPECT_EQ(server.Clients(97).size(), 1u);
}

TEST_F(SetupPorts, PortsOfALeftSessionAreUsedAgain)
{
    const uint16_t nFirst = KovaFirstFreePair(6970);
    const std::string expected = "server_port=" + std::to_string(nFirst) + "-";
    for (int i = 0; i < 3; i++) {
        const std::string transport = client.SetupUdp("live", 97, 5000).Header("Transport");
        EXPECT_NE(transport.find(expected), std::string::npos) << transport;
        EXPECT_EQ(client.Teardown("live").nStatus, 200);
        client.SetSession("");
    }
}

} // namespace
