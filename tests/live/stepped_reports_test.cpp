#include "tests/live/stepped_server.h"
#include "tests/support/socket_faults.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <deque>
#include <string>
#include <vector>

// When sender reports are sent, and when one is left out.

namespace {

constexpr uint64_t kSecond = 1000000;

struct SteppedReports : testing::TestWithParam<bool> {
    KovaSteppedServer server;
    KovaLiveStream *pStream = server.AddStream("cam");
    KovaLiveTrack *pVideo = KovaLiveHost::AddVideo(pStream);
    KovaLiveClient client;
    int64_t nPts = 0;

    /// How many reports came with one more picture.
    int Reports()
    {
        nPts += 40000;
        EXPECT_EQ(KovaLivePushText(pVideo, KovaLiveKey(), nPts), KOVA_LIVE_OK);
        server.Run();
        EXPECT_FALSE(KovaLiveNextUnit(&client, 1).empty());
        int nReports = 0;
        for (std::string report; client.NextRtcp(1, &report, 0); nReports++)
            EXPECT_EQ(KovaRtcpParts(report).size(), 2U);
        return nReports;
    }
};

INSTANTIATE_TEST_SUITE_P(Way, SteppedReports, testing::Bool(),
                         [](const auto &way) { return way.param ? "Udp" : "Interleaved"; });

} // namespace

TEST_P(SteppedReports, SecondComesAfterASecondAndFurtherOnesAfterFive)
{
    ASSERT_TRUE(server.Play(&client, GetParam()));
    EXPECT_EQ(Reports(), 1) << "with the first picture";
    EXPECT_EQ(Reports(), 0);
    for (const uint64_t nWait : {kSecond, 5 * kSecond, 5 * kSecond}) {
        KovaSteppedServer::Advance(nWait - 1);
        EXPECT_EQ(Reports(), 0) << nWait;
        KovaSteppedServer::Advance(1);
        EXPECT_EQ(Reports(), 1) << nWait;
    }
}

TEST_P(SteppedReports, NoneComesBeforeMediaDoes)
{
    ASSERT_TRUE(server.Play(&client, GetParam()));
    EXPECT_EQ(KovaLivePushText(pVideo, KovaLiveOther(), 0), KOVA_LIVE_OK);
    server.Run();
    std::string report;
    EXPECT_FALSE(client.NextRtcp(1, &report, 20));
    EXPECT_EQ(Reports(), 1);
}

TEST_P(SteppedReports, EachTellsAMomentThatBothClocksShowExactly)
{
    ASSERT_TRUE(server.Play(&client, GetParam()));
    std::string reports[2];
    nPts = 123457;
    for (std::string &report : reports) {
        EXPECT_EQ(KovaLivePushText(pVideo, KovaLiveKey(), nPts), KOVA_LIVE_OK);
        server.Run();
        ASSERT_TRUE(client.NextRtcp(1, &report));
        // The next picture is a little off its time, and off a whole step of its clock.
        KovaSteppedServer::Advance(kSecond + 37);
        nPts += 1000011;
    }
    const auto microseconds = [](const std::string &report) {
        const uint64_t nFraction = KovaNumberAt(report, 12);
        return int64_t{KovaNumberAt(report, 8)} * 1000000 +
               static_cast<int64_t>((nFraction * 1000000 + (uint64_t{1} << 31)) >> 32);
    };
    const uint32_t nTicks = KovaNumberAt(reports[1], 16) - KovaNumberAt(reports[0], 16);
    EXPECT_EQ(nTicks, 90000U);
    EXPECT_EQ(microseconds(reports[1]) - microseconds(reports[0]), 1000000);
}

