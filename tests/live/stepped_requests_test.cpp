#include "tests/live/stepped_server.h"
#include "tests/support/rtsp_text.h"
#include "tests/support/socket_faults.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <deque>
#include <string>

// Requests that meet media, each other, or a session of somebody else.

namespace {

struct SteppedRequests : testing::Test {
    KovaSteppedServer server;
    KovaLiveStream *pStream = server.AddStream("cam");
    KovaLiveTrack *pVideo = KovaLiveHost::AddVideo(pStream);
    KovaLiveClient client;

    static void Push(KovaLiveTrack *pTrack, bool bKey, unsigned nSeed, size_t nSize = 500)
    {
        const std::string picture = bKey ? KovaLiveKey(nSize, nSeed) : KovaLiveOther(nSize, nSeed);
        EXPECT_EQ(KovaLivePushText(pTrack, picture, 40000 * nSeed), KOVA_LIVE_OK);
    }
    static bool Takes(KovaLiveClient *pClient, bool bKey, unsigned nSeed, int nTrack = 1)
    {
        return KovaLiveSlice(KovaLiveNextUnit(pClient, nTrack)) ==
               KovaMediaNal(bKey ? 0x65 : 0x41, 500, nSeed);
    }
    /// The newest connection takes so many bytes, then nothing for as long as the faults live.
    void TakeOnly(KovaSocketFaults *pFaults, size_t nBytes) const
    {
        std::deque<KovaScriptedSend> sends(100000, KovaScriptedSend{EAGAIN, 0});
        if (nBytes != 0)
            sends.push_front({0, nBytes});
        pFaults->Script(server.Loop()->pConnections->item.nDescriptor, sends);
    }
    KovaLiveStream *AddKept(const char *szPath)
    {
        return server.AddStream(szPath,
                                [](KovaLiveStreamConfig *pConfig) { pConfig->keep_group = 1; });
    }
};

} // namespace

TEST_F(SteppedRequests, MediaGoesBehindAnAnswerThatIsOutInPart)
{
    ASSERT_TRUE(server.Play(&client, false));
    Push(pVideo, true, 0);
    server.Run();
    ASSERT_TRUE(Takes(&client, true, 0));
    {
        KovaSocketFaults faults;
        const int nSocket = server.Loop()->pConnections->item.nDescriptor;
        faults.Script(nSocket, {{0, 10}});
        ASSERT_TRUE(client.Send(client.Text("GET_PARAMETER", "cam")));
        server.Run(1);
        ASSERT_NE(server.Loop()->pConnections->pending.pBytes, nullptr);
        // Full in this round, not for the media that comes in it.
        faults.Script(nSocket, {{EAGAIN, 0}});
        Push(pVideo, true, 1);
        server.Run(1);
        faults.Script(nSocket, {{EAGAIN, 0}});
        server.Run(1);
    }
    server.Run();
    EXPECT_EQ(client.Receive().nStatus, 200);
    EXPECT_TRUE(Takes(&client, true, 1));
}

TEST_F(SteppedRequests, ATrackOfAKeptGroupBeginsWithItsOwnEntry)
{
    KovaLiveStream *pKept = AddKept("kept");
    KovaLiveTrack *pOne = KovaLiveHost::AddVideo(pKept);
    KovaLiveTrack *pTwo = KovaLiveHost::AddVideo(pKept);
    Push(pTwo, true, 1);
    Push(pOne, true, 2); // the group begins here
    Push(pTwo, false, 3);
    server.Serve([this] {
        EXPECT_TRUE(client.Connect(server.Port()));
        EXPECT_EQ(client.SetupTcp("kept", 1).nStatus, 200);
        EXPECT_EQ(client.SetupTcp("kept", 2).nStatus, 200);
        EXPECT_EQ(client.Play("kept").nStatus, 200);
    });
    EXPECT_TRUE(Takes(&client, true, 2));
    Push(pTwo, true, 4);
    server.Run();
    EXPECT_TRUE(Takes(&client, true, 4, 2));
}

