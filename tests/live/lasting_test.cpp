#include "live/engine/connection.h"
#include "live/engine/stream.h"
#include "tests/live/live_host.h"
#include "tests/support/c_calls.h"
#include "tests/support/rtsp_text.h"
#include "tests/support/socket_faults.h"
#include "tests/support/sockets.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

// What must not end a player, or the service.

namespace {

struct LiveLasting : testing::Test {
    KovaLiveHost host{[](KovaLiveConfig *pConfig) {
        pConfig->request_ms = 1000;
        pConfig->idle_ms = 1500;
    }};
    KovaLiveStream *pStream = host.AddStream("cam");
    KovaLiveTrack *pVideo = KovaLiveHost::AddVideo(pStream);
    KovaLiveClient client;
    int64_t nPts = 0;

    bool Arrives(KovaLiveClient *pClient)
    {
        nPts += 40000;
        return KovaLivePushText(pVideo, KovaLiveKey(), nPts) == KOVA_LIVE_OK &&
               !KovaLiveNextUnit(pClient, 1).empty();
    }
};

std::atomic<int> g_nAccepts{0};
int AcceptNever(int, sockaddr *, socklen_t *, int)
{
    g_nAccepts++;
    errno = EPERM;
    return -1;
}

} // namespace

TEST_F(LiveLasting, APlayerOutlastsTheNumbersOfUnits)
{
    ASSERT_TRUE(KovaLivePlayTcp(&client, host));
    for (int nRound = 0; nRound < 10; nRound++) {
        SCOPED_TRACE(nRound);
        ASSERT_TRUE(Arrives(&client));
        const KovaMutexLock lock(&pStream->mutex, kRankLiveStream);
        pStream->nLastSerial += 0x60000000;
    }
}

TEST_F(LiveLasting, GoodbyeCountsFromThePlayersOwnPortOnly)
{
    ASSERT_TRUE(KovaLivePlayUdp(&client, host));
    uint16_t nRtcp = 0;
    {
        KovaLiveClient other;
        ASSERT_TRUE(other.Connect(host.Port()));
        nRtcp = static_cast<uint16_t>(
            atoi(other.SetupUdp("cam", 1).Transport("server_port").c_str()) + 1);
    }
    // The player is the only one of its address again.
    ASSERT_TRUE(KovaWaitUntil([this] { return host.Figures().sessions == 1; }));
    KovaUdpPair stranger;
    ASSERT_TRUE(stranger.SendRtcp(nRtcp, KovaLiveReport(0, 0, false, true)));
    // Behind it, from the player: a report that is taken when the goodbye was.
    ASSERT_TRUE(client.SendRtcp(1, KovaLiveReport(0, 0, false, false)));
    EXPECT_TRUE(Arrives(&client));
    EXPECT_EQ(client.Request("GET_PARAMETER", "cam").nStatus, 200);
    EXPECT_TRUE(client.SendRtcp(1, KovaLiveReport(0, 0, false, true)));
    EXPECT_EQ(host.WaitEvent(KOVA_LIVE_EVENT_PLAYER_WENT).nReason, uint32_t{KOVA_LIVE_WENT_BYE});
}

TEST_F(LiveLasting, FramesThatOverlapReadsAreNoUnfinishedRequest)
{
    ASSERT_TRUE(KovaLivePlayTcp(&client, host));
    const std::string frame = KovaInterleaved(1, KovaLiveReport(0));
    // Each piece ends inside a frame, for longer than a request may take.
    ASSERT_TRUE(client.Send(frame.substr(0, 5)));
    for (int nRound = 0; nRound < 12; nRound++) {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        ASSERT_TRUE(client.Send(frame.substr(5) + frame.substr(0, 5)));
    }
    ASSERT_TRUE(client.Send(frame.substr(5)));
    EXPECT_EQ(client.Request("GET_PARAMETER", "cam").nStatus, 200);
    EXPECT_TRUE(Arrives(&client));
}

TEST_F(LiveLasting, AConnectionEndsAlsoWhenAChildOfTheHostHasIt)
{
    ASSERT_TRUE(KovaLivePlayTcp(&client, host));
    const pid_t nChild = fork();
    if (nChild == 0) {
        pause();
        _exit(0);
    }
    ASSERT_GT(nChild, 0);
    EXPECT_TRUE(Arrives(&client));
    EXPECT_LT(host.Close(), 5000);
    EXPECT_TRUE(client.WaitClosed());
    kill(nChild, SIGKILL);
    EXPECT_EQ(waitpid(nChild, nullptr, 0), nChild);
}

