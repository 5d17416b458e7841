#include "tests/live/live_host.h"
#include "tests/support/sockets.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <set>
#include <string>
#include <thread>

// SETUP, PLAY, PAUSE and TEARDOWN (RFC 2326, section 10), and what keeps a session.

namespace {

struct LiveSessions : testing::Test {
    KovaLiveHost host{[](KovaLiveConfig *pConfig) { pConfig->session_ms = 1500; }};
    KovaLiveStream *pStream = host.AddStream("cam");
    KovaLiveTrack *pVideo = KovaLiveHost::AddVideo(pStream);
    KovaLiveTrack *pSound = KovaLiveHost::AddSound(pStream);
    KovaLiveClient client;

    void SetUp() override
    {
        ASSERT_EQ(KovaLivePushText(pSound, KovaLiveSound(), 0), KOVA_LIVE_OK);
        ASSERT_TRUE(client.Connect(host.Port()));
    }
    int SetupStatus(const std::string &transport, const char *szPath = "cam/track1")
    {
        client.SetSession("");
        return client.Request("SETUP", szPath, KovaTransportLine(transport)).nStatus;
    }
    std::string Base(const std::string &path = "cam") const
    {
        return "rtsp://127.0.0.1:" + std::to_string(host.Port()) + "/" + path + "/";
    }
};

} // namespace

TEST_F(LiveSessions, SetupOverUdpTellsBothSides)
{
    const KovaLiveAnswer answer = client.SetupUdp("cam", 1);
    ASSERT_EQ(answer.nStatus, 200) << answer.text;
    const int nClient = client.Ports(1).RtpPort();
    const int nServer = atoi(answer.Transport("server_port").c_str());
    EXPECT_EQ(nServer % 2, 0);
    EXPECT_EQ(answer.Header("Transport"),
              "RTP/AVP;unicast;client_port=" + std::to_string(nClient) + "-" +
                  std::to_string(nClient + 1) + ";source=127.0.0.1;server_port=" +
                  std::to_string(nServer) + "-" + std::to_string(nServer + 1) +
                  ";ssrc=" + answer.Transport("ssrc") + ";mode=\"PLAY\"");
    EXPECT_EQ(answer.Transport("ssrc").size(), 8U);
    EXPECT_EQ(answer.Header("Session"), client.Session() + ";timeout=1");
    EXPECT_EQ(host.Figures().sessions, 1U);
}

TEST_F(LiveSessions, TracksAndPlayersShareThePortsOfTheServer)
{
    const std::string ports = client.SetupUdp("cam", 1).Transport("server_port");
    EXPECT_EQ(client.SetupUdp("cam", 2).Transport("server_port"), ports);
    KovaLiveClient other;
    ASSERT_TRUE(other.Connect(host.Port()));
    EXPECT_EQ(other.SetupUdp("cam", 1).Transport("server_port"), ports);
}

TEST_F(LiveSessions, SetupInterleavedTakesTheChannelsThatWereAsked)
{
    KovaLiveAnswer answer = client.Setup("cam", 1, "RTP/AVP/TCP;unicast;interleaved=6-9");
    EXPECT_EQ(answer.Header("Transport"), "RTP/AVP/TCP;unicast;interleaved=6-9;ssrc=" +
                                              answer.Transport("ssrc") + ";mode=\"PLAY\"");
    answer = client.Setup("cam", 2, "RTP/AVP/TCP;unicast");
    EXPECT_EQ(answer.Transport("interleaved"), "0-1");
}

TEST_F(LiveSessions, ChannelsThatAreTakenAreReplaced)
{
    ASSERT_EQ(client.SetupTcp("cam", 1).Transport("interleaved"), "0-1");
    for (const char *szPair : {"0-1", "1-2", "5-0", "7-7"}) {
        const KovaLiveAnswer answer =
            client.Setup("cam", 2, "RTP/AVP/TCP;unicast;interleaved=" + std::string(szPair));
        EXPECT_EQ(answer.Transport("interleaved"), "2-3") << szPair;
    }
    client.SetSession("");
    EXPECT_EQ(client.Setup("cam", 1, KovaTcpTransport(2)).Transport("interleaved"), "4-5")
        << "another session of the connection";
}

