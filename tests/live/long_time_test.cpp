#include "live/engine/loop.h"
#include "live/engine/stream.h"
#include "tests/live/live_host.h"
#include "tests/support/fake_clock.h"

#include <gtest/gtest.h>

#include <cstdlib>

// A day of media in some seconds: the clocks are led, the player is real.

namespace {

constexpr int64_t kSecond = 1000000;
constexpr int64_t kStep = 20; // seconds
constexpr int64_t kHour = 3600;
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
};

/// A picture rate, and one of sound that goes into no unit of time.
constexpr int64_t kPictureRate = 90000;
constexpr int64_t kPictureTicks = 3600;
constexpr int64_t kSoundRate = 44100;
constexpr int64_t kFrameTicks = 1024;

/// What happens to the wall clock every twelve hours. Media time follows it from half a second on;
/// forward by less than 5 s only when that has lasted, because a host may just have been held up.
struct Setting {
    int64_t nHour;
    int64_t nForward; ///< µs
    bool bHeldUp;
};
constexpr Setting kSettings[] = {
    {1, -10800 * kSecond, false}, {3, 10800 * kSecond, false}, {5, 2 * kSecond, true},
    {7, -2 * kSecond, false},     {8, -600000, false},         {9, 300000, false},
    {10, 600000, true},           {11, -300000, false},
};

/// One track as the player sees it. Times are µs since the day's beginning.
struct SeenTrack {
    int nTrack;
    int64_t nRate;
    uint32_t nStart = 0; ///< timestamp at time 0
    uint32_t nLast = 0;
    bool bWrapped = false;

    uint32_t TimestampAt(int64_t nTicks) const
    {
        return nStart + static_cast<uint32_t>(nTicks);
    }
    void ExpectUnit(KovaLiveClient *pClient, int64_t nTicks)
    {
        const std::vector<KovaLiveRtp> unit = KovaLiveNextUnit(pClient, nTrack);
        ASSERT_FALSE(unit.empty());
        const uint32_t nTimestamp = unit[0].header.nTimestamp;
        if (nTicks == 0)
            nStart = nTimestamp;
        ASSERT_EQ(nTimestamp, TimestampAt(nTicks));
        bWrapped |= nTicks != 0 && nTimestamp < nLast;
        nLast = nTimestamp;
    }
    /// What the wall clock showed at time 0, by the newest report. nTime, nWall: now.
    int64_t Origin(KovaLiveClient *pClient, int64_t nTime, int64_t nWall) const
    {
        std::string report;
        EXPECT_TRUE(pClient->NextRtcp(nTrack, &report)) << nTrack;
        while (pClient->NextRtcp(nTrack, &report, 0)) {
        }
        if (report.size() < 28)
            return 0;
        const int64_t nTicks =
            static_cast<int32_t>(KovaNumberAt(report, 16) - TimestampAt(nTime / kSecond * nRate));
        return KovaReportWall(report, nWall) - nTime - nTicks * kSecond / nRate;
    }
};

struct LiveLongDay : LiveLongTime {
    KovaLiveTrack *pSound = KovaLiveHost::AddSound(pStream);
    SeenTrack picture{1, kPictureRate};
    SeenTrack sound{2, kSoundRate};
    int64_t nBegin = 0; ///< pts of the day's beginning
    bool bHeldUp = false;

    static int64_t FrameTime(int64_t nFrame)
    {
        return (nFrame * kFrameTicks * kSecond + kSoundRate / 2) / kSoundRate;
    }
    /// Both tracks play. The day begins so that timestamps of sound wrap in its middle; those of
    /// pictures do so every 13 hours.
    void Begin()
    {
        const uint32_t nAtZero = KovaTrackMediaTimestamp(pSound->pMedia, 0);
        nBegin = ((int64_t{1} << 32) - nAtZero) / kSoundRate * kSecond - 12 * kHour * kSecond;
        // Whatever comes before tells the configuration.
        ASSERT_EQ(KovaLivePushText(pSound, KovaLiveSound(), nBegin - kSecond), KOVA_LIVE_OK);
        ASSERT_TRUE(client.Connect(host.Port()));
        ASSERT_EQ(client.SetupUdp("cam", 1).nStatus, 200);
        ASSERT_EQ(client.SetupUdp("cam", 2).nStatus, 200);
        ASSERT_EQ(client.Play("cam").nStatus, 200);
    }
    void SetWallClock(int64_t nTime)
    {
        bHeldUp = false;
        for (const Setting &setting : kSettings) {
            if (nTime % (12 * kHour) != setting.nHour * kHour)
                continue;
            clock.Advance(setting.nForward);
            bHeldUp = setting.bHeldUp;
        }
    }
    /// Two pictures, and two frames of sound, of a second.
    void PushSome(int64_t nTime)
    {
        const int64_t nFrame = (nTime * kSoundRate + kFrameTicks - 1) / kFrameTicks;
        for (int64_t n = 0; n < 2; n++) {
            const int64_t nPicture = nTime * 25 + n;
            ASSERT_EQ(KovaLivePushText(pVideo, n == 0 ? KovaLiveKey() : KovaLiveOther(),
                                       nBegin + nPicture * 40000),
                      KOVA_LIVE_OK);
            ASSERT_EQ(KovaLivePushText(pSound, KovaLiveSound(), nBegin + FrameTime(nFrame + n)),
                      KOVA_LIVE_OK);
        }
        for (int64_t n = 0; n < 2; n++) {
            ASSERT_NO_FATAL_FAILURE(picture.ExpectUnit(&client, (nTime * 25 + n) * kPictureTicks));
            ASSERT_NO_FATAL_FAILURE(sound.ExpectUnit(&client, (nFrame + n) * kFrameTicks));
        }
    }
    /// Each track has got one before these units: players take from them what belongs together.
    void ExpectReports(int64_t nTime)
    {
        const int64_t nWall = clock.Now();
        const int64_t nOrigin = picture.Origin(&client, nTime * kSecond, nWall);
        EXPECT_EQ(sound.Origin(&client, nTime * kSecond, nWall), nOrigin);
        const int64_t nMost = bHeldUp ? 2 * kSecond : kSecond / 2;
        EXPECT_LE(std::abs(nOrigin + nTime * kSecond - nWall), nMost);
    }
};

} // namespace

TEST_F(LiveLongDay, SoundAndPictureStayTogetherWhileTheClockIsSetAndPassesItsEnds)
{
    // The 32-bit seconds of 2038 end in the middle.
    clock.Fix((kEndOf32Bits - 12 * kHour) * kSecond);
    ASSERT_NO_FATAL_FAILURE(Begin());
    for (int64_t nTime = 0; nTime < 24 * kHour && !HasFailure(); nTime += kStep) {
        SCOPED_TRACE(nTime);
        SetWallClock(nTime);
        ASSERT_NO_FATAL_FAILURE(PushSome(nTime));
        ExpectReports(nTime);
        ASSERT_TRUE(client.SendRtcp(1, KovaLiveReport(0)));
        Pass(kStep);
    }
    EXPECT_TRUE(picture.bWrapped);
    EXPECT_TRUE(sound.bWrapped);
    EXPECT_EQ(host.Figures().players, 1U);
    EXPECT_EQ(host.Events(KOVA_LIVE_EVENT_PLAYER_WENT).size(), 0U);
    // It is silent from here on.
    for (int nStep = 0; nStep < 4; nStep++) {
        Pass(kStep);
        EXPECT_EQ(KovaLivePushText(pVideo, KovaLiveKey(), nBegin + nPts), KOVA_LIVE_OK);
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
