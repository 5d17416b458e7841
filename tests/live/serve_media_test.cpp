#include "tests/live/live_host.h"
#include "tests/support/sockets.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>

// Media and reports as they reach players (RFC 3550, 6184 and 3640).

namespace {

constexpr uint32_t kFrom1900 = 2208988800U;

struct LiveMedia : testing::TestWithParam<bool> {
    KovaLiveHost host;
    KovaLiveStream *pStream = host.AddStream("cam");
    KovaLiveTrack *pVideo = KovaLiveHost::AddVideo(pStream);
    KovaLiveClient client;

    KovaLiveAnswer Setup(KovaLiveClient *pClient, const char *szPath = "cam", int nTrack = 1) const
    {
        return GetParam() ? pClient->SetupUdp(szPath, nTrack) : pClient->SetupTcp(szPath, nTrack);
    }
    std::string Next(KovaLiveClient *pClient, int nTrack = 1) const
    {
        return KovaLiveSlice(KovaLiveNextUnit(pClient, nTrack));
    }
    void Push(const std::string &picture, int64_t nPts) const
    {
        EXPECT_EQ(KovaLivePushText(pVideo, picture, nPts), KOVA_LIVE_OK);
    }
};

INSTANTIATE_TEST_SUITE_P(Way, LiveMedia, testing::Bool(),
                         [](const auto &way) { return way.param ? "Udp" : "Interleaved"; });

uint32_t Hex(const std::string &text)
{
    return static_cast<uint32_t>(strtoul(text.c_str(), nullptr, 16));
}

} // namespace

TEST_P(LiveMedia, PacketsAreNumberedTimedAndMarked)
{
    ASSERT_TRUE(client.Connect(host.Port()));
    const uint32_t nSsrc = Hex(Setup(&client).Transport("ssrc"));
    ASSERT_EQ(client.Play("cam").nStatus, 200);
    for (int nPicture = 0; nPicture < 5; nPicture++)
        Push(KovaLiveKey(4000, nPicture), 40000 * nPicture);
    uint16_t nSequence = 0;
    uint32_t nTimestamp = 0;
    for (unsigned nPicture = 0; nPicture < 5; nPicture++) {
        const std::vector<KovaLiveRtp> unit = KovaLiveNextUnit(&client, 1);
        ASSERT_GT(unit.size(), 2U);
        EXPECT_EQ(KovaLiveSlice(unit), KovaMediaNal(0x65, 4000, nPicture));
        if (nPicture != 0) {
            EXPECT_EQ(unit[0].header.nSequence, nSequence);
            EXPECT_EQ(unit[0].header.nTimestamp, nTimestamp + 3600);
        }
        nSequence = static_cast<uint16_t>(unit.back().header.nSequence + 1);
        nTimestamp = unit[0].header.nTimestamp;
        for (const KovaLiveRtp &packet : unit) {
            EXPECT_EQ(packet.header.nSsrc, nSsrc);
            EXPECT_EQ(packet.header.nPayloadType, 96);
            EXPECT_EQ(packet.header.bMarker, &packet == &unit.back());
            EXPECT_LE(packet.packet.size(), 1400U);
        }
    }
}

TEST_P(LiveMedia, TwoTracksShareTheirClockAndName)
{
    KovaLiveTrack *pSound = KovaLiveHost::AddSound(pStream);
    EXPECT_EQ(KovaLivePushText(pSound, KovaLiveSound(), 0), KOVA_LIVE_OK);
    ASSERT_TRUE(client.Connect(host.Port()));
    ASSERT_EQ(Setup(&client, "cam", 1).nStatus, 200);
    ASSERT_EQ(Setup(&client, "cam", 2).nStatus, 200);
    ASSERT_EQ(client.Play("cam").nStatus, 200);
    Push(KovaLiveKey(), 1000000);
    EXPECT_EQ(KovaLivePushText(pSound, KovaLiveSound(7), 1000000), KOVA_LIVE_OK);
    KovaLiveRtp packet;
    ASSERT_TRUE(client.NextRtp(2, &packet));
    EXPECT_EQ(packet.payload.substr(4), KovaMediaNal(0x21, 200, 7));
    EXPECT_EQ(Next(&client), KovaMediaNal(0x65, 500));
    std::string reports[2];
    std::string names[2];
    for (const int nTrack : {1, 2}) {
        ASSERT_TRUE(client.NextRtcp(nTrack, &reports[nTrack - 1]));
        const std::vector<KovaRtcpPart> parts = KovaRtcpParts(reports[nTrack - 1]);
        ASSERT_EQ(parts.size(), 2U);
        names[nTrack - 1] = parts[1].bytes.substr(8);
    }
    EXPECT_EQ(names[0], names[1]) << "players pair tracks by it";
}