TEST_F(LiveSessions, TheFirstOfferThatCanBeServedIsTaken)
{
    EXPECT_EQ(client
                  .Setup("cam", 1,
                         "RTP/SAVP;unicast;client_port=6-7,RTP/AVP;multicast,"
                         "RTP/AVP/TCP;interleaved=4-5,RTP/AVP;unicast;client_port=6000-6001")
                  .Transport("interleaved"),
              "4-5");
}

TEST_F(LiveSessions, TransportsThatAreNotServed)
{
    EXPECT_EQ(SetupStatus("RTP/AVP;multicast"), 461);
    EXPECT_EQ(SetupStatus("RTP/SAVP;unicast;client_port=6000-6001"), 461);
    EXPECT_EQ(SetupStatus("RTP/AVP/TCP;interleaved=a-b"), 400);
    EXPECT_EQ(client.Request("SETUP", "cam/track1").nStatus, 400) << "without a Transport";
    EXPECT_EQ(host.Figures().sessions, 0U);
}

TEST_F(LiveSessions, SetupNamesATrack)
{
    EXPECT_EQ(SetupStatus(KovaTcpTransport(0), "cam"), 459);
    EXPECT_EQ(SetupStatus(KovaTcpTransport(0), "cam/track3"), 404);
    EXPECT_EQ(SetupStatus(KovaTcpTransport(0), "cam/track0"), 404);
    KovaLiveHost::AddVideo(host.AddStream("one"));
    EXPECT_EQ(SetupStatus(KovaTcpTransport(0), "one"), 200);
    host.AddStream("none");
    EXPECT_EQ(SetupStatus(KovaTcpTransport(0), "none"), 404);
}

TEST_F(LiveSessions, TracksOfASessionGoTheSameWay)
{
    ASSERT_EQ(client.SetupUdp("cam", 1).nStatus, 200);
    EXPECT_EQ(client.Setup("cam", 2, KovaTcpTransport(0)).nStatus, 461);
    EXPECT_EQ(client.SetupUdp("cam", 2).nStatus, 200);
}

TEST_F(LiveSessions, SetupWhilePlayingIsNotValidInThatState)
{
    ASSERT_EQ(client.SetupTcp("cam", 1).nStatus, 200);
    ASSERT_EQ(client.Play("cam").nStatus, 200);
    EXPECT_EQ(client.SetupTcp("cam", 2).nStatus, 455);
}

TEST_F(LiveSessions, SetupAgainChangesTheWayOfATrack)
{
    ASSERT_EQ(client.SetupTcp("cam", 1).nStatus, 200);
    EXPECT_EQ(client.Setup("cam", 1, KovaTcpTransport(8)).Transport("interleaved"), "8-9");
    EXPECT_EQ(host.Figures().sessions, 1U);
    ASSERT_EQ(client.Play("cam").nStatus, 200);
    ASSERT_EQ(KovaLivePushText(pVideo, KovaLiveKey(), 0), KOVA_LIVE_OK);
    KovaLiveRtp packet;
    EXPECT_TRUE(client.NextRtp(5, &packet)) << "track 5 of the client is channel 8";
}

TEST_F(LiveSessions, PlayWithoutAKeptGroupNamesNoPacket)
{
    ASSERT_EQ(client.SetupTcp("cam", 1).nStatus, 200);
    ASSERT_EQ(client.SetupTcp("cam", 2).nStatus, 200);
    const KovaLiveAnswer answer = client.Play("cam", "Range: npt=0.000-\r\n");
    EXPECT_EQ(answer.nStatus, 200);
    EXPECT_EQ(answer.Header("Range"), "npt=now-");
    EXPECT_EQ(answer.Header("RTP-Info"), "url=" + Base() + "track1,url=" + Base() + "track2");
    EXPECT_EQ(answer.Header("Session"), client.Session() + ";timeout=1");
}

