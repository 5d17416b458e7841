#include "kova_live.h"
#include "live/media/rtp_time.h"
#include "tests/live/media_track.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

constexpr int64_t kSecond = 1000000;

/// The same by long division, of 32 bits at a time.
uint32_t ExactTicks(int64_t nPts, uint32_t nRate)
{
    const uint64_t nSize = nPts < 0 ? 0 - static_cast<uint64_t>(nPts) : static_cast<uint64_t>(nPts);
    const uint64_t nLow = (nSize & 0xFFFFFFFF) * nRate + (nPts < 0 ? kSecond / 2 - 1 : kSecond / 2);
    const uint64_t nHigh = (nSize >> 32) * nRate + (nLow >> 32);
    const uint64_t nRest = (nHigh % kSecond) << 32 | (nLow & 0xFFFFFFFF);
    const uint32_t nTicks = static_cast<uint32_t>(nRest / kSecond);
    return nPts < 0 ? 0 - nTicks : nTicks;
}

TEST(MediaTime, TicksAreExactForEveryTime)
{
    std::mt19937_64 random(6);
    for (const uint32_t nRate : {90000U, 44100U, 48000U, 7350U, 0xFFFFFFU}) {
        for (const int64_t nPts : {int64_t{0}, int64_t{1}, int64_t{-1}, kSecond, -kSecond,
                                   kSecond - 1, 1 - kSecond, INT64_MAX, INT64_MIN}) {
            EXPECT_EQ(KovaRtpTicks(nPts, nRate), ExactTicks(nPts, nRate)) << nPts;
        }
        for (int n = 0; n < 20000; n++) {
            const int64_t nPts = static_cast<int64_t>(random()) >> random() % 60;
            ASSERT_EQ(KovaRtpTicks(nPts, nRate), ExactTicks(nPts, nRate)) << nPts;
        }
    }
    EXPECT_EQ(KovaRtpTicks(kSecond, 90000), 90000U);
    EXPECT_EQ(KovaRtpTicks(-kSecond, 90000), 0U - 90000U);
}

struct MediaPictureTime : testing::Test {
    KovaMediaTrack track{KovaMediaConfig(KOVA_LIVE_H264)};
    const std::string slice = KovaMediaAnnexB({KovaMediaNal(0x41, 30)});

    uint32_t At(int64_t nPts)
    {
        const KovaMediaUnit unit = track.Push(slice, nPts);
        EXPECT_EQ(unit.nPts, nPts);
        EXPECT_EQ(KovaTrackMediaTimestamp(track.Media(), nPts), unit.nTimestamp);
        return unit.nTimestamp;
    }
};

TEST_F(MediaPictureTime, FollowsThePushedTimeForwardAndBackward)
{
    const uint32_t nZero = At(0);
    EXPECT_EQ(At(40000) - nZero, 3600U);
    EXPECT_EQ(At(20000) - nZero, 1800U);
    EXPECT_EQ(At(-20000) - nZero, 0U - 1800U);
    EXPECT_EQ(At(33367) - nZero, 3003U);
    EXPECT_EQ(At(INT64_MAX) - nZero, ExactTicks(INT64_MAX, 90000));
    EXPECT_EQ(At(INT64_MIN) - nZero, ExactTicks(INT64_MIN, 90000));
}

TEST_F(MediaPictureTime, WrapsWithoutAJump)
{
    // 2^32 ticks of 90 kHz are 47,721.858 s.
    uint32_t nLast = At(0);
    bool bWrapped = false;
    for (int64_t nPts = kSecond; nPts < 50000 * kSecond; nPts += kSecond) {
        const uint32_t nNow = KovaTrackMediaTimestamp(track.Media(), nPts);
        ASSERT_EQ(nNow - nLast, 90000U);
        bWrapped |= nNow < nLast;
        nLast = nNow;
    }
    EXPECT_TRUE(bWrapped);
    EXPECT_EQ(At(49999 * kSecond), nLast);
}

/// An hour and more of 44.1 kHz, one frame a push, times in units of nUnit µs.
void ExpectExactSteps(int64_t nUnit, bool bRoundUp)
{
    KovaMediaTrack track(KovaMediaConfig(KOVA_LIVE_AAC));
    const std::string frame = KovaMediaAdts("abcdef");
    constexpr uint32_t kFrames = 160000; // 3,715 s
    uint32_t nFirst = 0;
    for (uint32_t n = 0; n < kFrames; n++) {
        const int64_t nExact = int64_t{n} * 1024 * kSecond / 44100;
        const int64_t nPts = (nExact + (bRoundUp ? nUnit - 1 : 0)) / nUnit * nUnit;
        const KovaMediaUnit unit = track.Push(frame, nPts);
        if (n == 0)
            nFirst = unit.nTimestamp;
        ASSERT_EQ(unit.nTimestamp - nFirst, n * 1024) << n;
    }
}

TEST(MediaSoundTime, HasExactStepsForAnHourOfMicroseconds)
{
    ExpectExactSteps(1, false);
}

