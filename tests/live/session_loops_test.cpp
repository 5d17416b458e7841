#include "live/engine/loop.h"
#include "tests/live/live_host.h"

#include <gtest/gtest.h>

#include <string>

// A session may be asked for over any connection of its player (RFC 2326, section 3), whichever
// network thread that connection came to.

namespace {

struct LiveSessionLoops : testing::Test {
    KovaLiveHost host{[](KovaLiveConfig *pConfig) { pConfig->threads = 2; }};
    KovaLiveStream *pStream = host.AddStream("cam");
    KovaLiveTrack *pVideo = KovaLiveHost::AddVideo(pStream);
    KovaLiveClient first;  ///< of the first thread
    KovaLiveClient second; ///< of the second

    void SetUp() override
    {
        ASSERT_TRUE(first.Connect(host.Port()));
        ASSERT_TRUE(first.Options().nStatus == 200);
        ASSERT_TRUE(second.Connect(host.Port()));
        ASSERT_TRUE(second.Options().nStatus == 200);
        ASSERT_EQ(Load(0), 1U);
        ASSERT_EQ(Load(1), 1U);
    }
    uint32_t Load(uint32_t nLoop) const
    {
        return host.Live()->pLoops[nLoop]->nLoad;
    }
    bool Arrives(KovaLiveClient *pClient)
    {
        static unsigned nPicture = 0;
        nPicture++;
        return KovaLivePushText(pVideo, KovaLiveKey(500, nPicture), 40000 * nPicture) ==
                   KOVA_LIVE_OK &&
               KovaLiveSlice(KovaLiveNextUnit(pClient, 1)) == KovaMediaNal(0x65, 500, nPicture);
    }
};

} // namespace

TEST_F(LiveSessionLoops, ASessionIsPlayedPausedAndEndedOverTheOtherThreadsConnection)
{
    for (KovaLiveClient *pMaker : {&first, &second}) {
        KovaLiveClient *pOther = pMaker == &first ? &second : &first;
        EXPECT_EQ(pMaker->SetupUdp("cam", 1).nStatus, 200);
        pOther->SetSession(pMaker->Session());
        EXPECT_EQ(pOther->Play("cam").nStatus, 200);
        EXPECT_TRUE(Arrives(pMaker));
        EXPECT_EQ(pOther->Pause("cam").nStatus, 200);
        EXPECT_EQ(pMaker->Play("cam").nStatus, 200);
        EXPECT_TRUE(Arrives(pMaker));
        EXPECT_EQ(pOther->Teardown("cam").nStatus, 200);
        EXPECT_TRUE(KovaWaitUntil([&] { return host.Figures().sessions == 0; }));
        pMaker->SetSession("");
        pOther->SetSession("");
    }
    EXPECT_EQ(host.Figures().connections, 2U);
}

TEST_F(LiveSessionLoops, AConnectionThatFollowedIsTheOtherThreads)
{
    EXPECT_EQ(second.SetupUdp("cam", 1).nStatus, 200);
    first.SetSession(second.Session());
    EXPECT_EQ(first.Request("GET_PARAMETER", "cam").nStatus, 200);
    EXPECT_EQ(Load(0), 0U);
    EXPECT_EQ(Load(1), 2U);
    KovaLiveClient third;
    ASSERT_TRUE(third.Connect(host.Port()));
    EXPECT_EQ(third.Options().nStatus, 200);
    EXPECT_EQ(Load(0), 1U);
    first.Close();
    EXPECT_TRUE(KovaWaitUntil([&] { return Load(1) == 1; }));
    EXPECT_TRUE(KovaWaitUntil([&] { return host.Figures().connections == 2; }));
}