TEST_F(LiveSessions, RtpInfoIsOfTheFirstPacketThatThePlayerGets)
{
    KovaLiveStream *pKept =
        host.AddStream("kept", [](KovaLiveStreamConfig *pConfig) { pConfig->keep_group = 1; });
    KovaLiveTrack *pTrack = KovaLiveHost::AddVideo(pKept);
    ASSERT_EQ(KovaLivePushText(pTrack, KovaLiveKey(), 0), KOVA_LIVE_OK);
    ASSERT_EQ(KovaLivePushText(pTrack, KovaLiveOther(), 40000), KOVA_LIVE_OK);
    for (const bool bUdp : {false, true}) {
        KovaLiveClient player;
        ASSERT_TRUE(player.Connect(host.Port()));
        ASSERT_EQ((bUdp ? player.SetupUdp("kept", 1) : player.SetupTcp("kept", 1)).nStatus, 200);
        const KovaLiveAnswer answer = player.Play("kept");
        KovaLiveRtp packet;
        ASSERT_TRUE(player.NextRtp(1, &packet));
        EXPECT_EQ(answer.Header("RTP-Info"),
                  "url=" + Base("kept") + "track1;seq=" + std::to_string(packet.header.nSequence) +
                      ";rtptime=" + std::to_string(packet.header.nTimestamp));
    }
}

TEST_F(LiveSessions, RangesInOtherClocksAreNotServed)
{
    ASSERT_EQ(client.SetupTcp("cam", 1).nStatus, 200);
    EXPECT_EQ(client.Play("cam", "Range: clock=19961108T143720.25Z-\r\n").nStatus, 457);
    EXPECT_EQ(client.Play("cam", "Range: smpte=0:10:00-\r\n").nStatus, 457);
    EXPECT_EQ(client.Play("cam", "Range: np=now-\r\n").nStatus, 457);
    EXPECT_EQ(client.Play("cam", "Range: NPT=now-\r\n").nStatus, 200);
    EXPECT_EQ(client.Play("cam", "Range: npt=10-20\r\n").nStatus, 200) << "again while it plays";
    EXPECT_EQ(host.Events(KOVA_LIVE_EVENT_PLAYER_CAME).size(), 1U);
}

TEST_F(LiveSessions, PlayOfATrackThatIsNotSetUpIsNotFound)
{
    ASSERT_EQ(client.SetupTcp("cam", 1).nStatus, 200);
    EXPECT_EQ(client.Play("cam/track2").nStatus, 404);
    EXPECT_EQ(client.Play("cam/track1").nStatus, 200);
}

TEST_F(LiveSessions, PauseHoldsMediaAndPlayGoesOnWithAKeyFrame)
{
    ASSERT_EQ(client.SetupTcp("cam", 1).nStatus, 200);
    EXPECT_EQ(client.Pause("cam").nStatus, 200) << "before PLAY it changes nothing";
    ASSERT_EQ(client.Play("cam").nStatus, 200);
    ASSERT_EQ(KovaLivePushText(pVideo, KovaLiveKey(300, 1), 0), KOVA_LIVE_OK);
    EXPECT_EQ(KovaLiveSlice(KovaLiveNextUnit(&client, 1)), KovaMediaNal(0x65, 300, 1));
    const KovaLiveAnswer answer = client.Pause("cam");
    EXPECT_EQ(answer.nStatus, 200);
    EXPECT_EQ(answer.Header("Session"), client.Session() + ";timeout=1");
    EXPECT_EQ(KovaLiveFiguresOf(pStream).players, 0U);
    ASSERT_EQ(KovaLivePushText(pVideo, KovaLiveKey(300, 2), 40000), KOVA_LIVE_OK);
    EXPECT_TRUE(client.Rtsp().IsSilent(100));
    ASSERT_EQ(client.Play("cam").nStatus, 200);
    EXPECT_EQ(KovaLiveFiguresOf(pStream).players, 1U);
    ASSERT_EQ(KovaLivePushText(pVideo, KovaLiveOther(300, 3), 80000), KOVA_LIVE_OK);
    ASSERT_EQ(KovaLivePushText(pVideo, KovaLiveKey(300, 4), 120000), KOVA_LIVE_OK);
    EXPECT_EQ(KovaLiveSlice(KovaLiveNextUnit(&client, 1)), KovaMediaNal(0x65, 300, 4));
    EXPECT_EQ(host.Events(KOVA_LIVE_EVENT_PLAYER_CAME).size(), 1U);
}

