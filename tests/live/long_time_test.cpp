#include "live/engine/loop.h"
#include "tests/live/live_host.h"
#include "tests/support/fake_clock.h"

#include <gtest/gtest.h>

#include <cstdlib>

// A day of media in some seconds: the clocks are led, the player is real.

namespace {

constexpr int64_t kSecond = 1000000;
constexpr int64_t kStep = 20; // seconds
constexpr int64_t kHour = 3600;
constexpr int64_t kTo1900 = 2208988800;
constexpr int64_t kEndOf32Bits = 0x7FFFFFFF;

struct LiveLongTime : testing::Test {
    KovaFakeClock clock;
    KovaLiveHost host;
    KovaLiveStream *pStream = host.AddStream("cam");
    KovaLiveTrack *pVideo = KovaLiveHost::AddVideo(pStream);
    KovaLiveClient client;
    int64_t nPts = 0;

    /// Between two rounds of the network thread: each has one time.
    void Pass(int64_t nSeconds)
    {
        const KovaMutexLock lock(&host.Live()->pLoops[0]->mutex, kRankLiveLoop);
        clock.Advance(nSeconds * kSecond);
        clock.AdvanceMonotonic(nSeconds);
        nPts += nSeconds * kSecond;
    }
    uint32_t PushOne()
    {
        EXPECT_EQ(KovaLivePushText(pVideo, KovaLiveKey(), nPts), KOVA_LIVE_OK);
        const std::vector<KovaLiveRtp> unit = KovaLiveNextUnit(&client, 1);
        EXPECT_FALSE(unit.empty());
        return unit.empty() ? 0 : unit[0].header.nTimestamp;
    }
    /// The report that goes before a picture names the wall clock and the picture's time stamp.
    void ExpectReport(uint32_t nTimestamp)
    {
        std::string report;
        ASSERT_TRUE(client.NextRtcp(1, &report));
        ASSERT_EQ(static_cast<uint8_t>(report[1]), 200);
        const uint32_t nWall = static_cast<uint32_t>(clock.Now() / kSecond + kTo1900);
        EXPECT_LE(nWall - KovaNumberAt(report, 8), 1U);
        EXPECT_LT(std::abs(static_cast<int32_t>(KovaNumberAt(report, 16) - nTimestamp)), 90000);
    }
};

} // namespace

TEST_F(LiveLongTime, ADayWithAClockThatIsSetAndPassesItsEnds)
{
    // The 32-bit seconds of 2038 end in the middle; time stamps wrap every 13 hours.
    clock.Fix((kEndOf32Bits - 12 * kHour) * kSecond);
    ASSERT_TRUE(KovaLivePlayUdp(&client, host));
    uint32_t nLast = PushOne();
    ExpectReport(nLast);
    for (int64_t nTime = 0; nTime < 24 * kHour && !HasFailure(); nTime += kStep) {
        SCOPED_TRACE(nTime);
        Pass(kStep);
        if (nTime % (4 * kHour) == kHour)
            clock.Advance(-3 * kHour * kSecond);
        if (nTime % (4 * kHour) == 3 * kHour)
            clock.Advance(3 * kHour * kSecond);
        const uint32_t nTimestamp = PushOne();
        EXPECT_EQ(nTimestamp - nLast, static_cast<uint32_t>(kStep * 90000));
        nLast = nTimestamp;
        ExpectReport(nTimestamp);
        ASSERT_TRUE(client.SendRtcp(1, KovaLiveReport(0)));
    }
    EXPECT_EQ(host.Figures().players, 1U);
    EXPECT_EQ(host.Events(KOVA_LIVE_EVENT_PLAYER_WENT).size(), 0U);
    // It is silent from here on.
    for (int nStep = 0; nStep < 4; nStep++) {
        Pass(kStep);
        EXPECT_EQ(KovaLivePushText(pVideo, KovaLiveKey(), nPts), KOVA_LIVE_OK);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_EQ(host.WaitEvent(KOVA_LIVE_EVENT_PLAYER_WENT).nReason,
              uint32_t{KOVA_LIVE_WENT_SILENCE});
}

TEST_F(LiveLongTime, KeyFramesAreAskedForAfterAYear)
{
    ASSERT_TRUE(KovaLivePlayTcp(&client, host));
    PushOne();
    const size_t nAsked = host.Events(KOVA_LIVE_EVENT_KEY_FRAME).size();
    Pass(366 * 24 * kHour);
    PushOne();
    KovaLiveClient other;
    ASSERT_TRUE(KovaLivePlayTcp(&other, host));
    EXPECT_EQ(host.WaitEvent(KOVA_LIVE_EVENT_KEY_FRAME, nAsked + 1).pTrack, pVideo);
    EXPECT_EQ(client.Request("GET_PARAMETER", "cam").nStatus, 200);
}
