#include "tests/live/stepped_server.h"
#include "tests/support/rtsp_text.h"
#include "tests/support/socket_faults.h"

#include <gtest/gtest.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <deque>
#include <string>

// When a connection ends, and what does not end it.

namespace {

constexpr uint64_t kMilli = 1000;

struct SteppedConnections : testing::Test {
    KovaSteppedServer server{1, [](KovaLiveConfig *pConfig) {
                                 pConfig->request_ms = 1000;
                                 pConfig->idle_ms = 3000;
                                 pConfig->player_stall_ms = 2000;
                             }};
    KovaLiveStream *pStream = server.AddStream("cam");
    KovaLiveTrack *pVideo = KovaLiveHost::AddVideo(pStream);
    KovaLiveClient client;

    void Connect(KovaLiveClient *pClient)
    {
        ASSERT_TRUE(pClient->Connect(server.Port()));
        server.Run();
    }
    uint32_t Connections()
    {
        return server.Figures().connections;
    }
    void Step(uint64_t nMicroseconds)
    {
        KovaSteppedServer::Advance(nMicroseconds);
        server.Run();
    }
    /// Lets the system take nothing of the newest connection.
    void Fill(KovaSocketFaults *pFaults) const
    {
        pFaults->Script(server.Loop()->pConnections->item.nDescriptor,
                        std::deque<KovaScriptedSend>(100000, KovaScriptedSend{EAGAIN, 0}));
    }
};

} // namespace

TEST_F(SteppedConnections, WhoSendsOnBehindItsLastAnswerHasASecond)
{
    Connect(&client);
    ASSERT_TRUE(client.Send(std::string(20000, 'A')));
    server.Run();
    for (int nStep = 0; nStep < 9; nStep++) {
        ASSERT_TRUE(client.Send("more"));
        Step(100 * kMilli);
        ASSERT_EQ(Connections(), 1U) << nStep;
        // A socket that is closed with unread bytes takes the answer away from the peer.
        int nUnread = -1;
        EXPECT_EQ(ioctl(server.Loop()->pConnections->item.nDescriptor, FIONREAD, &nUnread), 0);
        EXPECT_EQ(nUnread, 0);
    }
    EXPECT_GE(client.Receive().nStatus, 400);
    client.Send("more");
    Step(100 * kMilli);
    EXPECT_EQ(Connections(), 0U);
}

TEST_F(SteppedConnections, ResetIsNoticedWhileNothingIsRead)
{
    KovaLiveHost::AddVideo(server.AddStream("later"), false);
    Connect(&client);
    ASSERT_TRUE(client.Send(client.Text("DESCRIBE", "later")));
    server.Run();
    client.Close(true);
    server.Run();
    EXPECT_EQ(Connections(), 0U);
}

TEST_F(SteppedConnections, OneThatTakesNothingEndsItsInterleavedPlayersOnly)
{
    ASSERT_TRUE(server.Play(&client, true));
    client.SetSession("");
    server.Serve([this] {
        EXPECT_EQ(client.Setup("cam", 1, KovaTcpTransport(0)).nStatus, 200);
        EXPECT_EQ(client.Play("cam").nStatus, 200);
    });
    ASSERT_EQ(server.Players().size(), 2U);
    KovaSocketFaults faults;
    Fill(&faults);
    EXPECT_EQ(KovaLivePushText(pVideo, KovaLiveKey(), 0), KOVA_LIVE_OK);
    server.Run();
    Step(2000 * kMilli - 1);
    EXPECT_EQ(Connections(), 1U);
    Step(1);
    EXPECT_EQ(Connections(), 0U);
    const std::vector<KovaToldEvent> went = server.Events(KOVA_LIVE_EVENT_PLAYER_WENT);
    ASSERT_EQ(went.size(), 1U);
    EXPECT_EQ(went[0].nReason, KOVA_LIVE_WENT_SLOW);
    EXPECT_TRUE(went[0].bInterleaved);
    EXPECT_EQ(server.Players().size(), 1U) << "the other one goes on by itself";
}