TEST_F(LiveSessions, TeardownEndsTheSessionAndLeavesTheConnection)
{
    ASSERT_EQ(client.SetupTcp("cam", 1).nStatus, 200);
    ASSERT_EQ(client.Play("cam").nStatus, 200);
    EXPECT_EQ(client.Teardown("cam").nStatus, 200);
    EXPECT_EQ(client.Play("cam").nStatus, 454);
    EXPECT_EQ(host.Figures().sessions, 0U);
    EXPECT_EQ(host.WaitEvent(KOVA_LIVE_EVENT_PLAYER_WENT).nReason, KOVA_LIVE_WENT_TEARDOWN);
    client.SetSession("");
    EXPECT_EQ(client.SetupTcp("cam", 1).nStatus, 200);
    EXPECT_EQ(client.Play("cam").nStatus, 200);
}

TEST_F(LiveSessions, TeardownOfATrackLeavesTheOther)
{
    ASSERT_EQ(client.SetupTcp("cam", 1).nStatus, 200);
    ASSERT_EQ(client.SetupTcp("cam", 2).nStatus, 200);
    ASSERT_EQ(client.Play("cam").nStatus, 200);
    ASSERT_EQ(KovaLivePushText(pVideo, KovaLiveKey(), 0), KOVA_LIVE_OK);
    EXPECT_EQ(KovaLiveNextUnit(&client, 1).size(), 1U);
    EXPECT_EQ(client.Teardown("cam/track1").nStatus, 200);
    std::string report;
    ASSERT_TRUE(client.NextRtcp(1, &report));
    ASSERT_TRUE(client.NextRtcp(1, &report));
    EXPECT_EQ(KovaRtcpParts(report).size(), 3U) << "with a BYE";
    EXPECT_EQ(client.Teardown("cam/track1").nStatus, 404);
    ASSERT_EQ(KovaLivePushText(pVideo, KovaLiveKey(), 0), KOVA_LIVE_OK);
    ASSERT_EQ(KovaLivePushText(pSound, KovaLiveSound(), 20000), KOVA_LIVE_OK);
    KovaLiveRtp packet;
    EXPECT_TRUE(client.NextRtp(2, &packet));
    EXPECT_FALSE(client.NextRtp(1, &packet, 50));
    EXPECT_EQ(client.Teardown("cam/track2").nStatus, 200) << "the last one";
    EXPECT_TRUE(KovaWaitUntil([&] { return host.Figures().sessions == 0; }));
}

TEST_F(LiveSessions, EndOfTheConnectionEndsItsInterleavedPlayer)
{
    for (const bool bReset : {false, true}) {
        KovaLiveClient player;
        ASSERT_TRUE(KovaLivePlayTcp(&player, host));
        player.Close(bReset);
        const size_t nPlayer = bReset ? 2 : 1;
        EXPECT_EQ(host.WaitEvent(KOVA_LIVE_EVENT_PLAYER_WENT, nPlayer).nReason,
                  KOVA_LIVE_WENT_CONNECTION);
    }
}

