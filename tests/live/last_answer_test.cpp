#include "tests/live/live_host.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

// Connections whose media waits while something else of them is due: their last answer, the time of
// a request, or a stream that is not ready.

namespace {

constexpr int kSmallBuffer = 4096;
constexpr size_t kPicture = 60000;

struct LiveLastAnswer : testing::Test {
    explicit LiveLastAnswer(uint32_t nStallMs = 60000)
        : host([nStallMs](KovaLiveConfig *pConfig) {
              pConfig->player_max_ms = 300;
              pConfig->player_stall_ms = nStallMs;
              pConfig->request_ms = 500;
          })
    {}
    KovaLiveHost host;
    KovaLiveTrack *pTrack = KovaLiveHost::AddVideo(host.AddStream("cam"));
    KovaLiveClient player;
    unsigned nPicture = 0;

    void Push()
    {
        EXPECT_EQ(KovaLivePushText(pTrack, KovaLiveKey(kPicture, nPicture), 40000 * nPicture),
                  KOVA_LIVE_OK);
        nPicture++;
    }
    /// A player whose connection takes nothing for now: half a frame is out, and more waits.
    void PlayUntilFull()
    {
        ASSERT_TRUE(player.Connect(host.Port(), kSmallBuffer));
        ASSERT_EQ(player.SetupTcp("cam", 1).nStatus, 200);
        ASSERT_EQ(player.Play("cam").nStatus, 200);
        ASSERT_TRUE(KovaWaitUntil(30000, [&] {
            Push();
            return !host.Events(KOVA_LIVE_EVENT_OVERFLOW).empty();
        }));
    }
};

struct LiveStalled : LiveLastAnswer {
    LiveStalled() : LiveLastAnswer(1000) {}
};

} // namespace

TEST_F(LiveLastAnswer, RequestThatIsLateIsRefusedOnceThoughMediaWaits)
{
    PlayUntilFull();
    ASSERT_TRUE(player.Send("OPTIONS rtsp"));
    ASSERT_TRUE(KovaWaitUntil([&] { return host.Figures().refused != 0; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_EQ(host.Figures().refused, 1U);
    EXPECT_EQ(player.Receive().nStatus, 408);
    EXPECT_TRUE(player.WaitClosed());
}

TEST_F(LiveLastAnswer, MediaDoesNotTakeTheTimeToReadIt)
{
    ASSERT_TRUE(KovaLivePlayTcp(&player, host));
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_TRUE(player.Send(std::string(20000, 'A')));
    ASSERT_TRUE(KovaWaitUntil(30000, [&] {
        Push();
        return !host.Events(KOVA_LIVE_EVENT_PLAYER_WENT).empty();
    }));
    // The peer has a second to end by itself: closed before, its further bytes would be answered
    // by a reset, which takes away what it has not received.
    EXPECT_GT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(900));
    EXPECT_GE(player.Receive().nStatus, 400);
}

TEST_F(LiveStalled, PlayerIsLetGoWhileItWaitsForAnotherStream)
{
    KovaLiveHost::AddVideo(host.AddStream("later"), false);
    KovaLiveClient other;
    ASSERT_TRUE(other.Connect(host.Port()));
    ASSERT_TRUE(other.Send(other.Text("DESCRIBE", "later")));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    PlayUntilFull();
    ASSERT_TRUE(player.Send(player.Text("DESCRIBE", "later")));
    EXPECT_EQ(host.WaitEvent(KOVA_LIVE_EVENT_PLAYER_WENT).nReason, KOVA_LIVE_WENT_SLOW);
    // The other one, who asked long before, waits still.
    EXPECT_EQ(other.Receive(100).nStatus, -1);
    EXPECT_EQ(other.Receive(20000).nStatus, 503);
}