TEST_F(SteppedConnections, TheTimeToTakeAnAnswerBeginsWithIt)
{
    ASSERT_TRUE(server.Play(&client, true));
    Step(10000 * kMilli);
    KovaSocketFaults faults;
    Fill(&faults);
    ASSERT_TRUE(client.Send(client.Text("OPTIONS", "*")));
    server.Run();
    Step(2000 * kMilli - 1);
    EXPECT_EQ(Connections(), 1U);
    Step(1);
    EXPECT_EQ(Connections(), 0U);
}

TEST_F(SteppedConnections, WhoTakesPartsOfAFrameIsNotLetGo)
{
    ASSERT_TRUE(server.Play(&client, false));
    EXPECT_EQ(KovaLivePushText(pVideo, KovaLiveKey(), 0), KOVA_LIVE_OK);
    server.Run();
    const int nSocket = server.Loop()->pConnections->item.nDescriptor;
    KovaSocketFaults faults;
    faults.Script(nSocket, {{0, 100}, {EAGAIN, 0}});
    EXPECT_EQ(KovaLivePushText(pVideo, KovaLiveOther(1000), 40000), KOVA_LIVE_OK);
    server.Run(1);
    for (int nPart = 0; nPart < 5; nPart++) {
        faults.Script(nSocket, std::deque<KovaScriptedSend>(1000, KovaScriptedSend{EAGAIN, 0}));
        Step(1500 * kMilli);
        ASSERT_EQ(Connections(), 1U) << nPart;
        ASSERT_NE(server.Loop()->pConnections->pBegun, nullptr);
        faults.Script(nSocket, {{0, 100}, {EAGAIN, 0}});
        server.Run(1);
    }
    faults.Script(nSocket, {});
    server.Run();
    EXPECT_FALSE(KovaLiveNextUnit(&client, 1).empty());
    EXPECT_EQ(KovaLiveSlice(KovaLiveNextUnit(&client, 1)), KovaMediaNal(0x41, 1000));
}

TEST_F(SteppedConnections, WhoTakesPartsOfAnAnswerIsNotLetGo)
{
    ASSERT_TRUE(server.Play(&client, true));
    const int nSocket = server.Loop()->pConnections->item.nDescriptor;
    KovaSocketFaults faults;
    faults.Script(nSocket, {{0, 10}, {EAGAIN, 0}});
    ASSERT_TRUE(client.Send(client.Text("OPTIONS", "*")));
    server.Run(1);
    for (int nPart = 0; nPart < 5; nPart++) {
        faults.Script(nSocket, std::deque<KovaScriptedSend>(1000, KovaScriptedSend{EAGAIN, 0}));
        Step(1500 * kMilli);
        ASSERT_EQ(Connections(), 1U) << nPart;
        ASSERT_NE(server.Loop()->pConnections->pending.pBytes, nullptr);
        faults.Script(nSocket, {{0, 10}, {EAGAIN, 0}});
        server.Run(1);
    }
    faults.Script(nSocket, {});
    server.Run();
    EXPECT_EQ(client.Receive().nStatus, 200);
}

TEST_F(SteppedConnections, SomeAnswersMayWaitWithoutHoldingUpRequests)
{
    Connect(&client);
    KovaSocketFaults faults;
    Fill(&faults);
    for (int nRequest = 0; nRequest < 20; nRequest++)
        ASSERT_TRUE(client.Send(client.Text("OPTIONS", "*")));
    server.Run();
    EXPECT_GT(server.Loop()->pConnections->pending.nSize, 2000U);
    EXPECT_EQ(server.Loop()->pConnections->item.nWanted, kPollRead | kPollWrite);
}