/// Microseconds of a report's NTP time, modulo 2^32 seconds.
int64_t NtpMicroseconds(const std::string &report)
{
    const uint64_t nFraction = KovaNumberAt(report, 12);
    return int64_t{KovaNumberAt(report, 8)} * 1000000 +
           static_cast<int64_t>((nFraction * 1000000 + (uint64_t{1} << 31)) >> 32);
}

/// Rounded, they would be a step of the clock off it, and so would what players work out.
TEST_P(LiveMedia, ReportsOfATrackLieOnOneLine)
{
    ASSERT_TRUE(client.Connect(host.Port()));
    ASSERT_EQ(Setup(&client).nStatus, 200);
    ASSERT_EQ(client.Play("cam").nStatus, 200);
    std::string reports[2];
    int64_t nPts = 123457;
    Push(KovaLiveKey(), nPts);
    ASSERT_TRUE(client.NextRtcp(1, &reports[0]));
    // The next one comes after a second.
    for (int nUnit = 0; nUnit < 40; nUnit++) {
        std::this_thread::sleep_for(std::chrono::microseconds(33333));
        nPts += 33333;
        Push(KovaLiveKey(), nPts);
    }
    ASSERT_TRUE(client.NextRtcp(1, &reports[1]));
    const int64_t nTicks =
        static_cast<int32_t>(KovaNumberAt(reports[1], 16) - KovaNumberAt(reports[0], 16));
    EXPECT_GT(nTicks, 0);
    EXPECT_EQ(nTicks * 100, (NtpMicroseconds(reports[1]) - NtpMicroseconds(reports[0])) * 9);
}

TEST_P(LiveMedia, ReportComesBeforeTheFirstPacketAndIsExact)
{
    ASSERT_TRUE(client.Connect(host.Port()));
    const uint32_t nSsrc = Hex(Setup(&client).Transport("ssrc"));
    ASSERT_EQ(client.Play("cam").nStatus, 200);
    timeval before = {};
    gettimeofday(&before, nullptr);
    Push(KovaLiveKey(), 5000000);
    std::string report;
    ASSERT_TRUE(client.NextRtcp(1, &report));
    timeval after = {};
    gettimeofday(&after, nullptr);
    const std::vector<KovaRtcpPart> parts = KovaRtcpParts(report);
    ASSERT_EQ(parts.size(), 2U);
    EXPECT_EQ(parts[0].nType, 200);
    EXPECT_EQ(parts[0].nCount, 0);
    ASSERT_EQ(parts[0].bytes.size(), 28U);
    EXPECT_EQ(KovaNumberAt(parts[0].bytes, 4), nSsrc);
    EXPECT_GE(KovaNumberAt(parts[0].bytes, 8),
              static_cast<uint32_t>(before.tv_sec) + kFrom1900 - 1);
    EXPECT_LE(KovaNumberAt(parts[0].bytes, 8), static_cast<uint32_t>(after.tv_sec) + kFrom1900);
    EXPECT_EQ(KovaNumberAt(parts[0].bytes, 20), 0U) << "no packet before it";
    EXPECT_EQ(KovaNumberAt(parts[0].bytes, 24), 0U);
    EXPECT_EQ(parts[1].nType, 202);
    EXPECT_EQ(parts[1].nCount, 1);
    EXPECT_EQ(KovaNumberAt(parts[1].bytes, 4), nSsrc);
    EXPECT_EQ(parts[1].bytes[8], 1) << "CNAME";
    KovaLiveRtp packet;
    ASSERT_TRUE(client.NextRtp(1, &packet));
    // The report's time stamp is of its own instant: a little behind the picture's.
    EXPECT_LT(KovaNumberAt(parts[0].bytes, 16) - packet.header.nTimestamp, 90000U * 5);
}