TEST_F(LiveSessionLoops, EveryRequestIsAnsweredOnceAndInOrder)
{
    EXPECT_EQ(second.SetupUdp("cam", 1).nStatus, 200);
    const std::string session = "Session: " + second.Session() + "\r\n";
    const std::string body = "Content-Type: text/parameters\r\nContent-Length: 6\r\n\r\nname\r\n";
    std::string text = "OPTIONS * RTSP/1.0\r\nCSeq: 11\r\n\r\n";
    text += "GET_PARAMETER * RTSP/1.0\r\nCSeq: 12\r\nX: folded\r\n\t here\r\n" + session + body;
    text += "OPTIONS * RTSP/1.0\r\nCSeq: 13\r\n" + session + "\r\n";
    text += "PLAY * RTSP/1.0\r\nCSeq: 14\r\n\r\n";
    for (const size_t nPiece : {size_t{65536}, size_t{7}, size_t{1}}) {
        KovaLiveClient client;
        ASSERT_TRUE(client.Connect(host.Port()));
        ASSERT_EQ(client.Options().nStatus, 200);
        ASSERT_TRUE(client.Send(text, nPiece));
        const int statuses[] = {200, 451, 200, 400};
        for (int nAnswer = 0; nAnswer < 4; nAnswer++) {
            const KovaLiveAnswer answer = client.Receive();
            EXPECT_EQ(answer.nStatus, statuses[nAnswer]);
            EXPECT_EQ(answer.Header("CSeq"), std::to_string(11 + nAnswer));
        }
        EXPECT_TRUE(client.Rtsp().IsSilent(20));
    }
}

TEST_F(LiveSessionLoops, WhoHasASessionStaysWithIt)
{
    ASSERT_TRUE(KovaLivePushText(pVideo, KovaLiveKey(), 0) == KOVA_LIVE_OK);
    EXPECT_EQ(first.SetupTcp("cam", 1).nStatus, 200);
    EXPECT_EQ(second.SetupUdp("cam", 1).nStatus, 200);
    const std::string own = first.Session();
    first.SetSession(second.Session());
    EXPECT_EQ(first.Request("GET_PARAMETER", "cam").nStatus, 454);
    first.SetSession(own);
    EXPECT_EQ(first.Play("cam").nStatus, 200);
    EXPECT_TRUE(Arrives(&first));
    EXPECT_EQ(Load(0), 1U);
    // Without one of its own it may go.
    EXPECT_EQ(first.Teardown("cam").nStatus, 200);
    first.SetSession(second.Session());
    EXPECT_EQ(first.Request("GET_PARAMETER", "cam").nStatus, 200);
    EXPECT_EQ(Load(0), 0U);
}

TEST_F(LiveSessionLoops, SessionsThatDoNotExistAreNotFoundOnAnyThread)
{
    for (const char *szSession :
         {"0123456789abcde0", "0123456789abcde1", "0123456789abcde2", "0123456789abcdef", "1",
          "0123456789abcdeg", "0123456789abcde01"}) {
        first.SetSession(szSession);
        EXPECT_EQ(first.Request("GET_PARAMETER", "cam").nStatus, 454) << szSession;
    }
    first.SetSession("");
    EXPECT_EQ(first.Options().nStatus, 200);
    EXPECT_EQ(Load(0) + Load(1), 2U);
}

TEST_F(LiveSessionLoops, AConnectionThatFollowedMayEndTheSessionAndMakeItsOwn)
{
    EXPECT_EQ(second.SetupUdp("cam", 1).nStatus, 200);
    first.SetSession(second.Session());
    EXPECT_EQ(first.Request("GET_PARAMETER", "cam").nStatus, 200);
    EXPECT_EQ(first.Play("cam").nStatus, 200);
    // A player over UDP outlives its connection; whoever ends it has nothing left then.
    second.Close();
    EXPECT_TRUE(KovaWaitUntil([&] { return host.Figures().connections == 1; }));
    EXPECT_EQ(first.Teardown("cam").nStatus, 200);
    first.SetSession("");
    EXPECT_EQ(first.SetupTcp("cam", 1).nStatus, 200);
    EXPECT_EQ(first.Play("cam").nStatus, 200);
    EXPECT_TRUE(Arrives(&first));
    first.Close();
    EXPECT_TRUE(KovaWaitUntil([&] { return host.Figures().connections == 0; }));
    EXPECT_TRUE(KovaWaitUntil([&] { return host.Figures().sessions == 0; }));
}

TEST_F(LiveSessionLoops, AServerEndsWhileConnectionsAreOnTheirWay)
{
    EXPECT_EQ(second.SetupUdp("cam", 1).nStatus, 200);
    std::string text;
    for (int nTurn = 0; nTurn < 2000; nTurn++)
        text += "OPTIONS * RTSP/1.0\r\nCSeq: 1\r\nSession: 0123456789abcde" +
                std::to_string(nTurn % 2) + "\r\n\r\n";
    ASSERT_TRUE(first.Send(text));
    EXPECT_EQ(first.Receive().nStatus, 454);
    EXPECT_LT(host.Close(), 1000);
    EXPECT_TRUE(first.WaitClosed());
}