TEST_F(SteppedConnections, NothingMoreIsReadOfWhoTakesNoAnswers)
{
    constexpr int kRequests = 3000;
    Connect(&client);
    {
        KovaSocketFaults faults;
        Fill(&faults);
        std::string requests;
        for (int nRequest = 0; nRequest < kRequests; nRequest++)
            requests += client.Text("OPTIONS", "*");
        ASSERT_TRUE(client.Send(requests));
        server.Run(200);
        ASSERT_EQ(Connections(), 1U);
        EXPECT_GE(server.Loop()->pConnections->pending.nSize, 16U * 1024);
        EXPECT_LT(server.Loop()->pConnections->pending.nSize, 64U * 1024);
    }
    int nAnswers = 0;
    server.Serve([&] {
        while (nAnswers < kRequests && client.Receive().nStatus == 200)
            nAnswers++;
    });
    EXPECT_EQ(nAnswers, kRequests);
}

TEST_F(SteppedConnections, AnIdleOneEndsAtItsTime)
{
    Connect(&client);
    Step(2000 * kMilli);
    server.Serve([this] { EXPECT_EQ(client.Options().nStatus, 200); });
    Step(3000 * kMilli - 1);
    EXPECT_EQ(Connections(), 1U);
    Step(1);
    EXPECT_EQ(Connections(), 0U);
}

TEST_F(SteppedConnections, TimeWithoutARequestCountsFromAnAnswerThatWaited)
{
    KovaLiveHost::AddVideo(server.AddStream("later"), false);
    Connect(&client);
    ASSERT_TRUE(client.Send(client.Text("DESCRIBE", "later")));
    server.Run();
    Step(5000 * kMilli);
    EXPECT_EQ(client.Receive().nStatus, 503);
    Step(3000 * kMilli - 1);
    EXPECT_EQ(Connections(), 1U);
    Step(1);
    EXPECT_EQ(Connections(), 0U);
}

TEST_F(SteppedConnections, TimeWithoutAPlayerCountsFromItsEnd)
{
    ASSERT_TRUE(server.Play(&client, false));
    Step(10000 * kMilli);
    EXPECT_EQ(KovaLiveDisconnect(server.Live(), server.Players().at(0).player), KOVA_LIVE_OK);
    server.Run();
    ASSERT_EQ(server.Players().size(), 0U);
    Step(3000 * kMilli - 1);
    EXPECT_EQ(Connections(), 1U);
    Step(1);
    EXPECT_EQ(Connections(), 0U);
}

TEST_F(SteppedConnections, EachRequestHasItsOwnTimeThoughTheyOverlapReads)
{
    Connect(&client);
    ASSERT_TRUE(client.Send("OPTIONS * RTSP"));
    server.Run();
    for (int nCSeq = 1; nCSeq <= 5; nCSeq++) {
        KovaSteppedServer::Advance(600 * kMilli);
        ASSERT_TRUE(
            client.Send("/1.0\r\nCSeq: " + std::to_string(nCSeq) + "\r\n\r\nOPTIONS * RTSP"));
        server.Run();
        EXPECT_EQ(client.Receive().nStatus, 200) << nCSeq;
    }
    Step(1000 * kMilli - 1);
    EXPECT_TRUE(client.Rtsp().IsSilent(0));
    Step(1);
    EXPECT_EQ(client.Receive().nStatus, 408);
}

TEST_F(SteppedConnections, ARequestBehindOneThatWaitsHasItsOwnTime)
{
    KovaLiveTrack *pLater = KovaLiveHost::AddVideo(server.AddStream("later"), false);
    Connect(&client);
    ASSERT_TRUE(client.Send(client.Text("DESCRIBE", "later") + "OPTIONS * RTSP"));
    server.Run();
    Step(2500 * kMilli);
    EXPECT_EQ(KovaLivePushText(pLater, KovaLiveKey(), 0), KOVA_LIVE_OK);
    server.Run();
    EXPECT_EQ(client.Receive().nStatus, 200);
    Step(1000 * kMilli - 1);
    EXPECT_TRUE(client.Rtsp().IsSilent(0));
    Step(1);
    EXPECT_EQ(client.Receive().nStatus, 408);
}