TEST_P(LiveMedia, ReportsCountPacketsAndPayloadBytesAndTheLastSaysGoodbye)
{
    ASSERT_TRUE(client.Connect(host.Port()));
    const uint32_t nSsrc = Hex(Setup(&client).Transport("ssrc"));
    ASSERT_EQ(client.Play("cam").nStatus, 200);
    Push(KovaLiveKey(5000), 0);
    const std::vector<KovaLiveRtp> unit = KovaLiveNextUnit(&client, 1);
    uint32_t nOctets = 0;
    for (const KovaLiveRtp &packet : unit)
        nOctets += static_cast<uint32_t>(packet.payload.size());
    std::string report;
    ASSERT_TRUE(client.NextRtcp(1, &report));
    ASSERT_EQ(client.Teardown("cam").nStatus, 200);
    ASSERT_TRUE(client.NextRtcp(1, &report));
    const std::vector<KovaRtcpPart> parts = KovaRtcpParts(report);
    ASSERT_EQ(parts.size(), 3U);
    EXPECT_EQ(KovaNumberAt(parts[0].bytes, 20), unit.size());
    EXPECT_EQ(KovaNumberAt(parts[0].bytes, 24), nOctets);
    EXPECT_EQ(parts[2].nType, 203);
    EXPECT_EQ(parts[2].nCount, 1);
    EXPECT_EQ(KovaNumberAt(parts[2].bytes, 4), nSsrc);
}

TEST_P(LiveMedia, NewcomerBeginsWithAKeyFrameThatTheHostIsAskedFor)
{
    Push(KovaLiveKey(300, 1), 0);
    ASSERT_TRUE(client.Connect(host.Port()));
    ASSERT_EQ(Setup(&client).nStatus, 200);
    ASSERT_EQ(client.Play("cam").nStatus, 200);
    const KovaToldEvent event = host.WaitEvent(KOVA_LIVE_EVENT_KEY_FRAME);
    EXPECT_EQ(event.pTrack, pVideo);
    EXPECT_EQ(event.pStream, pStream);
    Push(KovaLiveOther(300, 2), 40000);
    Push(KovaLiveKey(300, 3), 80000);
    Push(KovaLiveOther(300, 4), 120000);
    EXPECT_EQ(Next(&client), KovaMediaNal(0x65, 300, 3));
    EXPECT_EQ(Next(&client), KovaMediaNal(0x41, 300, 4));
}

TEST_P(LiveMedia, KeptGroupBeginsAtOnceWithoutGapOrDouble)
{
    KovaLiveStream *pKept =
        host.AddStream("kept", [](KovaLiveStreamConfig *pConfig) { pConfig->keep_group = 1; });
    KovaLiveTrack *pTrack = KovaLiveHost::AddVideo(pKept);
    const auto push = [pTrack](unsigned nPicture) {
        const std::string picture =
            nPicture % 10 == 0 ? KovaLiveKey(3000, nPicture) : KovaLiveOther(3000, nPicture);
        EXPECT_EQ(KovaLivePushText(pTrack, picture, 40000 * nPicture), KOVA_LIVE_OK);
    };
    for (unsigned nPicture = 0; nPicture < 15; nPicture++)
        push(nPicture);
    ASSERT_TRUE(client.Connect(host.Port()));
    ASSERT_EQ(Setup(&client, "kept").nStatus, 200);
    ASSERT_EQ(client.Play("kept").nStatus, 200);
    uint16_t nSequence = 0;
    for (unsigned nPicture = 10; nPicture < 25; nPicture++) {
        if (nPicture >= 15)
            push(nPicture);
        const std::vector<KovaLiveRtp> unit = KovaLiveNextUnit(&client, 1);
        ASSERT_FALSE(unit.empty()) << nPicture;
        EXPECT_EQ(KovaLiveSlice(unit),
                  KovaMediaNal(nPicture % 10 == 0 ? 0x65 : 0x41, 3000, nPicture));
        if (nPicture != 10) {
            EXPECT_EQ(unit[0].header.nSequence, nSequence);
        }
        nSequence = static_cast<uint16_t>(unit.back().header.nSequence + 1);
    }
    EXPECT_TRUE(host.Events(KOVA_LIVE_EVENT_KEY_FRAME).empty()) << "none is needed";
}

