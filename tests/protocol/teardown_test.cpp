#include "tests/protocol/protocol_fixture.h"

#include "classic/rtsp/server_calls.h"

namespace {

const std::string kAnswer = "RTSP/1.0 200 OK\r\nCSeq: 1\r\nCache-Control: no-cache\r\n\r\n";

class Teardown : public ProtocolTest {
protected:
    std::string SessionLine() const
    {
        return "Session: " + client.Session() + "\r\n";
    }
};

TEST_F(Teardown, RemovesTheClientsAndTheSession)
{
    const int nBefore = KovaOpenDescriptors();
    const unsigned nPort = KovaFirstFreePair();
    ASSERT_EQ(client.SetupUdp("live", 96, 5000).nStatus, 200);
    ASSERT_EQ(client.SetupUdp("live", 97, 5002).nStatus, 200);
    EXPECT_EQ(KovaOpenDescriptors(), nBefore + 4);
    ASSERT_EQ(client.Play("live").nStatus, 200);
    EXPECT_EQ(ClientCount(), 1);
    EXPECT_EQ(Answer("TEARDOWN rtsp://h/live RTSP/1.0", SessionLine()), kAnswer);
    EXPECT_EQ(Printed().substr(0, 24), "Session Id: " + client.Session() + "\n");
    EXPECT_EQ(server.Clients(96).size() + server.Clients(97).size(), 0u);
    EXPECT_EQ(server.SessionCount(), 0u);
    EXPECT_EQ(ClientCount(), 0);
    EXPECT_EQ(KovaOpenDescriptors(), nBefore);
    EXPECT_EQ(KovaFirstFreePair(), nPort);
}

TEST_F(Teardown, SecondTimeTheSessionIsUnknown)
{
    ASSERT_EQ(client.SetupTcp("live", 96, 0).nStatus, 200);
    EXPECT_EQ(Answer("TEARDOWN rtsp://h/live RTSP/1.0", SessionLine()), kAnswer);
    EXPECT_EQ(Answer("TEARDOWN rtsp://h/live RTSP/1.0", SessionLine()), k454);
}

TEST_F(Teardown, OfASessionThatNeverPlayedLowersTheCountAllTheSame)
{
    ASSERT_EQ(client.SetupTcp("live", 96, 0).nStatus, 200);
    EXPECT_EQ(Answer("TEARDOWN rtsp://h/live RTSP/1.0", SessionLine()), kAnswer);
    EXPECT_EQ(ClientCount(), -1);
}

TEST_F(Teardown, WithoutClientsLeavesTheCountAndRemovesTheSession)
{
    ASSERT_EQ(client.SetupTcp("live", 98, 0).nStatus, 200);
    ASSERT_EQ(client.Play("live").nStatus, 200);
    EXPECT_EQ(Answer("TEARDOWN rtsp://h/live RTSP/1.0", SessionLine()), kAnswer);
    EXPECT_EQ(ClientCount(), 1);
    EXPECT_EQ(server.SessionCount(), 0u);
}

// Without their session nothing would ever remove the clients of the other stream.
TEST_F(Teardown, OnAnotherStreamLeavesNoClientBehind)
{
    KovaRtspStreamer *pOther = server.AddStream("other");
    ASSERT_NE(pOther, nullptr);
    ASSERT_EQ(client.SetupTcp("live", 96, 0).nStatus, 200);
    ASSERT_EQ(client.Play("live").nStatus, 200);
    EXPECT_EQ(Answer("TEARDOWN rtsp://h/other RTSP/1.0", SessionLine()), kAnswer);
    EXPECT_EQ(Printed(), "Session Id: " + client.Session() + "\n");
    EXPECT_EQ(server.SessionCount(), 0u);
    EXPECT_EQ(server.Clients(96).size(), 0u);
    EXPECT_EQ(ClientCount(), 0);
    EXPECT_EQ(pOther->nClientCount.load(), 0);
}

TEST_F(Teardown, OnAnotherStreamCountsOutPlayersOnly)
{
    const KovaRtspStreamer *pOther = server.AddStream("other");
    ASSERT_NE(pOther, nullptr);
    ASSERT_EQ(client.SetupTcp("live", 96, 0).nStatus, 200); // and no PLAY
    EXPECT_EQ(Answer("TEARDOWN rtsp://h/other RTSP/1.0", SessionLine()), kAnswer);
    EXPECT_EQ(server.SessionCount(), 0u);
    EXPECT_EQ(server.Clients(96).size(), 0u);
    EXPECT_EQ(ClientCount(), 0);
    EXPECT_EQ(pOther->nClientCount.load(), 0);
}

// There the session has not been counted, and its end is not the end of a player.
TEST_F(Teardown, DoesNotLowerTheCountOfAStreamOnWhichTheSessionDidNotPlay)
{
    KovaRtspStreamer *pOther = server.AddStream("other");
    ASSERT_NE(pOther, nullptr);
    ASSERT_EQ(client.SetupTcp("live", 96, 0).nStatus, 200);
    ASSERT_EQ(client.SetupTcp("other", 96, 2).nStatus, 200);
    ASSERT_EQ(client.Play("live").nStatus, 200);
    EXPECT_EQ(Answer("TEARDOWN rtsp://h/live RTSP/1.0", SessionLine()), kAnswer);
    EXPECT_EQ(server.Clients(pOther, 96).size(), 0u);
    EXPECT_EQ(ClientCount(), 0);
    EXPECT_EQ(pOther->nClientCount.load(), 0);
}

TEST_F(Teardown, WithoutASessionChangesNothing)
{
    ASSERT_EQ(client.SetupTcp("live", 96, 0).nStatus, 200);
    ASSERT_EQ(client.Play("live").nStatus, 200);
    EXPECT_EQ(Answer("TEARDOWN rtsp://h/live RTSP/1.0"), kAnswer);
    EXPECT_EQ(server.SessionCount(), 1u);
    EXPECT_EQ(server.Clients(96).size(), 1u);
    EXPECT_EQ(ClientCount(), 1);
}

TEST_F(Teardown, OfAnotherSessionLeavesThisOne)
{
    KovaRtspTestClient other;
    ASSERT_TRUE(server.Connect(&other));
    ASSERT_EQ(other.SetupTcp("live", 96, 0).nStatus, 200);
    ASSERT_EQ(client.SetupTcp("live", 96, 0).nStatus, 200);
    ASSERT_EQ(client.Play("live").nStatus, 200);
    EXPECT_EQ(Answer("TEARDOWN rtsp://h/live RTSP/1.0", "Session: " + other.Session() + "\r\n"),
              kAnswer);
    ASSERT_EQ(server.Clients(96).size(), 1u);
    EXPECT_EQ(server.Clients(96)[0].session, client.Session());
    EXPECT_NE(server.Expiry(client.Session()), 0);
}

TEST_F(Teardown, OfAnUnknownStreamIsNotFound)
{
    ASSERT_EQ(client.SetupTcp("live", 96, 0).nStatus, 200);
    EXPECT_EQ(Answer("TEARDOWN rtsp://h/live/trackID=96 RTSP/1.0", SessionLine()), k404);
    EXPECT_EQ(server.SessionCount(), 1u);
}

TEST_F(Teardown, ClosesTheSocketsOfAClientPortOfItsOwn)
{
    ASSERT_EQ(client.SetupUdp("live", 96, 5000).nStatus, 200);
    const int nBefore = KovaOpenDescriptors();
    EXPECT_EQ(Answer("TEARDOWN rtsp://h/live RTSP/1.0",
                     SessionLine() + "Transport: client_port=5000-5001\r\n"),
              kAnswer);
    // With the answer the request is over: nothing is left to wait for.
    EXPECT_EQ(KovaOpenDescriptors(), nBefore - 2);
}

} // namespace