TEST_F(SteppedRequests, AUnitThatIsOnItsWayIsNotGivenTwice)
{
    KovaLiveTrack *pTrack = KovaLiveHost::AddVideo(AddKept("kept"));
    KovaLiveClient first;
    ASSERT_TRUE(server.Play(&first, false, "kept"));
    Push(pTrack, true, 1);
    server.Run();
    server.Serve([this] {
        EXPECT_TRUE(client.Connect(server.Port()));
        EXPECT_EQ(client.SetupTcp("kept", 1).nStatus, 200);
    });
    // The loop has the unit's message when it looks at the request.
    ASSERT_TRUE(client.Send(client.Text("PLAY", "kept")));
    Push(pTrack, false, 2);
    server.Run();
    EXPECT_EQ(client.Receive().nStatus, 200);
    Push(pTrack, false, 3);
    server.Run();
    for (KovaLiveClient *pClient : {&first, &client}) {
        EXPECT_TRUE(Takes(pClient, true, 1));
        EXPECT_TRUE(Takes(pClient, false, 2));
        EXPECT_TRUE(Takes(pClient, false, 3));
    }
}

TEST_F(SteppedRequests, PlayMayComeOverAnotherConnectionThanTheMedia)
{
    KovaLiveTrack *pTrack = KovaLiveHost::AddVideo(AddKept("kept"));
    Push(pTrack, true, 1);
    KovaLiveClient other;
    server.Serve([&] {
        EXPECT_TRUE(other.Connect(server.Port()));
        EXPECT_EQ(other.Options().nStatus, 200);
        EXPECT_TRUE(client.Connect(server.Port()));
        EXPECT_EQ(client.SetupTcp("kept", 1).nStatus, 200);
        other.SetSession(client.Session());
    });
    // Again without a report in front.
    for (int nTurn = 0; nTurn < 2; nTurn++) {
        {
            KovaSocketFaults faults;
            TakeOnly(&faults, 0);
            server.Serve([&] { EXPECT_EQ(other.Play("kept").nStatus, 200); });
        }
        server.Run();
        EXPECT_TRUE(Takes(&client, true, 1)) << nTurn;
        server.Serve([&] { EXPECT_EQ(other.Pause("kept").nStatus, 200); });
    }
}

TEST_F(SteppedRequests, OnlyRangesThatBeginWithNormalPlayTimeAreServed)
{
    server.Serve([this] {
        EXPECT_TRUE(client.Connect(server.Port()));
        EXPECT_EQ(client.SetupTcp("cam", 1).nStatus, 200);
        EXPECT_EQ(client.Play("cam", "Range: clock=19961108T143720.25Z-;npt=0-\r\n").nStatus, 457);
        EXPECT_EQ(client.Play("cam", "Range: xnpt=0-\r\n").nStatus, 457);
        EXPECT_EQ(client.Play("cam", "Range: npt=0-\r\n").nStatus, 200);
    });
}

TEST_F(SteppedRequests, RtpInfoNamesNoPacketThatIsOut)
{
    ASSERT_TRUE(server.Play(&client, false));
    Push(pVideo, true, 0);
    server.Run();
    ASSERT_TRUE(Takes(&client, true, 0));
    {
        KovaSocketFaults faults;
        TakeOnly(&faults, 2000); // two frames and a part
        Push(pVideo, true, 1, 9000);
        server.Run(1);
        EXPECT_EQ(KovaLiveFiguresOf(pStream).packets, 3U) << "those that are out whole";
        ASSERT_NE(server.Loop()->pConnections->pBegun, nullptr);
        ASSERT_TRUE(client.Send(client.Text("PLAY", "cam")));
        server.Run(1);
    }
    server.Run();
    const KovaLiveAnswer answer = client.Receive();
    EXPECT_EQ(answer.nStatus, 200);
    EXPECT_EQ(answer.Header("RTP-Info"),
              "url=rtsp://127.0.0.1:" + std::to_string(server.Port()) + "/cam/track1");
}