TEST_P(LiveMedia, ReportComesBeforeAKeptGroupAsWell)
{
    KovaLiveStream *pKept =
        host.AddStream("kept", [](KovaLiveStreamConfig *pConfig) { pConfig->keep_group = 1; });
    KovaLiveTrack *pTrack = KovaLiveHost::AddVideo(pKept);
    EXPECT_EQ(KovaLivePushText(pTrack, KovaLiveKey(), 0), KOVA_LIVE_OK);
    ASSERT_TRUE(client.Connect(host.Port()));
    ASSERT_EQ(Setup(&client, "kept").nStatus, 200);
    ASSERT_EQ(client.Play("kept").nStatus, 200);
    std::string report;
    ASSERT_TRUE(client.NextRtcp(1, &report));
    const std::vector<KovaRtcpPart> parts = KovaRtcpParts(report);
    ASSERT_EQ(parts.size(), 2U);
    EXPECT_EQ(KovaNumberAt(parts[0].bytes, 20), 0U);
    EXPECT_EQ(Next(&client), KovaMediaNal(0x65, 500));
}

TEST_P(LiveMedia, LargeUnitArrivesWholeAndInOrderWithTheNextBehindIt)
{
    ASSERT_TRUE(client.Connect(host.Port()));
    ASSERT_EQ(Setup(&client).nStatus, 200);
    ASSERT_EQ(client.Play("cam").nStatus, 200);
    Push(KovaLiveKey(500, 0), 0);
    EXPECT_EQ(Next(&client), KovaMediaNal(0x65, 500, 0));
    // The distance of two units is known: the large one is spread over half of it.
    Push(KovaLiveKey(150000, 1), 200000);
    Push(KovaLiveOther(900, 2), 400000);
    EXPECT_EQ(Next(&client), KovaMediaNal(0x65, 150000, 1));
    EXPECT_EQ(Next(&client), KovaMediaNal(0x41, 900, 2));
    Push(KovaLiveOther(150000, 3), 600000);
    EXPECT_EQ(Next(&client), KovaMediaNal(0x41, 150000, 3)) << "the rest comes by time";
}

TEST(LiveMediaInterleaved, VeryLargeUnitsArriveWholeAndInOrder)
{
    KovaLiveHost host;
    KovaLiveTrack *pVideo = KovaLiveHost::AddVideo(host.AddStream("cam"));
    KovaLiveClient client;
    ASSERT_TRUE(KovaLivePlayTcp(&client, host));
    const size_t sizes[] = {300000, 700, 900000, 66000, 300000};
    for (unsigned nPicture = 0; nPicture < 5; nPicture++)
        ASSERT_EQ(
            KovaLivePushText(pVideo, KovaLiveKey(sizes[nPicture], nPicture), 40000 * nPicture),
            KOVA_LIVE_OK);
    for (unsigned nPicture = 0; nPicture < 5; nPicture++)
        EXPECT_EQ(KovaLiveSlice(KovaLiveNextUnit(&client, 1)),
                  KovaMediaNal(0x65, sizes[nPicture], nPicture));
}

