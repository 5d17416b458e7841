#include "live/engine/udp_ports.h"
#include "tests/live/stepped_server.h"
#include "tests/support/sockets.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <string>

// What reports of players (RFC 3550, 6.4) become in the host's figures, and what they ask of it.

namespace {

constexpr uint64_t kSecond = 1000000;

void Append32(std::string *pBytes, uint32_t nValue)
{
    for (int nShift = 24; nShift >= 0; nShift -= 8)
        *pBytes += static_cast<char>(nValue >> nShift & 0xFF);
}

/// One report block, as a receiver writes it.
struct Block {
    uint32_t nSsrc;
    uint8_t nLoss;
    uint32_t nJitter;
    uint32_t nEcho;  ///< the middle of the last sender report's NTP time
    uint32_t nDelay; ///< since that came, in 1/65536 s
};

std::string ReportOf(const Block &block)
{
    std::string report = KovaMediaBytes({0x81, 201, 0, 7, 1, 2, 3, 4});
    Append32(&report, block.nSsrc);
    Append32(&report, static_cast<uint32_t>(block.nLoss) << 24 | 1);
    Append32(&report, 1);
    Append32(&report, block.nJitter);
    Append32(&report, block.nEcho);
    Append32(&report, block.nDelay);
    return report;
}

struct SteppedFeedback : testing::Test {
    KovaSteppedServer server;
    KovaLiveStream *pStream = server.AddStream("cam");
    KovaLiveTrack *tracks[2] = {KovaLiveHost::AddVideo(pStream), KovaLiveHost::AddVideo(pStream)};
    KovaLiveClient client;
    uint32_t ssrcs[2] = {};
    uint32_t echoes[2] = {}; ///< of the first sender reports

    void SetUp() override
    {
        server.Serve([this] {
            ASSERT_TRUE(client.Connect(server.Port()));
            for (int nTrack = 1; nTrack <= 2; nTrack++)
                ssrcs[nTrack - 1] = static_cast<uint32_t>(
                    strtoul(client.SetupUdp("cam", nTrack).Transport("ssrc").c_str(), nullptr, 16));
            ASSERT_EQ(client.Play("cam").nStatus, 200);
        });
        for (KovaLiveTrack *pTrack : tracks)
            ASSERT_EQ(KovaLivePushText(pTrack, KovaLiveKey(), 0), KOVA_LIVE_OK);
        server.Run();
        for (int nTrack = 1; nTrack <= 2; nTrack++) {
            std::string report;
            ASSERT_TRUE(client.NextRtcp(nTrack, &report));
            ASSERT_GE(report.size(), 28U);
            echoes[nTrack - 1] = KovaNumberAt(report, 10);
        }
    }
    KovaLivePlayer After(int nTrack, const Block &block)
    {
        EXPECT_TRUE(client.SendRtcp(nTrack, ReportOf(block)));
        server.Run();
        return server.Players().at(0);
    }
    size_t Questions() const
    {
        return server.Events(KOVA_LIVE_EVENT_KEY_FRAME).size();
    }
};

} // namespace

TEST_F(SteppedFeedback, RoundTripIsWhatTheReportAndThePlayerDidNotTake)
{
    KovaSteppedServer::Advance(150000);
    // The player had it for 100 ms.
    EXPECT_NEAR(After(1, {ssrcs[0], 0, 0, echoes[0], 6554}).round_trip_us, 50000, 100);
    // A report that echoes none, or of a track that had none, changes nothing.
    EXPECT_NEAR(After(1, {ssrcs[0], 0, 0, 0, 0}).round_trip_us, 50000, 100);
    EXPECT_NEAR(After(2, {ssrcs[1], 0, 0, 0, 0}).round_trip_us, 50000, 100);
    KovaSteppedServer::Advance(2 * kSecond);
    EXPECT_NEAR(After(1, {ssrcs[0], 0, 0, echoes[0], 2 << 16}).round_trip_us, 150000, 100);
    KovaSteppedServer::Advance(57 * kSecond);
    EXPECT_NEAR(After(1, {ssrcs[0], 0, 0, echoes[0], 0}).round_trip_us, 59150000, 1000);
}

