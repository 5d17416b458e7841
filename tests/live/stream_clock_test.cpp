#include "foundation/clock.h"
#include "kova_live.h"
#include "live/engine/stream.h"
#include "tests/support/fake_clock.h"

#include <gtest/gtest.h>

// How the times of the media are tied to the wall clock, as sender reports tell it.

namespace {

constexpr int64_t kSecond = 1000000;
constexpr int64_t kNow = 1700000000 * kSecond;
constexpr int64_t kBegin = 77 * kSecond; ///< where the times of the media begin

/// A stream with two tracks of sound, and a wall clock that stands still between the steps.
class StreamClock : public testing::Test {
protected:
    void SetUp() override
    {
        m_clock.Fix(kNow);
        ASSERT_EQ(KovaLiveOpen(nullptr, &m_pLive), KOVA_LIVE_OK);
        ASSERT_EQ(KovaLiveAddStream(m_pLive, "clock", nullptr, &m_pStream), KOVA_LIVE_OK);
        const uint8_t config[] = {0x11, 0x90};
        KovaLiveTrackConfig track = {};
        track.size = sizeof(track);
        track.codec = KOVA_LIVE_AAC;
        track.form = KOVA_LIVE_FORM_RAW;
        track.audio_config = config;
        track.audio_config_size = sizeof(config);
        for (KovaLiveTrack *&pTrack : m_pTracks)
            ASSERT_EQ(KovaLiveAddTrack(m_pStream, &track, &pTrack), KOVA_LIVE_OK);
        Push(0);
    }
    void TearDown() override
    {
        KovaLiveClose(m_pLive);
    }

    /// Pushes what belongs to this time, counted from the first push.
    void Push(int64_t nTime, uint32_t nTrack = 0)
    {
        const uint8_t frame[] = {1, 2, 3};
        ASSERT_EQ(KovaLivePush(m_pTracks[nTrack], frame, sizeof(frame), kBegin + nTime),
                  KOVA_LIVE_OK);
    }

    /// What the wall clock showed at the first push, by the stream's clock.
    int64_t Origin()
    {
        int64_t nPts = 0;
        int64_t nWall = 0;
        EXPECT_TRUE(KovaStreamClock(m_pStream, 0, KovaClockMonotonic(), &nPts, &nWall));
        return nWall - (nPts - kBegin);
    }

    KovaFakeClock m_clock;
    KovaLive *m_pLive = nullptr;
    KovaLiveStream *m_pStream = nullptr;
    KovaLiveTrack *m_pTracks[2] = {};
};

TEST_F(StreamClock, BeginsWithTheFirstPush)
{
    EXPECT_EQ(Origin(), kNow);
}

TEST_F(StreamClock, AHostThatWasHeldUpDoesNotMoveIt)
{
    m_clock.Advance(2 * kSecond);
    for (int64_t nTime = kSecond; nTime < 2 * kSecond; nTime += 20000) {
        Push(nTime);
        ASSERT_EQ(Origin(), kNow) << nTime;
    }
    m_clock.Advance(kSecond);
    Push(3 * kSecond);
    EXPECT_EQ(Origin(), kNow);
}

TEST_F(StreamClock, ATrackThatIsAlwaysLateDoesNotMoveIt)
{
    for (int64_t nTime = kSecond; nTime < 6 * kSecond; nTime += kSecond) {
        m_clock.Advance(kSecond);
        m_clock.AdvanceMonotonic(1);
        Push(nTime - 600000, 1);
        ASSERT_EQ(Origin(), kNow) << nTime;
        Push(nTime);
        ASSERT_EQ(Origin(), kNow) << nTime;
    }
}

TEST_F(StreamClock, LatenessThatLastsMovesIt)
{
    m_clock.Advance(2 * kSecond);
    Push(kSecond);
    m_clock.AdvanceMonotonic(1);
    m_clock.Advance(kSecond);
    Push(2 * kSecond);
    EXPECT_EQ(Origin(), kNow);
    m_clock.AdvanceMonotonic(1);
    m_clock.Advance(kSecond);
    Push(3 * kSecond);
    EXPECT_EQ(Origin(), kNow + kSecond);
}

TEST_F(StreamClock, UnitsBeforeTheirTimeMoveItAtOnce)
{
    Push(400000);
    EXPECT_EQ(Origin(), kNow);
    Push(kSecond);
    EXPECT_EQ(Origin(), kNow - kSecond);
}

TEST_F(StreamClock, HalfASecondBeforeTheirTimeIsTooMuch)
{
    Push(499999);
    EXPECT_EQ(Origin(), kNow);
    Push(500000);
    EXPECT_EQ(Origin(), kNow - 500000);
}

TEST_F(StreamClock, AJumpMovesItAtOnce)
{
    m_clock.Advance(6 * kSecond);
    Push(20000);
    EXPECT_EQ(Origin(), kNow + 6 * kSecond - 20000);
    Push(-3600 * kSecond);
    EXPECT_EQ(Origin(), kNow + 3606 * kSecond);
}

} // namespace
