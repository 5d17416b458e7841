#include "live/engine/udp_ports.h"
#include "tests/live/stepped_server.h"
#include "tests/support/sockets.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <string>

// Players who come to several addresses of a machine, and several at one address who name one port.

namespace {

constexpr uint64_t kSecond = 1000000;

struct SteppedAddresses : testing::Test {
    KovaSteppedServer server{1, [](KovaLiveConfig *pConfig) { pConfig->address = nullptr; }};
    KovaLiveStream *pStream = server.AddStream("cam");
    KovaLiveTrack *tracks[2] = {KovaLiveHost::AddVideo(pStream), KovaLiveHost::AddVideo(pStream)};
    KovaLiveClient client;

    /// Connects from 127.0.0.1 to 127.0.0.2.
    void ConnectToSecond(KovaLiveClient *pClient)
    {
        ASSERT_TRUE(pClient->Connect(server.Port()));
        const int nSocket = socket(AF_INET, SOCK_STREAM, 0);
        const sockaddr_in own = KovaLoopback();
        ASSERT_EQ(bind(nSocket, KovaPlain(own), sizeof(own)), 0);
        sockaddr_in address = KovaLoopback(server.Port());
        inet_pton(AF_INET, "127.0.0.2", &address.sin_addr);
        ASSERT_EQ(connect(nSocket, KovaPlain(address), sizeof(address)), 0);
        pClient->Rtsp().Adopt(nSocket);
    }
    int Pairs() const
    {
        int nPairs = 0;
        for (const KovaUdpPorts *pPorts = server.Loop()->pUdpPorts; pPorts != nullptr;
             pPorts = pPorts->pNext)
            nPairs++;
        return nPairs;
    }
    /// A receiver report of nobody's media, by this reporter.
    static std::string ReportBy(uint8_t nReporter)
    {
        return KovaMediaBytes({0x80, 201, 0, 1, 0, 0, 0, nReporter});
    }
};

} // namespace

TEST_F(SteppedAddresses, AllTracksOfASessionLeaveFromTheAddressOfTheFirst)
{
    KovaLiveClient other;
    KovaLiveAnswer first;
    KovaLiveAnswer second;
    server.Serve([&] {
        ASSERT_TRUE(client.Connect(server.Port()));
        first = client.SetupUdp("cam", 1);
        ConnectToSecond(&other);
        other.SetSession(client.Session());
        second = other.SetupUdp("cam", 2);
        EXPECT_EQ(other.Play("cam").nStatus, 200);
    });
    EXPECT_EQ(second.nStatus, 200);
    EXPECT_EQ(second.Transport("source"), "127.0.0.1");
    EXPECT_EQ(second.Transport("server_port"), first.Transport("server_port"));
    EXPECT_EQ(Pairs(), 1);
    ASSERT_EQ(KovaLivePushText(tracks[0], KovaLiveKey(500, 1), 0), KOVA_LIVE_OK);
    server.Run();
    EXPECT_EQ(KovaLiveSlice(KovaLiveNextUnit(&client, 1)), KovaMediaNal(0x65, 500, 1));
}

TEST_F(SteppedAddresses, PortsThatNobodyUsesAreGivenBackBeforeOthersAreOpened)
{
    KovaLiveClient other;
    server.Serve([&] {
        ASSERT_TRUE(client.Connect(server.Port()));
        EXPECT_EQ(client.SetupUdp("cam", 1).nStatus, 200);
        ConnectToSecond(&other);
        EXPECT_EQ(other.SetupUdp("cam", 1).nStatus, 200);
    });
    EXPECT_EQ(Pairs(), 2) << "both have a session";
    server.Serve([&] {
        EXPECT_EQ(client.Teardown("cam").nStatus, 200);
        EXPECT_EQ(other.Teardown("cam").nStatus, 200);
    });
    const uint16_t nFirst = server.Loop()->pUdpPorts->pNext->nRtpPort;
    KovaLiveClient third;
    KovaLiveAnswer answer;
    server.Serve([&] {
        ASSERT_TRUE(third.Connect(server.Port()));
        answer = third.SetupUdp("cam", 1);
    });
    EXPECT_EQ(answer.Transport("server_port").find(std::to_string(nFirst) + "-"), 0U)
        << "of its address there still are some";
    server.Serve([&] { EXPECT_EQ(third.Teardown("cam").nStatus, 200); });
    // A third address: the two are closed, as nobody uses them.
    KovaLiveClient last;
    server.Serve([&] {
        ASSERT_TRUE(last.Connect(server.Port()));
        const int nSocket = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address = KovaLoopback(server.Port());
        inet_pton(AF_INET, "127.0.0.3", &address.sin_addr);
        ASSERT_EQ(connect(nSocket, KovaPlain(address), sizeof(address)), 0);
        last.Rtsp().Adopt(nSocket);
        EXPECT_EQ(last.SetupUdp("cam", 1).Transport("source"), "127.0.0.3");
    });
    EXPECT_EQ(Pairs(), 1);
}

TEST_F(SteppedAddresses, ReportsKeepTheSessionThatTheyWereMadeForBefore)
{
    ASSERT_TRUE(server.Play(&client, true));
    EXPECT_TRUE(client.SendRtcp(1, ReportBy(1)));
    server.Run();
    // Somebody else names the same port.
    const uint16_t nPort = client.Ports(1).RtpPort();
    KovaLiveClient other;
    server.Serve([&] {
        ASSERT_TRUE(other.Connect(server.Port()));
        EXPECT_EQ(other
                      .Setup("cam", 1,
                             "RTP/AVP;unicast;client_port=" + std::to_string(nPort) + "-" +
                                 std::to_string(nPort + 1))
                      .nStatus,
                  200);
        EXPECT_EQ(other.Play("cam").nStatus, 200);
    });
    for (int nStep = 0; nStep < 4; nStep++) {
        KovaSteppedServer::Advance(20 * kSecond);
        EXPECT_TRUE(client.SendRtcp(1, ReportBy(1)));
        server.Run();
    }
    ASSERT_EQ(server.Players().size(), 1U) << "whoever is silent goes";
    EXPECT_EQ(server.Events(KOVA_LIVE_EVENT_PLAYER_WENT).at(0).nPlayer, 2U);
}

TEST_F(SteppedAddresses, APlayerThatBeginsAgainAtItsPortKeepsItsNewSession)
{
    ASSERT_TRUE(server.Play(&client, true));
    EXPECT_TRUE(client.SendRtcp(1, ReportBy(1)));
    server.Run();
    const uint16_t nPort = client.Ports(1).RtpPort();
    client.Rtsp().Close();
    KovaLiveClient again;
    server.Serve([&] {
        ASSERT_TRUE(again.Connect(server.Port()));
        EXPECT_EQ(again
                      .Setup("cam", 1,
                             "RTP/AVP;unicast;client_port=" + std::to_string(nPort) + "-" +
                                 std::to_string(nPort + 1))
                      .nStatus,
                  200);
        EXPECT_EQ(again.Play("cam").nStatus, 200);
    });
    for (int nStep = 0; nStep < 4; nStep++) {
        KovaSteppedServer::Advance(20 * kSecond);
        EXPECT_TRUE(client.SendRtcp(1, ReportBy(2)));
        server.Run();
    }
    ASSERT_EQ(server.Players().size(), 1U);
    EXPECT_EQ(server.Players().at(0).player, 2U);
}