TEST_F(SteppedFeedback, ATripOfAMinuteIsNone)
{
    KovaSteppedServer::Advance(10000);
    EXPECT_NEAR(After(1, {ssrcs[0], 0, 0, echoes[0], 0}).round_trip_us, 10000, 100);
    KovaSteppedServer::Advance(59990000);
    EXPECT_NEAR(After(1, {ssrcs[0], 0, 0, echoes[0], 0}).round_trip_us, 10000, 100);
    // Nor is one that ends before it began.
    EXPECT_NEAR(After(1, {ssrcs[0], 0, 0, echoes[0], 61 << 16}).round_trip_us, 10000, 100);
}

TEST_F(SteppedFeedback, OfTwoTracksTheWorstCounts)
{
    EXPECT_EQ(After(1, {ssrcs[0], 5, 900, 0, 0}).loss, 5U);
    EXPECT_EQ(After(2, {ssrcs[1], 3, 450, 0, 0}).loss, 5U);
    EXPECT_EQ(server.Players().at(0).jitter_us, 10000U);
    EXPECT_EQ(After(2, {ssrcs[1], 7, 1800, 0, 0}).loss, 7U);
    EXPECT_EQ(server.Players().at(0).jitter_us, 20000U);
    // The last report of each track counts.
    EXPECT_EQ(After(2, {ssrcs[1], 0, 0, 0, 0}).loss, 5U);
    EXPECT_EQ(server.Players().at(0).jitter_us, 10000U);
}

/// A player that sends as well (RFC 3550, 6.4.1).
TEST_F(SteppedFeedback, BlocksOfASendersReportCountAlike)
{
    std::string report = KovaMediaBytes({0x81, 200, 0, 12, 1, 2, 3, 4});
    report.append(20, '\0');
    report += ReportOf({ssrcs[0], 5, 900, 0, 0}).substr(8);
    EXPECT_TRUE(client.SendRtcp(1, report));
    server.Run();
    EXPECT_EQ(server.Players().at(0).loss, 5U);
    EXPECT_EQ(server.Players().at(0).jitter_us, 10000U);
}

TEST_F(SteppedFeedback, ALossOfThreePercentAsksForAKeyFrameEveryTwoSeconds)
{
    KovaSteppedServer::Advance(10 * kSecond);
    const size_t nBefore = Questions();
    After(1, {ssrcs[0], 7, 0, 0, 0});
    EXPECT_EQ(Questions(), nBefore);
    After(1, {ssrcs[0], 8, 0, 0, 0});
    EXPECT_EQ(Questions(), nBefore + 1);
    KovaSteppedServer::Advance(2 * kSecond - 1);
    After(1, {ssrcs[0], 255, 0, 0, 0});
    EXPECT_EQ(Questions(), nBefore + 1);
    KovaSteppedServer::Advance(1);
    After(1, {ssrcs[0], 8, 0, 0, 0});
    EXPECT_EQ(Questions(), nBefore + 2);
}

TEST_F(SteppedFeedback, NewcomersAskForAKeyFrameEvery300Milliseconds)
{
    KovaLiveClient players[3];
    KovaSteppedServer::Advance(10 * kSecond);
    const size_t nBefore = Questions();
    EXPECT_TRUE(server.Play(&players[0], false));
    EXPECT_EQ(Questions(), nBefore + 1);
    KovaSteppedServer::Advance(299999);
    EXPECT_TRUE(server.Play(&players[1], false));
    EXPECT_EQ(Questions(), nBefore + 1);
    KovaSteppedServer::Advance(1);
    EXPECT_TRUE(server.Play(&players[2], false));
    EXPECT_EQ(Questions(), nBefore + 2);
    EXPECT_EQ(server.Events(KOVA_LIVE_EVENT_KEY_FRAME).back().pTrack, tracks[0]);
}

