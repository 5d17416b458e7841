#include "milliseconds.h"

#include <gtest/gtest.h>

namespace {

using kovastream::Milliseconds;
using kovastream::TrackKind;

TEST(MillisecondsTest, SoundWithEqualTimestampsRises)
{
    Milliseconds clock;
    EXPECT_EQ(clock.Of(TrackKind::Sound, 40000), 40U);
    EXPECT_EQ(clock.Of(TrackKind::Sound, 40000), 41U);
    EXPECT_EQ(clock.Of(TrackKind::Sound, 40999), 42U);
    EXPECT_EQ(clock.Of(TrackKind::Sound, 41000), 43U);
    EXPECT_EQ(clock.Of(TrackKind::Sound, 44000), 44U);
    EXPECT_EQ(clock.Of(TrackKind::Sound, 60000), 60U);
}

TEST(MillisecondsTest, PicturesKeepTheirOrder)
{
    Milliseconds clock;
    EXPECT_EQ(clock.Of(TrackKind::Picture, 160000), 160U);
    EXPECT_EQ(clock.Of(TrackKind::Picture, 80999), 80U);
    EXPECT_EQ(clock.Of(TrackKind::Picture, 80000), 80U);
}

TEST(MillisecondsTest, NoTimestampIsZero)
{
    Milliseconds clock;
    EXPECT_EQ(clock.Of(TrackKind::Picture, 0), 1U);
    EXPECT_EQ(clock.Of(TrackKind::Picture, 999), 1U);
    EXPECT_EQ(clock.Of(TrackKind::Picture, -5000), 1U);
}

TEST(MillisecondsTest, TimestampsGoRoundAt32Bits)
{
    Milliseconds clock;
    EXPECT_EQ(clock.Of(TrackKind::Picture, (int64_t{1} << 32) * 1000 + 7000), 7U);
}

} // namespace
