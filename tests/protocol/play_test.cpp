#include "classic/streamer/registries.h"
#include "tests/protocol/protocol_fixture.h"

namespace {

class Play : public ProtocolTest {
protected:
    void SetUpTracks()
    {
        ASSERT_EQ(client.SetupTcp("live", 97, 2).nStatus, 200);
        ASSERT_EQ(client.SetupTcp("live", 96, 0).nStatus, 200);
        SetLast(96, 65535, 0xFFFFFFFF);
        SetLast(97, 7, 90000);
    }
    void SetLast(uint32_t nPayloadId, uint16_t nSequence, uint32_t nTimestamp)
    {
        KovaRtpSender *pSender =
            KovaRtspStreamerGetRtpSenderByPayloadId(server.Stream(), nPayloadId);
        ASSERT_NE(pSender, nullptr);
        pSender->nLastSequence = nSequence;
        pSender->nLastTimestamp = nTimestamp;
    }
    std::string SessionLine() const
    {
        return "Session: " + client.Session() + "\r\n";
    }
    std::string Url(const std::string &stream, int nTrack) const
    {
        return "url=rtsp://127.0.0.1:" + std::to_string(server.Port()) + "/" + stream +
               "/trackID=" + std::to_string(nTrack);
    }
    std::string FullAnswer() const
    {
        return "RTSP/1.0 200 OK\r\nCSeq: 1\r\nCache-Control: no-cache\r\nRTP-Info: " +
               Url("live", 96) + ";seq=65535;rtptime=4294967295, " + Url("live", 97) +
               ";seq=7;rtptime=90000\r\nSession: " + client.Session() + ";timeout=60\r\n\r\n";
    }
};

const std::string kNoSessionAnswer =
    "RTSP/1.0 200 OK\r\nCSeq: 1\r\nCache-Control: no-cache\r\nSession: ;timeout=60\r\n\r\n";

TEST_F(Play, TellsTheTracksInTheOrderOfTheStream)
{
    SetUpTracks();
    EXPECT_EQ(Answer("PLAY rtsp://h/live RTSP/1.0", SessionLine()), FullAnswer());
    EXPECT_EQ(Printed(), "Session Id: " + client.Session() + "\n");
}

TEST_F(Play, MarksEveryTrackPlayingAndCountsOneClient)
{
    SetUpTracks();
    EXPECT_EQ(server.Clients(96).at(0).nState, kClientSetUp);
    EXPECT_EQ(ClientCount(), 0);
    Answer("PLAY rtsp://h/live RTSP/1.0", SessionLine());
    EXPECT_EQ(server.Clients(96).at(0).nState, kClientPlaying);
    EXPECT_EQ(server.Clients(97).at(0).nState, kClientPlaying);
    EXPECT_EQ(ClientCount(), 1);
}

TEST_F(Play, LeavesOtherSessionsAlone)
{
    KovaRtspTestClient other;
    ASSERT_TRUE(server.Connect(&other));
    ASSERT_EQ(other.SetupTcp("live", 97, 0).nStatus, 200);
    SetUpTracks();
    EXPECT_EQ(Answer("PLAY rtsp://h/live RTSP/1.0", SessionLine()), FullAnswer());
    for (const auto &entry : server.Clients(97))
        EXPECT_EQ(entry.nState, entry.session == client.Session() ? kClientPlaying : kClientSetUp);
}

TEST_F(Play, TwiceCountsTwiceAndTeardownOnce)
{
    SetUpTracks();
    EXPECT_EQ(Answer("PLAY rtsp://h/live RTSP/1.0", SessionLine()), FullAnswer());
    EXPECT_EQ(Answer("PLAY rtsp://h/live RTSP/1.0", SessionLine()), FullAnswer());
    EXPECT_EQ(ClientCount(), 2);
    EXPECT_EQ(client.Teardown("live").nStatus, 200);
    EXPECT_EQ(ClientCount(), 1);
}

TEST_F(Play, WithoutASessionCountsAndHasNoTracks)
{
    EXPECT_EQ(Answer("PLAY rtsp://h/live RTSP/1.0"), kNoSessionAnswer);
    EXPECT_EQ(Printed(), "");
    EXPECT_EQ(ClientCount(), 1);
}

TEST_F(Play, SessionWithoutTracksHasNoRtpInfo)
{
    ASSERT_EQ(client.SetupTcp("live", 98, 0).nStatus, 200);
    EXPECT_EQ(Answer("PLAY rtsp://h/live RTSP/1.0", SessionLine()),
              "RTSP/1.0 200 OK\r\nCSeq: 1\r\nCache-Control: no-cache\r\nSession: " +
                  client.Session() + ";timeout=60\r\n\r\n");
}

TEST_F(Play, OnAnotherStreamThanTheSetupFindsNoTracks)
{
    KovaRtspStreamer *pOther = server.AddStream("other");
    ASSERT_NE(pOther, nullptr);
    SetUpTracks();
    EXPECT_EQ(Answer("PLAY rtsp://h/other RTSP/1.0", SessionLine()),
              "RTSP/1.0 200 OK\r\nCSeq: 1\r\nCache-Control: no-cache\r\nSession: " +
                  client.Session() + ";timeout=60\r\n\r\n");
    EXPECT_EQ(pOther->nClientCount.load(), 1);
    EXPECT_EQ(ClientCount(), 0);
    EXPECT_EQ(server.Clients(96).at(0).nState, kClientSetUp);
}

TEST_F(Play, TrailingSlashNamesAnotherStream)
{
    SetUpTracks();
    EXPECT_EQ(Answer("PLAY rtsp://h/live/ RTSP/1.0", SessionLine()), k404);
    EXPECT_EQ(Printed(), "Can't find Uri !!!\n");
    EXPECT_EQ(Answer("PLAY rtsp://h/live/trackID=97 RTSP/1.0", SessionLine()), k404);
    EXPECT_EQ(ClientCount(), 0);
}

TEST_F(Play, SessionParametersAreNotCutOff)
{
    SetUpTracks();
    EXPECT_EQ(
        Answer("PLAY rtsp://h/live RTSP/1.0", "Session: " + client.Session() + ";timeout=60\r\n"),
        k454);
    EXPECT_EQ(Printed(), "Session Id: " + client.Session() + ";timeout=60\n");
    EXPECT_EQ(ClientCount(), 0);
}

TEST_F(Play, MethodThatOnlyContainsTheName)
{
    EXPECT_EQ(Answer("XPLAYX rtsp://h/live RTSP/1.0"), kNoSessionAnswer);
    EXPECT_EQ(ClientCount(), 1);
}

TEST_F(Play, ClientPortOpensSocketsThatAreGivenBack)
{
    const int nBefore = KovaOpenDescriptors();
    const unsigned nPort = KovaFirstFreePair();
    EXPECT_EQ(Answer("PLAY rtsp://h/live RTSP/1.0", "Transport: client_port=5000-5001\r\n"),
              kNoSessionAnswer);
    const std::string expected =
        "Client: 5000-5001, Server: " + std::to_string(nPort) + "-" + std::to_string(nPort + 1);
    EXPECT_EQ(Printed().substr(0, expected.size()), expected);
    EXPECT_TRUE(KovaWaitUntil(2000, [&] { return KovaOpenDescriptors() == nBefore; }));
    EXPECT_EQ(KovaFirstFreePair(), nPort);
}

TEST_F(Play, ClientPortLessInterleavedCountsForSetupOnly)
{
    EXPECT_EQ(Answer("PLAY rtsp://h/live RTSP/1.0", "Transport: interleaved=0\r\n"),
              kNoSessionAnswer);
}

TEST_F(Play, LimitRefusesTheNextSetupAndGivesItsSocketsBack)
{
    server.Server()->nMaxClient = 1;
    SetUpTracks();
    Answer("PLAY rtsp://h/live RTSP/1.0", SessionLine());
    KovaRtspTestClient other;
    ASSERT_TRUE(server.Connect(&other));
    const int nBefore = KovaOpenDescriptors();
    const unsigned nPort = KovaFirstFreePair();
    EXPECT_EQ(other.SetupUdp("live", 97, 5000).text, k403);
    EXPECT_EQ(other.SetupTcp("live", 97, 0).text, k403);
    EXPECT_EQ(server.SessionCount(), 1u);
    EXPECT_TRUE(KovaWaitUntil(2000, [&] { return KovaOpenDescriptors() == nBefore; }));
    EXPECT_EQ(KovaFirstFreePair(), nPort);
    EXPECT_EQ(client.SetupTcp("live", 97, 0).text, k403); // of a playing session as well
    EXPECT_EQ(other.Describe("live").nStatus, 200);
    EXPECT_EQ(client.Teardown("live").nStatus, 200);
    EXPECT_EQ(other.SetupTcp("live", 97, 0).nStatus, 200);
}

TEST_F(Play, LimitCountsThePlayersOfAllStreams)
{
    server.Server()->nMaxClient = 2;
    ASSERT_NE(server.AddStream("other"), nullptr);
    EXPECT_EQ(Answer("PLAY rtsp://h/live RTSP/1.0"), kNoSessionAnswer);
    EXPECT_EQ(client.SetupTcp("live", 97, 0).nStatus, 200);
    client.SetSession("");
    EXPECT_EQ(Answer("PLAY rtsp://h/other RTSP/1.0"), kNoSessionAnswer);
    EXPECT_EQ(client.SetupTcp("live", 97, 0).text, k403);
    server.Server()->nMaxClient = -1;
    EXPECT_EQ(client.SetupTcp("live", 97, 0).text, k403);
}

} // namespace