TEST_F(SteppedFeedback, APlayersQuestionForAKeyFrameIsPassedOnTwiceASecond)
{
    // A lost picture (RFC 4585, 6.3.1), and a whole one that is wanted (RFC 5104, 4.3.1).
    for (const uint8_t nFormat : {uint8_t{1}, uint8_t{4}}) {
        const std::string question =
            KovaLiveReport(0, 0, false) +
            KovaMediaBytes({uint8_t(0x80 | nFormat), 206, 0, 2, 0, 0, 0, 1, 0, 0, 0, 2});
        KovaSteppedServer::Advance(500000);
        const size_t nBefore = Questions();
        EXPECT_TRUE(client.SendRtcp(1, question));
        server.Run();
        EXPECT_EQ(Questions(), nBefore + 1) << int{nFormat};
        EXPECT_EQ(server.Events(KOVA_LIVE_EVENT_KEY_FRAME).back().pTrack, tracks[0]);
        KovaSteppedServer::Advance(499999);
        EXPECT_TRUE(client.SendRtcp(1, question));
        server.Run();
        EXPECT_EQ(Questions(), nBefore + 1) << int{nFormat};
    }
}

TEST_F(SteppedFeedback, ReportsOfAnotherAddressAreNobodys)
{
    const int nSocket = socket(AF_INET, SOCK_DGRAM, 0);
    ASSERT_GE(nSocket, 0);
    // From the port that the player has on its own address.
    sockaddr_in own = KovaLoopback(static_cast<uint16_t>(client.Ports(1).RtpPort() + 1));
    inet_pton(AF_INET, "127.0.0.2", &own.sin_addr);
    ASSERT_EQ(bind(nSocket, KovaPlain(own), sizeof(own)), 0);
    const sockaddr_in server1 = KovaLoopback(server.Loop()->pUdpPorts->nRtcpPort);
    const std::string report = ReportOf({ssrcs[0], 5, 0, 0, 0});
    ASSERT_EQ(sendto(nSocket, report.data(), report.size(), 0, KovaPlain(server1), sizeof(server1)),
              static_cast<ssize_t>(report.size()));
    server.Run();
    EXPECT_EQ(server.Players().at(0).loss, 0U);
    close(nSocket);
}

TEST_F(SteppedFeedback, ReportsOfAnotherPortAreTheOnlyPlayersOfTheirAddress)
{
    KovaUdpPair other;
    const uint16_t nServer = server.Loop()->pUdpPorts->nRtcpPort;
    ASSERT_TRUE(other.SendRtcp(nServer, ReportOf({ssrcs[0], 5, 0, 0, 0})));
    server.Run();
    EXPECT_EQ(server.Players().at(0).loss, 5U);
    KovaLiveClient second;
    ASSERT_TRUE(server.Play(&second, true));
    ASSERT_TRUE(other.SendRtcp(nServer, ReportOf({ssrcs[0], 6, 0, 0, 0})));
    server.Run();
    for (const KovaLivePlayer &player : server.Players())
        EXPECT_NE(player.loss, 6U) << "whose it is cannot be told";
}

TEST_F(SteppedFeedback, APausedPlayerIsListedAndDoesNotCountAsPlaying)
{
    EXPECT_EQ(server.Figures().players, 1U);
    server.Serve([this] { EXPECT_EQ(client.Pause("cam").nStatus, 200); });
    EXPECT_EQ(server.Figures().players, 0U);
    EXPECT_EQ(server.Figures().sessions, 1U);
    EXPECT_EQ(server.Players().size(), 1U);
}

TEST_F(SteppedFeedback, TheTimeOfAPlayerCountsFromItsFirstPlay)
{
    KovaSteppedServer::Advance(3 * kSecond);
    EXPECT_EQ(server.Players().at(0).playing_us, 3 * kSecond);
    server.Serve([this] {
        EXPECT_EQ(client.Pause("cam").nStatus, 200);
        EXPECT_EQ(client.Play("cam").nStatus, 200);
    });
    EXPECT_EQ(server.Players().at(0).playing_us, 3 * kSecond);
}