TEST(MediaSoundTime, HasExactStepsForAnHourOfMilliseconds)
{
    ExpectExactSteps(1000, false);
    ExpectExactSteps(1000, true);
}

TEST(MediaSoundTime, StaysWithinHalfAFrameOfAClockThatRunsAway)
{
    // The host's times are of a clock 100 ppm fast; the sound's own rate is exact.
    KovaMediaTrack track(KovaMediaConfig(KOVA_LIVE_AAC));
    const std::string frame = KovaMediaAdts("abcdef");
    unsigned nJumps = 0;
    uint32_t nLast = 0;
    for (uint32_t n = 0; n < 40000; n++) {
        const int64_t nExact = int64_t{n} * 1024 * kSecond / 44100;
        const int64_t nPts = nExact + nExact / 10000;
        const uint32_t nNow = track.Push(frame, nPts).nTimestamp;
        const int32_t nAway =
            static_cast<int32_t>(nNow - KovaTrackMediaTimestamp(track.Media(), nPts));
        ASSERT_LE(std::abs(nAway), 512);
        if (n > 0 && nNow - nLast != 1024)
            nJumps++;
        nLast = nNow;
    }
    // 40,000 frames drift by 4,096 ticks.
    EXPECT_EQ(nJumps, 7U);
}

struct MediaSoundSteps : testing::Test {
    KovaMediaTrack track{KovaMediaConfig(KOVA_LIVE_AAC)};

    /// The distance to where a frame would be if it simply followed.
    int32_t Away(int64_t nPts, unsigned nFrames = 1, unsigned nRateIndex = 4)
    {
        KovaAdtsKind kind;
        kind.nRateIndex = nRateIndex;
        std::string data;
        for (unsigned n = 0; n < nFrames; n++)
            data += KovaMediaAdts("abcdef", kind);
        const uint32_t nNow = track.Push(data, nPts).nTimestamp;
        const uint32_t nWas = m_nNext;
        m_nNext = nNow + nFrames * 1024;
        return static_cast<int32_t>(nNow - nWas);
    }

    /// The time of so many ticks of 44.1 kHz, and of 8 kHz.
    static int64_t At(int64_t nTicks, int64_t nRate = 44100)
    {
        return nTicks * kSecond / nRate;
    }

private:
    uint32_t m_nNext = 0;
};

TEST_F(MediaSoundSteps, GapOfAFrameIsSeenAndHalfOfOneIsNot)
{
    Away(0);
    EXPECT_EQ(Away(At(2048)), 1024);
    EXPECT_EQ(Away(At(3072 + 510)), 0);
    EXPECT_EQ(Away(At(4096 - 510)), 0);
    EXPECT_NEAR(Away(At(5120 + 520)), 520, 1);
    EXPECT_NEAR(Away(At(6144 - 520)), -1040, 1);
}

TEST_F(MediaSoundSteps, LongFramesAreNotLaterThan20Milliseconds)
{
    Away(0, 1, 11);
    EXPECT_EQ(Away(At(1024 + 159, 8000), 1, 11), 0);
    EXPECT_NEAR(Away(At(2048 + 170, 8000), 1, 11), 170, 1);
}

TEST_F(MediaSoundSteps, FramesOfOnePushCount)
{
    Away(0, 5);
    EXPECT_EQ(Away(At(5 * 1024) + 3000, 3), 0);
    EXPECT_EQ(Away(At(8 * 1024)), 0);
}

TEST_F(MediaSoundSteps, WrapIsNoJump)
{
    // Towards 2^32 ticks of 44.1 kHz, wherever the track began.
    for (int64_t nBegin = 0; nBegin < int64_t{1} << 33; nBegin += int64_t{1} << 29) {
        Away(At(nBegin));
        for (int n = 1; n < 4; n++)
            ASSERT_EQ(Away(At(nBegin + 1024 * n)), 0);
    }
    KovaSoundTime time = {true, 100};
    EXPECT_EQ(KovaSoundTimeOf(time, 0xFFFFFFF0U, 1024, 44100), 100U);
    time.nNext = 0xFFFFFFF0U;
    EXPECT_EQ(KovaSoundTimeOf(time, 100, 1024, 44100), 0xFFFFFFF0U);
    EXPECT_EQ(KovaSoundTimeOf(time, 600, 1024, 44100), 600U);
}

TEST_F(MediaSoundSteps, AnotherRateBeginsAtItsOwnTime)
{
    Away(0);
    KovaAdtsKind kind;
    kind.nRateIndex = 3;
    const KovaMediaUnit unit = track.Push(KovaMediaAdts("abc", kind), 23220);
    EXPECT_EQ(unit.nTimestamp, KovaTrackMediaTimestamp(track.Media(), 23220));
}

TEST_F(MediaSoundSteps, RefusedPushMovesNothing)
{
    Away(0);
    EXPECT_EQ(track.Push("abc", 777 * kSecond).nResult, KOVA_LIVE_ERROR_DATA);
    EXPECT_EQ(Away(At(1024)), 0);
}

} // namespace