TEST_P(LiveMedia, PlayerThatPausesInsideASpreadUnitGetsNoneOfItsRest)
{
    ASSERT_TRUE(client.Connect(host.Port()));
    ASSERT_EQ(Setup(&client).nStatus, 200);
    ASSERT_EQ(client.Play("cam").nStatus, 200);
    Push(KovaLiveKey(500, 0), 0);
    EXPECT_EQ(Next(&client), KovaMediaNal(0x65, 500, 0));
    Push(KovaLiveKey(150000, 1), 900000); // in three pieces, 150 ms apart
    KovaLiveRtp packet;
    ASSERT_TRUE(client.NextRtp(1, &packet));
    ASSERT_EQ(client.Pause("cam").nStatus, 200);
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    ASSERT_EQ(client.Play("cam").nStatus, 200);
    // What was sent before the pause is read away.
    std::vector<uint16_t> sequences;
    while (client.NextRtp(1, &packet, 300))
        sequences.push_back(packet.header.nSequence);
    for (size_t nPacket = 1; nPacket < sequences.size(); nPacket++)
        ASSERT_EQ(sequences[nPacket], static_cast<uint16_t>(sequences[nPacket - 1] + 1))
            << "a gap: the rest of a unit whose middle was not sent";
    Push(KovaLiveKey(500, 2), 1800000);
    EXPECT_EQ(Next(&client), KovaMediaNal(0x65, 500, 2));
}

TEST(LiveMediaUdp, MediaAndReportsLeaveFromThePortsThatSetupTold)
{
    KovaLiveHost host;
    KovaLiveTrack *pVideo = KovaLiveHost::AddVideo(host.AddStream("cam"));
    KovaLiveClient client;
    ASSERT_TRUE(client.Connect(host.Port()));
    const int nRtp = socket(AF_INET, SOCK_DGRAM, 0);
    const int nRtcp = socket(AF_INET, SOCK_DGRAM, 0);
    ASSERT_EQ(nRtp >= 0 && nRtcp >= 0, true);
    int nPort = 45000;
    for (;; nPort += 2) {
        const sockaddr_in rtp = KovaLoopback(static_cast<uint16_t>(nPort));
        const sockaddr_in rtcp = KovaLoopback(static_cast<uint16_t>(nPort + 1));
        ASSERT_LT(nPort, 45100);
        if (bind(nRtp, KovaPlain(rtp), sizeof(rtp)) == 0 &&
            bind(nRtcp, KovaPlain(rtcp), sizeof(rtcp)) == 0)
            break;
    }
    const KovaLiveAnswer answer =
        client.Setup("cam", 1, KovaUdpTransport(static_cast<uint16_t>(nPort)));
    ASSERT_EQ(answer.nStatus, 200);
    const int nServer = atoi(answer.Transport("server_port").c_str());
    ASSERT_EQ(client.Play("cam").nStatus, 200);
    ASSERT_EQ(KovaLivePushText(pVideo, KovaLiveKey(), 0), KOVA_LIVE_OK);
    for (const int nSocket : {nRtp, nRtcp}) {
        ASSERT_TRUE(KovaWaitReadable(nSocket, kLiveWaitMs));
        char bytes[2000];
        sockaddr_in from = {};
        socklen_t nLength = sizeof(from);
        ASSERT_GT(recvfrom(nSocket, bytes, sizeof(bytes), 0, reinterpret_cast<sockaddr *>(&from),
                           &nLength),
                  0);
        EXPECT_EQ(ntohs(from.sin_port), nServer + (nSocket == nRtcp ? 1 : 0));
        EXPECT_EQ(from.sin_addr.s_addr, htonl(INADDR_LOOPBACK));
        close(nSocket);
    }
}

TEST(LiveMediaDelay, MediaLeavesAfterTheHostsDelay)
{
    KovaLiveHost host([](KovaLiveConfig *pConfig) { pConfig->delay_ms = 400; });
    KovaLiveTrack *pVideo = KovaLiveHost::AddVideo(host.AddStream("cam"));
    KovaLiveClient client;
    ASSERT_TRUE(KovaLivePlayTcp(&client, host));
    const auto begin = std::chrono::steady_clock::now();
    for (unsigned nPicture = 0; nPicture < 3; nPicture++)
        ASSERT_EQ(KovaLivePushText(pVideo, KovaLiveKey(500, nPicture), nPicture), KOVA_LIVE_OK);
    for (unsigned nPicture = 0; nPicture < 3; nPicture++)
        EXPECT_EQ(KovaLiveSlice(KovaLiveNextUnit(&client, 1)), KovaMediaNal(0x65, 500, nPicture));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(399));
}

