#include "live/engine/loop.h"
#include "tests/live/live_host.h"
#include "tests/support/fake_clock.h"

#include <gtest/gtest.h>

// An hour of sound at a rate that goes into no unit of time: the clocks are led, and the player
// gets every frame.

namespace {

constexpr int64_t kSecond = 1000000;
constexpr int64_t kHour = 3600;
constexpr int64_t kRate = 44100;
constexpr int64_t kFrameTicks = 1024;
constexpr uint32_t kPayload = 10;                ///< bytes of each packet behind its header
constexpr int64_t kBegin = 1700000000 * kSecond; ///< what the wall clock shows at time 0

/// When a frame begins, to the nearest microsecond.
int64_t TimeOf(int64_t nFrame)
{
    return (nFrame * kFrameTicks * kSecond + kRate / 2) / kRate;
}

/// A way in which hosts reckon the times of frames.
struct Rounding {
    const char *szName;
    int64_t nUnit;  ///< µs
    int64_t nAdded; ///< before it is cut to whole units
};

struct LiveLongSound : testing::TestWithParam<Rounding> {
    KovaFakeClock clock;
    KovaLiveHost host;
    KovaLiveTrack *pSound = KovaLiveHost::AddSound(host.AddStream("cam"));
    KovaLiveClient client;
    const std::string frame = KovaMediaAdts("abcdef");
    int64_t nPushed = 0; ///< frames
    int64_t nSeen = 0;
    uint32_t nStart = 0; ///< timestamp of frame 0

    void PushOne()
    {
        const int64_t nTime = TimeOf(nPushed++);
        clock.Fix(kBegin + nTime);
        const int64_t nPts = (nTime + GetParam().nAdded) / GetParam().nUnit * GetParam().nUnit;
        ASSERT_EQ(KovaLivePushText(pSound, frame, nPts), KOVA_LIVE_OK);
    }
    void PushSecond(int64_t nSecond)
    {
        while (TimeOf(nPushed) < (nSecond + 1) * kSecond)
            PushOne();
    }
    /// When all is sent, between two rounds of the network thread: each has one time.
    void PassSecond()
    {
        const KovaMutexLock lock(&host.Live()->pLoops[0]->mutex, kRankLiveLoop);
        clock.AdvanceMonotonic(1);
    }
    /// Frame follows frame by its length.
    void ExpectFrames()
    {
        for (KovaLiveRtp packet; nSeen < nPushed; nSeen++) {
            ASSERT_TRUE(client.NextRtp(1, &packet));
            if (nSeen == 1)
                nStart = packet.header.nTimestamp - static_cast<uint32_t>(kFrameTicks);
            ASSERT_EQ(packet.header.nTimestamp,
                      nStart + static_cast<uint32_t>(nSeen * kFrameTicks));
        }
    }
    /// Those that came name moments of the same line as the frames do. Returns how many.
    int ExpectReports(int64_t nSecond)
    {
        int nReports = 0;
        for (std::string report; client.NextRtcp(1, &report, 0); nReports++) {
            const int64_t nTime = KovaReportWall(report, kBegin) - kBegin;
            EXPECT_LT(std::abs(nTime - nSecond * kSecond), 10 * kSecond);
            EXPECT_EQ(nTime * kRate % kSecond, 0);
            EXPECT_EQ(KovaNumberAt(report, 16),
                      nStart + static_cast<uint32_t>(nTime * kRate / kSecond));
            EXPECT_LT(KovaNumberAt(report, 20), nSeen);
            EXPECT_EQ(KovaNumberAt(report, 24), KovaNumberAt(report, 20) * kPayload);
        }
        return nReports;
    }
};

} // namespace

TEST_P(LiveLongSound, AnHourHasNoDrift)
{
    PushOne(); // it tells the configuration
    nSeen = nPushed;
    ASSERT_TRUE(KovaLivePlayTcp(&client, host));
    int nReports = 0;
    for (int64_t nTime = 0; nTime < kHour && !HasFailure(); nTime++) {
        SCOPED_TRACE(nTime);
        PushSecond(nTime);
        ExpectFrames();
        nReports += ExpectReports(nTime);
        PassSecond();
    }
    EXPECT_GE(nReports, kHour / 5);
    // The first frame behind the hour.
    PushOne();
    KovaLiveRtp last;
    ASSERT_TRUE(client.NextRtp(1, &last));
    const int64_t nBehind = (TimeOf(nPushed - 1) - kHour * kSecond) * kRate / kSecond;
    const int64_t nTicks = static_cast<int32_t>(last.header.nTimestamp - nStart);
    EXPECT_NEAR(nTicks - nBehind, kHour * kRate, 1);
}

INSTANTIATE_TEST_SUITE_P(Host, LiveLongSound,
                         testing::Values(Rounding{"Microseconds", 1, 0},
                                         Rounding{"MillisecondsCut", 1000, 0},
                                         Rounding{"MillisecondsNearest", 1000, 500}),
                         [](const auto &way) { return std::string(way.param.szName); });