TEST_F(LiveSessions, UdpPlayerGoesOnWithoutItsConnectionUntilItIsSilent)
{
    KovaLiveClient player;
    ASSERT_TRUE(KovaLivePlayUdp(&player, host));
    const uint32_t nSsrc = 0;
    player.Close();
    ASSERT_TRUE(KovaWaitUntil([&] { return host.Figures().connections == 1; }));
    // Reports keep it for longer than its time.
    for (int nReport = 0; nReport < 20; nReport++) {
        ASSERT_TRUE(player.SendRtcp(1, KovaLiveReport(nSsrc)));
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    EXPECT_TRUE(host.Events(KOVA_LIVE_EVENT_PLAYER_WENT).empty());
    ASSERT_EQ(KovaLivePushText(pVideo, KovaLiveKey(), 0), KOVA_LIVE_OK);
    KovaLiveRtp packet;
    EXPECT_TRUE(player.NextRtp(1, &packet));
    EXPECT_EQ(host.WaitEvent(KOVA_LIVE_EVENT_PLAYER_WENT).nReason, KOVA_LIVE_WENT_SILENCE);
}

TEST_F(LiveSessions, SessionIsTakenUpByAnotherConnectionOfItsAddress)
{
    KovaLiveClient player;
    ASSERT_TRUE(KovaLivePlayUdp(&player, host));
    client.SetSession(player.Session());
    player.Close();
    ASSERT_TRUE(KovaWaitUntil([&] { return host.Figures().connections == 1; }));
    EXPECT_EQ(client.Request("GET_PARAMETER", "cam").nStatus, 200);
    EXPECT_EQ(client.Pause("cam").nStatus, 200);
    EXPECT_EQ(client.Play("cam").nStatus, 200);
    EXPECT_EQ(client.Teardown("cam").nStatus, 200);
}

TEST_F(LiveSessions, AnyRequestOfASessionKeepsIt)
{
    KovaLiveHost brief([](KovaLiveConfig *pConfig) { pConfig->session_ms = 1000; });
    KovaLiveHost::AddVideo(brief.AddStream("cam"));
    KovaLiveClient players[3];
    const char *methods[] = {"OPTIONS", "GET_PARAMETER", "SET_PARAMETER"};
    for (KovaLiveClient &player : players)
        ASSERT_TRUE(KovaLivePlayUdp(&player, brief));
    for (int nRound = 0; nRound < 15; nRound++) {
        for (int nPlayer = 0; nPlayer < 3; nPlayer++)
            ASSERT_EQ(players[nPlayer].Request(methods[nPlayer], "cam").nStatus, 200);
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    EXPECT_EQ(brief.Figures().players, 3U);
}

TEST_F(LiveSessions, SessionThatIsSetUpAndNotPlayedEndsByTime)
{
    ASSERT_EQ(client.SetupTcp("cam", 1).nStatus, 200);
    EXPECT_TRUE(KovaWaitUntil([&] { return host.Figures().sessions == 0; }));
    EXPECT_EQ(client.Play("cam").nStatus, 454);
    EXPECT_TRUE(host.Events().empty() || host.Events(KOVA_LIVE_EVENT_PLAYER_WENT).empty());
}

TEST_F(LiveSessions, InterleavedPlayerNeedsNoSignsOfLife)
{
    KovaLiveHost brief([](KovaLiveConfig *pConfig) { pConfig->session_ms = 200; });
    KovaLiveHost::AddVideo(brief.AddStream("cam"));
    KovaLiveClient player;
    ASSERT_TRUE(KovaLivePlayTcp(&player, brief));
    std::this_thread::sleep_for(std::chrono::milliseconds(1000));
    EXPECT_EQ(brief.Figures().players, 1U);
    EXPECT_EQ(player.Pause("cam").nStatus, 200);
    EXPECT_TRUE(KovaWaitUntil([&] { return brief.Figures().sessions == 0; })) << "paused it does";
    EXPECT_EQ(brief.WaitEvent(KOVA_LIVE_EVENT_PLAYER_WENT).nReason, KOVA_LIVE_WENT_SILENCE);
}

TEST_F(LiveSessions, ByeOnEveryTrackEndsThePlayer)
{
    for (const bool bUdp : {false, true}) {
        KovaLiveClient player;
        ASSERT_TRUE(player.Connect(host.Port()));
        for (const int nTrack : {1, 2})
            ASSERT_EQ(
                (bUdp ? player.SetupUdp("cam", nTrack) : player.SetupTcp("cam", nTrack)).nStatus,
                200);
        ASSERT_EQ(player.Play("cam").nStatus, 200);
        ASSERT_TRUE(player.SendRtcp(1, KovaLiveReport(0, 0, false, true)));
        ASSERT_EQ(player.Options("cam").nStatus, 200);
        EXPECT_EQ(host.Figures().players, 1U);
        ASSERT_TRUE(player.SendRtcp(2, KovaLiveReport(0, 0, false, true)));
        EXPECT_EQ(host.WaitEvent(KOVA_LIVE_EVENT_PLAYER_WENT, bUdp ? 2 : 1).nReason,
                  KOVA_LIVE_WENT_BYE);
    }
}

TEST_F(LiveSessions, WhatIsNoRtcpKeepsNobody)
{
    KovaLiveClient player;
    ASSERT_TRUE(KovaLivePlayUdp(&player, host));
    const std::string report = KovaLiveReport(1);
    const std::string bad[] = {"",
                               "x",
                               report.substr(0, 7),
                               report + "x",
                               "\x40" + report.substr(1),
                               KovaMediaBytes({0x80, 202, 0, 1, 0, 0, 0, 0}),
                               report.substr(0, report.size() - 4),
                               KovaMediaBytes({0x80, 201, 255, 255, 0, 0, 0, 0})};
    size_t nSent = 0;
    EXPECT_TRUE(KovaWaitUntil([&] {
        player.SendRtcp(1, bad[nSent++ % 8]);
        return host.Figures().players == 0;
    }));
    EXPECT_EQ(host.WaitEvent(KOVA_LIVE_EVENT_PLAYER_WENT).nReason, KOVA_LIVE_WENT_SILENCE);
}

TEST_F(LiveSessions, IdsAreDrawnAtRandom)
{
    std::set<std::string> ids;
    for (int nSession = 0; nSession < 30; nSession++) {
        client.SetSession("");
        ASSERT_EQ(client.SetupUdp("cam", 1).nStatus, 200);
        ids.insert(client.Session());
    }
    EXPECT_EQ(ids.size(), 30U);
    for (const std::string &id : ids)
        EXPECT_EQ(id.find_first_not_of("0123456789abcdef"), std::string::npos) << id;
}

TEST(LiveSessionLimits, SessionsBeyondTheLimitAreRefused)
{
    KovaLiveHost host([](KovaLiveConfig *pConfig) { pConfig->max_sessions = 2; });
    KovaLiveHost::AddVideo(host.AddStream("cam"));
    KovaLiveClient players[3];
    for (int nPlayer = 0; nPlayer < 2; nPlayer++)
        ASSERT_TRUE(KovaLivePlayTcp(&players[nPlayer], host));
    ASSERT_TRUE(players[2].Connect(host.Port()));
    const KovaLiveAnswer answer = players[2].SetupTcp("cam", 1);
    EXPECT_EQ(answer.nStatus, 503);
    EXPECT_EQ(answer.Header("Connection"), "close");
    EXPECT_TRUE(players[2].WaitClosed());
    EXPECT_EQ(host.Figures().refused, 1U);
    EXPECT_EQ(players[0].Teardown("cam").nStatus, 200);
    KovaLiveClient player;
    EXPECT_TRUE(KovaLivePlayTcp(&player, host));
}

TEST(LiveSessionLimits, PortsAreAnEvenOneAndTheNext)
{
    for (int nServer = 0; nServer < 20; nServer++) {
        KovaLiveHost host;
        KovaLiveHost::AddVideo(host.AddStream("cam"));
        KovaLiveClient client;
        ASSERT_TRUE(client.Connect(host.Port()));
        EXPECT_EQ(atoi(client.SetupUdp("cam", 1).Transport("server_port").c_str()) % 2, 0);
    }
}

TEST(LiveSessionLimits, PortsAreTakenFromTheHostsRange)
{
    KovaLiveHost host([](KovaLiveConfig *pConfig) {
        pConfig->udp_first = 40001;
        pConfig->udp_last = 40005;
    });
    KovaLiveHost::AddVideo(host.AddStream("cam"));
    const int nTaken = KovaBind(SOCK_DGRAM, 40003);
    KovaLiveClient client;
    ASSERT_TRUE(client.Connect(host.Port()));
    EXPECT_EQ(client.SetupUdp("cam", 1).Transport("server_port"), "40004-40005");
    close(nTaken);
}

TEST(LiveSessionLimits, WithoutAFreePortThereIsNoSession)
{
    KovaLiveHost host([](KovaLiveConfig *pConfig) {
        pConfig->udp_first = 40002;
        pConfig->udp_last = 40003;
    });
    KovaLiveHost::AddVideo(host.AddStream("cam"));
    const int nTaken = KovaBind(SOCK_DGRAM, 40003);
    KovaLiveClient client;
    ASSERT_TRUE(client.Connect(host.Port()));
    EXPECT_EQ(client.SetupUdp("cam", 1).nStatus, 503);
    EXPECT_EQ(host.Figures().sessions, 0U);
    close(nTaken);
    EXPECT_EQ(client.SetupUdp("cam", 1).nStatus, 200);
}
