#include "classic/rtsp/server_calls.h"
#include "tests/e2e/e2e_fixture.h"

namespace {

TEST_F(EndToEnd, StreamStatusGoesThroughAllItsValues)
{
    EXPECT_EQ(Figure(KOVA_STATUS_STREAM), KOVA_STREAM_NOT_READY);
    ASSERT_TRUE(m_server->PushReady());
    EXPECT_TRUE(AwaitStatus(KOVA_STREAM_IDLE));
    KovaPlayer player(false);
    ASSERT_TRUE(player.SetUp(m_server.get()));
    ASSERT_TRUE(player.Play());
    // Nothing is pushed, so nothing flows yet.
    EXPECT_TRUE(AwaitStatus(KOVA_STREAM_STALLED, {&player}));
    EXPECT_EQ(Figure(KOVA_STATUS_BITRATE), 0u);
    KovaSyntheticFeed feed(m_server->Stream(), m_small);
    feed.Start(4000);
    EXPECT_TRUE(AwaitStatus(KOVA_STREAM_FLOWING, {&player}));
    EXPECT_GT(Figure(KOVA_STATUS_BITRATE), 0u);
    EXPECT_EQ(ClientCount(), 1);
    feed.Stop();
    KovaCollect({&player}, 1300);
    // Rates are means over a little more than 10 s.
    m_clock.Advance(11'000'000);
    EXPECT_TRUE(AwaitStatus(KOVA_STREAM_STALLED, {&player}));
    EXPECT_EQ(Figure(KOVA_STATUS_BITRATE), 0u);
    EXPECT_EQ(player.Rtsp().Teardown("live").nStatus, 200);
    EXPECT_TRUE(AwaitStatus(KOVA_STREAM_IDLE));
    EXPECT_EQ(ClientCount(), 0);
}

TEST_F(EndToEnd, PlayersGoOnWhileTheServerIsStoppedAndStartedAgain)
{
    m_server->MakeReady();
    KovaSyntheticFeed feed(m_server->Stream(), m_small);
    feed.Start(100000); // until it is stopped
    KovaPlayer udp(true), tcp(false), later(false);
    for (KovaPlayer *pPlayer : {&udp, &tcp}) {
        ASSERT_TRUE(pPlayer->SetUp(m_server.get()));
        ASSERT_TRUE(pPlayer->Play());
        ASSERT_TRUE(AwaitPackets(pPlayer, 97, 5, {&udp}));
    }
    EXPECT_EQ(KovaRtspServerStop(m_server->Server()), KOVA_OK);
    KovaRtspTestClient refused;
    EXPECT_FALSE(refused.Connect(m_server->Port()));
    const size_t nUdp = udp.RtpCount(97), nTcp = tcp.RtpCount(97);
    EXPECT_TRUE(AwaitPackets(&udp, 97, nUdp + 30, {&tcp}));
    EXPECT_TRUE(AwaitPackets(&tcp, 97, nTcp + 30, {&udp}));
    EXPECT_EQ(tcp.Rtsp().GetParameter("live").nStatus, 200);
    EXPECT_EQ(ClientCount(), 2);

    EXPECT_EQ(KovaRtspServerStart(m_server->Server()), KOVA_OK);
    ASSERT_TRUE(later.SetUp(m_server.get()));
    ASSERT_TRUE(later.Play());
    EXPECT_TRUE(AwaitPackets(&later, 97, 10, {&udp, &tcp}));
    EXPECT_EQ(ClientCount(), 3);
    feed.Stop();
    KovaCollect({&udp, &tcp, &later}, 100);
    for (KovaPlayer *pPlayer : {&udp, &tcp, &later}) {
        KovaH264Depacketizer video;
        KovaAacDepacketizer audio;
        KovaReassemble(*pPlayer, 97, &video);
        KovaReassemble(*pPlayer, 96, &audio);
        EXPECT_EQ(video.Complaint(), "");
        EXPECT_EQ(audio.Complaint(), "");
    }
}

TEST_F(EndToEnd, WithdrawnStreamEndsForItsPlayersAndCanBePublishedAgain)
{
    m_server->MakeReady();
    KovaSyntheticFeed feed(m_server->Stream(), m_small);
    feed.Start(6000);
    KovaPlayer udp(true), tcp(false), waiting(false);
    for (KovaPlayer *pPlayer : {&udp, &tcp}) {
        ASSERT_TRUE(pPlayer->SetUp(m_server.get()));
        ASSERT_TRUE(pPlayer->Play());
        ASSERT_TRUE(AwaitPackets(pPlayer, 97, 5));
    }
    ASSERT_TRUE(waiting.SetUp(m_server.get()));
    feed.Stop(); // nobody may push to a stream that is being withdrawn
    const auto begin = std::chrono::steady_clock::now();
    m_server->RemoveStream();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
    KovaCollect({&udp, &tcp, &waiting}, 100);
    const size_t nArrivals = udp.Arrivals().size() + tcp.Arrivals().size();
    KovaCollect({&udp, &tcp, &waiting}, 500);
    EXPECT_EQ(udp.Arrivals().size() + tcp.Arrivals().size(), nArrivals);
    EXPECT_EQ(KovaRtspServerGetCurrentClientCount(m_server->Server()), 0);
    EXPECT_EQ(tcp.Rtsp().Describe("live").nStatus, 404);
    EXPECT_EQ(waiting.Rtsp().Play("live").nStatus, 404);
    // Everything that was queued went out before the end.
    for (KovaPlayer *pPlayer : {&udp, &tcp}) {
        KovaH264Depacketizer video;
        KovaReassemble(*pPlayer, 97, &video);
        EXPECT_EQ(video.Complaint(), "");
    }

    KovaRtspStreamer *pAgain = m_server->AddStream("live");
    ASSERT_NE(pAgain, nullptr);
    KovaTestServer::MakeReady(pAgain);
    KovaPlayer second(true);
    ASSERT_TRUE(second.SetUp(m_server.get()));
    ASSERT_TRUE(second.Play());
    KovaSyntheticFeed again(pAgain, m_small);
    again.Start(2000);
    EXPECT_TRUE(AwaitPackets(&second, 97, 20));
}

} // namespace
