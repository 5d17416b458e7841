#include "tests/e2e/e2e_fixture.h"

namespace {

TEST_F(EndToEnd, TwoTracksAreOneSessionAndOneClient)
{
    m_server->MakeReady();
    KovaSyntheticFeed feed(m_server->Stream(), m_small);
    feed.Start(4000);
    KovaPlayer player(false);
    ASSERT_TRUE(player.SetUp(m_server.get()));
    EXPECT_EQ(m_server->SessionCount(), 1u);
    EXPECT_EQ(TrackClients(96), 1u);
    EXPECT_EQ(TrackClients(97), 1u);
    EXPECT_EQ(ClientCount(), 0);
    ASSERT_TRUE(player.Play());
    EXPECT_EQ(ClientCount(), 1);
    const std::string info = player.PlayAnswer().Header("RTP-Info");
    const std::string url = "url=rtsp://127.0.0.1:" + std::to_string(m_server->Port()) + "/live/";
    EXPECT_EQ(info.find(url + "trackID=96;seq="), 0u) << info;
    EXPECT_NE(info.find(", " + url + "trackID=97;seq="), std::string::npos) << info;
    EXPECT_TRUE(AwaitPackets(&player, 96, 20));
    EXPECT_TRUE(AwaitPackets(&player, 97, 20));

    EXPECT_EQ(player.Rtsp().Teardown("live").nStatus, 200);
    EXPECT_EQ(m_server->SessionCount(), 0u);
    EXPECT_EQ(TrackClients(96) + TrackClients(97), 0u);
    EXPECT_EQ(ClientCount(), 0);
    player.Take(); // what was under way
    const size_t nBefore = player.Arrivals().size();
    KovaCollect({&player}, 300);
    EXPECT_EQ(player.Arrivals().size(), nBefore);
    // The connection goes on.
    EXPECT_EQ(player.Rtsp().Describe("live").nStatus, 454); // it still names the session
}

TEST_F(EndToEnd, ExpiredSessionStopsPlayingAndLeavesTheOthersAlone)
{
    m_server->MakeReady();
    KovaSyntheticFeed feed(m_server->Stream(), m_small);
    feed.Start(6000);
    KovaPlayer gone(true), stays(true);
    for (KovaPlayer *pPlayer : {&gone, &stays}) {
        ASSERT_TRUE(pPlayer->SetUp(m_server.get()));
        ASSERT_TRUE(pPlayer->Play());
    }
    ASSERT_TRUE(AwaitPackets(&gone, 97, 10));
    ASSERT_TRUE(AwaitPackets(&stays, 97, 10));
    EXPECT_EQ(ClientCount(), 2);
    ASSERT_TRUE(SetExpiry(gone.Rtsp().Session(), Now() - 1));
    EXPECT_TRUE(KovaWaitUntil(4000, [&] {
        KovaCollect({&gone, &stays}, 5);
        return m_server->SessionCount() == 1;
    }));
    EXPECT_EQ(ClientCount(), 1);
    EXPECT_EQ(TrackClients(97), 1u);
    KovaCollect({&gone, &stays}, 50);
    const size_t nGone = gone.Arrivals().size();
    const size_t nStays = stays.Arrivals().size();
    KovaCollect({&gone, &stays}, 700);
    EXPECT_EQ(gone.Arrivals().size(), nGone);
    EXPECT_GT(stays.Arrivals().size(), nStays);
    EXPECT_EQ(gone.Rtsp().GetParameter("live").text, "RTSP/1.0 454 Session Not Found\r\n\r\n");
}

TEST_F(EndToEnd, GetParameterAndReceiverReportsKeepASessionAlive)
{
    m_server->MakeReady();
    KovaSyntheticFeed feed(m_server->Stream(), m_small);
    feed.Start(6000);
    KovaPlayer udp(true), tcp(false);
    for (KovaPlayer *pPlayer : {&udp, &tcp}) {
        ASSERT_TRUE(pPlayer->SetUp(m_server.get()));
        ASSERT_TRUE(pPlayer->Play());
        ASSERT_TRUE(AwaitPackets(pPlayer, 97, 5));
    }
    const std::string report = KovaReceiverReport(m_server->Ssrc(97));
    const auto refreshed = [&](KovaPlayer *pPlayer) {
        return KovaWaitUntil(3000, [&] {
            KovaCollect({&udp, &tcp}, 5);
            return m_server->Expiry(pPlayer->Rtsp().Session()) >= Now() + 88;
        });
    };
    for (KovaPlayer *pPlayer : {&udp, &tcp}) {
        const std::string session = pPlayer->Rtsp().Session();
        EXPECT_LE(m_server->Expiry(session), Now() + 60);
        EXPECT_EQ(pPlayer->Rtsp().GetParameter("live").nStatus, 200);
        EXPECT_TRUE(refreshed(pPlayer));
        EXPECT_LE(m_server->Expiry(session), Now() + 90);
        ASSERT_TRUE(SetExpiry(session, Now() + 30));
    }
    ASSERT_TRUE(udp.Ports(97).SendRtcp(static_cast<uint16_t>(udp.ServerPort(97) + 1), report));
    EXPECT_TRUE(refreshed(&udp));
    EXPECT_LE(m_server->Expiry(tcp.Rtsp().Session()), Now() + 30);
    ASSERT_TRUE(tcp.Rtsp().Send(KovaInterleaved(3, report)));
    EXPECT_TRUE(refreshed(&tcp));
}

TEST_F(EndToEnd, PlayerThatVanishesIsCountedOutOnce)
{
    m_server->MakeReady();
    KovaSyntheticFeed feed(m_server->Stream(), m_small);
    feed.Start(6000);
    KovaPlayer vanishing(false), staying(false);
    for (KovaPlayer *pPlayer : {&vanishing, &staying}) {
        ASSERT_TRUE(pPlayer->SetUp(m_server.get()));
        ASSERT_TRUE(pPlayer->Play());
        ASSERT_TRUE(AwaitPackets(pPlayer, 97, 5));
    }
    EXPECT_EQ(ClientCount(), 2);
    vanishing.Rtsp().Close(true);
    EXPECT_TRUE(KovaWaitUntil(5000, [&] {
        KovaCollect({&staying}, 5);
        return TrackClients(96) == 1 && TrackClients(97) == 1 && m_server->SessionCount() == 1;
    }));
    KovaCollect({&staying}, 300);
    EXPECT_EQ(ClientCount(), 1);
    EXPECT_TRUE(m_server->WaitHandlers(1, 3000));
    staying.Rtsp().Close(true);
    EXPECT_TRUE(KovaWaitUntil(5000, [&] { return ClientCount() == 0; }));
    EXPECT_TRUE(KovaWaitUntil(5000, [&] { return m_server->SessionCount() == 0; }));
    EXPECT_TRUE(m_server->WaitHandlers(0, 3000));
    EXPECT_TRUE(AwaitStatus(KOVA_STREAM_IDLE));
}

} // namespace
