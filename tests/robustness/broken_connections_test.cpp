#include "classic/server/handler_registry.h"
#include "tests/hostile_client/connection.h"
#include "tests/robustness/server_socket.h"
#include "tests/robustness/well_behaved_players.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <thread>

namespace {

constexpr int kRounds = 15;

/// Connections that end in the middle of everything, while others play.
class BrokenConnections : public WellBehavedPlayers {
protected:
    void SetUp() override
    {
        // A signal would end the test, as it would end a host.
        struct sigaction action = {};
        ASSERT_EQ(sigaction(SIGPIPE, nullptr, &action), 0);
        ASSERT_EQ(action.sa_handler, SIG_DFL);
        WellBehavedPlayers::SetUp();
    }

    void PlayBoth(KovaRtspTestClient *pClient)
    {
        ASSERT_TRUE(server->Connect(pClient));
        ASSERT_EQ(pClient->SetupTcp("live", 96, 0).nStatus, 200);
        ASSERT_EQ(pClient->SetupTcp("live", 97, 2).nStatus, 200);
        ASSERT_EQ(pClient->Play("live").nStatus, 200);
    }

    int SocketOf(const KovaRtspTestClient &client)
    {
        return KovaServerSocketOf(server->Server(), client.LocalPort());
    }

    int32_t Playing() const
    {
        return server->Stream()->nClientCount.load();
    }
};

TEST_F(BrokenConnections, LowerTheCountOncePerSession)
{
    const State before = Now();
    const int32_t nPlaying = Playing();
    for (int i = 0; i < kRounds; i++) {
        KovaRtspTestClient client;
        PlayBoth(&client);
        KovaTestFrame frame;
        EXPECT_TRUE(client.NextFrame(&frame, 10000));
        client.Close(i % 2 == 0);
    }
    // Nobody expires anything: the sessions end because their connections broke.
    EXPECT_TRUE(KovaWaitUntil(10000, [&] { return server->SessionCount() == before.nSessions; }));
    EXPECT_TRUE(KovaWaitUntil(10000, [&] { return Playing() == nPlaying; })) << Playing();
    ExpectGivenBack(before);
    EXPECT_EQ(Playing(), nPlaying);
    ExpectPlaying();
}

/// A session may play several streams. One that has nothing to send does not
/// notice the broken connection by itself.
TEST_F(BrokenConnections, LowerTheCountOfAnIdleStreamToo)
{
    KovaRtspStreamer *pIdle = server->AddStream("idle");
    ASSERT_NE(pIdle, nullptr);
    const State before = Now();
    const int32_t nPlaying = Playing();
    for (int i = 0; i < 3; i++) {
        KovaRtspTestClient client;
        ASSERT_TRUE(server->Connect(&client));
        ASSERT_EQ(client.SetupTcp("live", 96, 0).nStatus, 200);
        ASSERT_EQ(client.SetupTcp("idle", 96, 2).nStatus, 200);
        ASSERT_EQ(client.SetupTcp("idle", 97, 4).nStatus, 200);
        ASSERT_EQ(client.Play("live").nStatus, 200);
        ASSERT_EQ(client.Play("idle").nStatus, 200);
        KovaTestFrame frame;
        EXPECT_TRUE(client.NextFrame(&frame, 10000));
        client.Close(true);
    }
    EXPECT_TRUE(KovaWaitUntil(15000, [&] { return pIdle->nClientCount == 0; }))
        << pIdle->nClientCount.load();
    EXPECT_TRUE(KovaWaitUntil(10000, [&] { return Playing() == nPlaying; })) << Playing();
    ExpectGivenBack(before);
    EXPECT_EQ(pIdle->nClientCount, 0);
    ExpectPlaying();
}

TEST_F(BrokenConnections, HandTheirNumberOnWithoutTheirMedia)
{
    const State before = Now();
    int nReused = 0;
    for (int i = 0; i < kRounds; i++) {
        KovaRtspTestClient first;
        PlayBoth(&first);
        const int nSocket = SocketOf(first);
        first.Close(true);
        EXPECT_TRUE(server->WaitHandlers(before.nHandlers, 5000));
        KovaRtspTestClient second;
        ASSERT_TRUE(second.Connect(server->Port()));
        EXPECT_EQ(second.Options("live").text,
                  "RTSP/1.0 200 OK\r\nCSeq: 1\r\n"
                  "Public: DESCRIBE,SETUP,TEARDOWN,PLAY,GET_PARAMETER\r\n\r\n");
        nReused += SocketOf(second) == nSocket;
        EXPECT_TRUE(second.IsSilent(40));
    }
    EXPECT_GT(nReused, 0);
    ExpectGivenBack(before);
    ExpectPlaying();
}

TEST_F(BrokenConnections, LeaveTheirWaitingTracksHarmless)
{
    const State before = Now();
    for (int i = 0; i < 5; i++) {
        KovaRtspTestClient client;
        ASSERT_TRUE(server->Connect(&client));
        ASSERT_EQ(client.SetupTcp("live", 97, 0).nStatus, 200);
        client.Close();
    }
    EXPECT_TRUE(server->WaitHandlers(before.nHandlers, 5000));
    // They are there until their sessions end, and know that they have no connection.
    ASSERT_EQ(server->Clients(97).size(), before.nVideoClients + 5);
    for (const KovaTestServer::Client &client : server->Clients(97))
        EXPECT_EQ(client.nTcpSocket == -1, client.nState == 0);
    ExpectGivenBack(before);
    ExpectPlaying();
}

/// Keep-alives over UDP, expiry, broken connections and requests take the same
/// locks from different ends.
TEST_F(BrokenConnections, MeetExpiryAndKeepAlivesWithoutADeadlock)
{
    const State before = Now();
    std::atomic<bool> bStop{false};
    std::thread expiring([&] {
        while (!bStop) {
            ExpireStrangers();
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    });
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(2000);
    while (std::chrono::steady_clock::now() < end) {
        KovaUdpPair udp;
        KovaRtspTestClient overUdp;
        ASSERT_TRUE(server->Connect(&overUdp));
        const std::string transport =
            overUdp.SetupUdp("live", 96, udp.RtpPort()).Header("Transport");
        ASSERT_NE(transport.find("server_port="), std::string::npos);
        const size_t nAt = transport.find("server_port=") + 12;
        const auto nRtcpPort = static_cast<uint16_t>(std::stoi(transport.substr(nAt)) + 1);
        overUdp.Play("live");
        // Any of these may find its session expired.
        KovaRtspTestClient overTcp;
        ASSERT_TRUE(server->Connect(&overTcp));
        overTcp.SetupTcp("live", 96, 0);
        overTcp.SetupTcp("live", 97, 2);
        overTcp.Play("live");
        for (int i = 0; i < 20; i++) {
            udp.SendRtcp(nRtcpPort, KovaReceiverReport(1));
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        overTcp.Close(true);
        overUdp.GetParameter("live");
    }
    bStop = true;
    expiring.join();
    ExpectGivenBack(before);
    ExpectPlaying();
}

/// As on shut-down: whoever stops the connections and those that end by
/// themselves meet, again and again.
TEST_F(BrokenConnections, MeetAStopOfAllConnections)
{
    const KovaHostileTarget target = {"127.0.0.1", server->Port(), "live", 0, 0};
    players.clear();
    EXPECT_TRUE(server->WaitHandlers(0, 5000));
    const int nThreads = KovaThreadCount();
    for (int nRound = 0; nRound < kRounds; nRound++) {
        std::vector<KovaHostileConnection> connections;
        for (int i = 0; i < 16; i++)
            connections.emplace_back(target);
        EXPECT_TRUE(server->WaitHandlers(16, 5000));
        std::thread leaving([&] {
            for (KovaHostileConnection &connection : connections) {
                if (nRound % 2 == 0)
                    connection.Reset();
                else
                    connection.Close();
            }
        });
        KovaRtspServerRemoveAllServerHandler(server->Server());
        leaving.join();
        EXPECT_EQ(server->HandlerCount(), 0U);
    }
    EXPECT_TRUE(KovaWaitUntil(5000, [&] { return KovaThreadCount() <= nThreads; }));
    EXPECT_TRUE(KovaHostileServerAnswers(target));
}

} // namespace