TEST_F(LiveLasting, AChildThatEndsTakesNothingWithIt)
{
    ASSERT_TRUE(KovaLivePlayTcp(&client, host));
    for (int nRound = 0; nRound < 3; nRound++) {
        const pid_t nChild = fork();
        if (nChild == 0)
            _exit(0);
        EXPECT_EQ(waitpid(nChild, nullptr, 0), nChild);
        EXPECT_TRUE(Arrives(&client));
    }
    KovaLiveClient other;
    EXPECT_TRUE(KovaLivePlayUdp(&other, host));
    EXPECT_TRUE(Arrives(&other));
}

TEST_F(LiveLasting, AListenerThatFailsIsNotAskedWithoutPauseAndRecovers)
{
    ASSERT_TRUE(KovaLivePlayTcp(&client, host));
    g_nAccepts = 0;
    KovaReplaceCall<__real_accept4>(AcceptNever);
    KovaLiveClient other;
    EXPECT_TRUE(other.Connect(host.Port()));
    EXPECT_TRUE(KovaWaitUntil([] { return g_nAccepts > 2; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_LT(g_nAccepts, 100);
    EXPECT_TRUE(Arrives(&client));
    KovaReplaceCall<__real_accept4>(nullptr);
    EXPECT_EQ(other.Options().nStatus, 200);
}

TEST_F(LiveLasting, AReportThatFindsNoRoomStopsNothing)
{
    ASSERT_TRUE(KovaLivePlayTcp(&client, host));
    ASSERT_TRUE(Arrives(&client));
    int nSocket = -1;
    {
        KovaLiveLoop *pLoop = host.Live()->pLoops[0];
        const KovaMutexLock lock(&pLoop->mutex, kRankLiveLoop);
        nSocket = pLoop->pConnections->item.nDescriptor;
    }
    // The next report is due.
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    KovaSocketFaults faults;
    faults.Script(nSocket, {{EAGAIN, 0}});
    EXPECT_TRUE(Arrives(&client));
    std::string report;
    EXPECT_TRUE(client.NextRtcp(1, &report));
    EXPECT_EQ(faults.Left(), 0U);
}

TEST_F(LiveLasting, TheKeptDescriptorIsHadAgain)
{
    KovaLiveLoop *pLoop = host.Live()->pLoops[0];
    {
        const KovaMutexLock lock(&pLoop->mutex, kRankLiveLoop);
        close(pLoop->nReserve);
        pLoop->nReserve = -1;
    }
    ASSERT_TRUE(client.Connect(host.Port()));
    ASSERT_EQ(client.Options().nStatus, 200);
    const KovaMutexLock lock(&pLoop->mutex, kRankLiveLoop);
    EXPECT_GE(pLoop->nReserve, 0);
}

TEST(LiveDelay, EveryPictureLeavesAfterItsTimeAndInOrder)
{
    KovaLiveHost host([](KovaLiveConfig *pConfig) { pConfig->delay_ms = 150; });
    KovaLiveTrack *pVideo = KovaLiveHost::AddVideo(host.AddStream("cam"));
    KovaLiveClient client;
    ASSERT_TRUE(KovaLivePlayTcp(&client, host));
    int64_t nPts = 0;
    for (int nBurst = 0; nBurst < 3; nBurst++) {
        SCOPED_TRACE(nBurst);
        const auto begin = std::chrono::steady_clock::now();
        for (int nPicture = 0; nPicture < 3; nPicture++) {
            KovaLivePushText(pVideo, KovaLiveKey(), nPts += 40000);
            std::this_thread::sleep_for(std::chrono::milliseconds(30));
        }
        for (int nPicture = 0; nPicture < 3; nPicture++)
            EXPECT_FALSE(KovaLiveNextUnit(&client, 1).empty()) << nPicture;
        EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(200));
    }
}

TEST_F(LiveLasting, ManyNewcomersAreOneQuestionForAKeyFrame)
{
    KovaLiveClient players[6];
    const auto begin = std::chrono::steady_clock::now();
    for (KovaLiveClient &player : players)
        ASSERT_TRUE(KovaLivePlayTcp(&player, host));
    // A question every 300 ms at most.
    const auto nQuestions =
        (std::chrono::steady_clock::now() - begin) / std::chrono::milliseconds(300);
    EXPECT_TRUE(
        KovaWaitUntil([this] { return host.Events(KOVA_LIVE_EVENT_PLAYER_CAME).size() == 6; }));
    EXPECT_GE(host.Events(KOVA_LIVE_EVENT_KEY_FRAME).size(), 1U);
    EXPECT_LE(host.Events(KOVA_LIVE_EVENT_KEY_FRAME).size(), 1U + static_cast<size_t>(nQuestions));
}