TEST_F(SteppedRequests, ChannelsThatNobodyAskedForAreAnEvenOneAndTheNext)
{
    server.Serve([this] {
        EXPECT_TRUE(client.Connect(server.Port()));
        EXPECT_EQ(client.Setup("cam", 1, "RTP/AVP/TCP;interleaved=1-2").Transport("interleaved"),
                  "1-2");
        for (int nChannel = 4; nChannel < 256; nChannel += 2) {
            client.SetSession("");
            EXPECT_EQ(client.Setup("cam", 1, "RTP/AVP/TCP").Transport("interleaved"),
                      std::to_string(nChannel) + "-" + std::to_string(nChannel + 1));
        }
        client.SetSession("");
        EXPECT_EQ(client.Setup("cam", 1, "RTP/AVP/TCP").nStatus, 503);
    });
}

TEST_F(SteppedRequests, AnInterleavedTrackIsSetUpOnItsOwnConnectionOnly)
{
    KovaLiveHost::AddVideo(pStream);
    KovaLiveClient other;
    server.Serve([&] {
        EXPECT_TRUE(client.Connect(server.Port()));
        EXPECT_EQ(client.SetupTcp("cam", 1).nStatus, 200);
        EXPECT_TRUE(other.Connect(server.Port()));
        other.SetSession(client.Session());
        EXPECT_EQ(other.Setup("cam", 2, KovaTcpTransport(2)).nStatus, 461);
        EXPECT_EQ(client.SetupTcp("cam", 2).nStatus, 200);
    });
}

TEST_F(SteppedRequests, AConnectionHas256SessionsAndNoMore)
{
    constexpr int kMost = 256;
    server.Serve([&] {
        EXPECT_TRUE(client.Connect(server.Port()));
        for (int nSession = 0; nSession < kMost; nSession++) {
            client.SetSession("");
            ASSERT_EQ(client.SetupUdp("cam", 1).nStatus, 200) << nSession;
        }
        client.SetSession("");
        const KovaLiveAnswer answer = client.SetupUdp("cam", 1);
        EXPECT_EQ(answer.nStatus, 503);
        EXPECT_EQ(answer.Header("Connection"), "close");
        EXPECT_TRUE(client.WaitClosed());
    });
    EXPECT_EQ(server.Figures().refused, 1U);
}

TEST_F(SteppedRequests, AGoodbyeBeforeATrackIsSetUpAgainIsForgotten)
{
    KovaLiveHost::AddVideo(pStream);
    server.Serve([this] {
        EXPECT_TRUE(client.Connect(server.Port()));
        EXPECT_EQ(client.SetupUdp("cam", 1).nStatus, 200);
        EXPECT_EQ(client.SetupUdp("cam", 2).nStatus, 200);
    });
    const std::string goodbye = KovaLiveReport(0, 0, false, true);
    ASSERT_TRUE(client.SendRtcp(1, goodbye));
    server.Run();
    server.Serve([this] { EXPECT_EQ(client.SetupUdp("cam", 1).nStatus, 200); });
    ASSERT_TRUE(client.SendRtcp(2, goodbye));
    server.Run();
    EXPECT_EQ(server.Figures().sessions, 1U);
    ASSERT_TRUE(client.SendRtcp(1, goodbye));
    server.Run();
    EXPECT_EQ(server.Figures().sessions, 0U);
}

/// Who never sent a packet says no goodbye (RFC 3550, 6.3.7).
TEST_F(SteppedRequests, WhoGotNoMediaGetsNoGoodbye)
{
    Push(pVideo, true, 0);
    for (const bool bUdp : {false, true}) {
        KovaLiveClient player;
        ASSERT_TRUE(server.Play(&player, bUdp));
        Push(pVideo, false, 1);
        server.Run();
        server.Serve([&] { EXPECT_EQ(player.Teardown("cam").nStatus, 200); });
        std::string report;
        EXPECT_FALSE(player.NextRtcp(1, &report, 20)) << bUdp;
    }
}

TEST_F(SteppedRequests, TheHostInAUrlIsWhatStandsBehindTheLastSign)
{
    server.Serve([this] {
        EXPECT_TRUE(client.Connect(server.Port()));
        ASSERT_TRUE(client.Send("DESCRIBE rtsp://me:a@b@camera.local:8554/cam RTSP/1.0\r\n"
                                "CSeq: 1\r\n\r\n"));
        EXPECT_EQ(client.Receive().Header("Content-Base"), "rtsp://camera.local:8554/cam/");
    });
}