TEST(LiveMediaDelay, KeptGroupAndDelayTogetherDoubleNothing)
{
    KovaLiveHost host([](KovaLiveConfig *pConfig) { pConfig->delay_ms = 200; });
    KovaLiveTrack *pVideo = KovaLiveHost::AddVideo(
        host.AddStream("cam", [](KovaLiveStreamConfig *pConfig) { pConfig->keep_group = 1; }));
    KovaLiveClient first;
    ASSERT_TRUE(KovaLivePlayTcp(&first, host));
    for (unsigned nPicture = 0; nPicture < 3; nPicture++)
        ASSERT_EQ(KovaLivePushText(pVideo,
                                   nPicture == 0 ? KovaLiveKey() : KovaLiveOther(300, nPicture),
                                   40000 * nPicture),
                  KOVA_LIVE_OK);
    KovaLiveClient client;
    ASSERT_TRUE(KovaLivePlayTcp(&client, host));
    ASSERT_EQ(KovaLivePushText(pVideo, KovaLiveOther(300, 3), 120000), KOVA_LIVE_OK);
    EXPECT_EQ(KovaLiveSlice(KovaLiveNextUnit(&client, 1)), KovaMediaNal(0x65, 500));
    for (unsigned nPicture = 1; nPicture < 4; nPicture++)
        EXPECT_EQ(KovaLiveSlice(KovaLiveNextUnit(&client, 1)), KovaMediaNal(0x41, 300, nPicture));
    KovaLiveRtp packet;
    EXPECT_FALSE(client.NextRtp(1, &packet, 400));
}

TEST(LiveMediaFeedback, LossAndRequestsAskTheHostForAKeyFrame)
{
    KovaLiveHost host;
    KovaLiveTrack *pVideo = KovaLiveHost::AddVideo(host.AddStream("cam"));
    KovaLiveClient client;
    ASSERT_TRUE(client.Connect(host.Port()));
    const uint32_t nSsrc = Hex(client.SetupUdp("cam", 1).Transport("ssrc"));
    ASSERT_EQ(client.Play("cam").nStatus, 200);
    host.WaitEvent(KOVA_LIVE_EVENT_KEY_FRAME);
    ASSERT_EQ(KovaLivePushText(pVideo, KovaLiveKey(), 0), KOVA_LIVE_OK);
    ASSERT_TRUE(client.SendRtcp(1, KovaLiveReport(nSsrc, 3)));
    ASSERT_TRUE(client.SendRtcp(1, KovaLiveReport(nSsrc + 1, 200)));
    KovaLivePlayer player = {};
    player.size = sizeof(player);
    uint32_t nCount = 0;
    EXPECT_TRUE(KovaWaitUntil([&] {
        return KovaLivePlayers(host.Live(), &player, 1, &nCount) == KOVA_LIVE_OK &&
               player.loss == 3;
    }));
    EXPECT_EQ(player.jitter_us, 10000U);
    EXPECT_EQ(host.Events(KOVA_LIVE_EVENT_KEY_FRAME).size(), 1U);
    // A loss that hurts, repeated until the host may be asked again.
    EXPECT_TRUE(KovaWaitUntil([&] {
        client.SendRtcp(1, KovaLiveReport(nSsrc, 40));
        return host.Events(KOVA_LIVE_EVENT_KEY_FRAME).size() == 2;
    }));
    const std::string pli =
        KovaLiveReport(nSsrc, 0, false) + KovaMediaBytes({0x81, 206, 0, 2, 0, 0, 0, 1, 0, 0, 0, 2});
    EXPECT_TRUE(KovaWaitUntil([&] {
        client.SendRtcp(1, pli);
        return host.Events(KOVA_LIVE_EVENT_KEY_FRAME).size() == 3;
    }));
}