TEST_P(SteppedReports, AKeptGroupThatIsGivenAgainBringsNoOther)
{
    KovaLiveTrack *pTrack = KovaLiveHost::AddVideo(
        server.AddStream("kept", [](KovaLiveStreamConfig *pConfig) { pConfig->keep_group = 1; }));
    EXPECT_EQ(KovaLivePushText(pTrack, KovaLiveKey(), 0), KOVA_LIVE_OK);
    ASSERT_TRUE(server.Play(&client, GetParam(), "kept"));
    std::string report;
    EXPECT_TRUE(client.NextRtcp(1, &report));
    EXPECT_FALSE(KovaLiveNextUnit(&client, 1).empty());
    server.Serve([this] {
        EXPECT_EQ(client.Pause("kept").nStatus, 200);
        EXPECT_EQ(client.Play("kept").nStatus, 200);
    });
    EXPECT_FALSE(KovaLiveNextUnit(&client, 1).empty());
    EXPECT_FALSE(client.NextRtcp(1, &report, 0));
}

TEST_P(SteppedReports, TheNameOfAStreamStaysWhenItGetsMoreTracks)
{
    ASSERT_TRUE(server.Play(&client, GetParam()));
    std::string names[2];
    for (std::string &name : names) {
        nPts += 1000000;
        EXPECT_EQ(KovaLivePushText(pVideo, KovaLiveKey(), nPts), KOVA_LIVE_OK);
        server.Run();
        std::string report;
        ASSERT_TRUE(client.NextRtcp(1, &report));
        const std::vector<KovaRtcpPart> parts = KovaRtcpParts(report);
        ASSERT_EQ(parts.size(), 2U);
        name = parts[1].bytes.substr(8);
        KovaLiveHost::AddVideo(pStream);
        KovaSteppedServer::Advance(kSecond);
    }
    EXPECT_EQ(names[0], names[1]) << "players pair tracks by it";
}

TEST_P(SteppedReports, OneThatPausedGoesOnWithTheReportsThatAreDue)
{
    ASSERT_TRUE(server.Play(&client, GetParam()));
    EXPECT_EQ(Reports(), 1);
    server.Serve([this] {
        EXPECT_EQ(client.Pause("cam").nStatus, 200);
        EXPECT_EQ(client.Play("cam").nStatus, 200);
    });
    EXPECT_EQ(Reports(), 0);
    KovaSteppedServer::Advance(kSecond);
    EXPECT_EQ(Reports(), 1);
}

namespace {

struct SteppedFullReports : SteppedReports {};
INSTANTIATE_TEST_SUITE_P(Way, SteppedFullReports, testing::Values(false),
                         [](const auto &) { return "Interleaved"; });

} // namespace

TEST_P(SteppedFullReports, OneThatFindsItsConnectionFullIsLeftOut)
{
    ASSERT_TRUE(server.Play(&client, false));
    EXPECT_EQ(Reports(), 1);
    KovaSteppedServer::Advance(kSecond);
    {
        // A part of a frame, and no more.
        KovaSocketFaults faults;
        const int nSocket = server.Loop()->pConnections->item.nDescriptor;
        faults.Script(nSocket, {{0, 1000000}, {0, 100}, {EAGAIN, 0}, {EAGAIN, 0}});
        EXPECT_EQ(KovaLivePushText(pVideo, KovaLiveKey(), nPts += 40000), KOVA_LIVE_OK);
        server.Run(1);
        faults.Script(nSocket, std::deque<KovaScriptedSend>(100, KovaScriptedSend{EAGAIN, 0}));
        ASSERT_NE(server.Loop()->pConnections->pBegun, nullptr);
        KovaSteppedServer::Advance(5 * kSecond);
        EXPECT_EQ(KovaLivePushText(pVideo, KovaLiveKey(), nPts += 40000), KOVA_LIVE_OK);
        server.Run(1);
        EXPECT_EQ(server.Loop()->pConnections->pending.pBytes, nullptr);
    }
    server.Run();
    std::string report;
    EXPECT_TRUE(client.NextRtcp(1, &report)) << "that of the first picture";
    EXPECT_FALSE(KovaLiveNextUnit(&client, 1).empty());
    EXPECT_FALSE(KovaLiveNextUnit(&client, 1).empty());
    EXPECT_FALSE(client.NextRtcp(1, &report, 0));
    // The next one comes when it would have come anyway.
    KovaSteppedServer::Advance(5 * kSecond - 1);
    EXPECT_EQ(Reports(), 0);
    KovaSteppedServer::Advance(1);
    EXPECT_EQ(Reports(), 1);
}
