#include "timeline.h"

#include <gtest/gtest.h>

namespace {

using kovastream::StreamEnd;
using kovastream::Timeline;
using kovastream::TrackKind;
using kovastream::Unit;

constexpr int64_t kPicture = 40000;
constexpr int64_t kSound = 20000;

Unit PictureAt(int64_t time)
{
    return {TrackKind::Picture, kovastream::Entry::None, {}, time, time, kPicture};
}

Unit SoundAt(int64_t time)
{
    return {TrackKind::Sound, kovastream::Entry::None, {}, time, time, kSound};
}

struct TimelineTest : testing::Test {
    StreamEnd end;
    Timeline timeline{&end};
};

TEST_F(TimelineTest, BeginsAtTheBaseWithTheOrigin)
{
    timeline.Begin(5000000, end.Get());
    const kovastream::Placed first = timeline.Place(PictureAt(5000000));
    EXPECT_EQ(first.due, 40000);
    EXPECT_EQ(first.presentation, 40000);
    EXPECT_EQ(end.Get(), 40000 + kPicture);
}

TEST_F(TimelineTest, TrackThatEndedLongBeforeTheOtherBeginsAgainWithIt)
{
    timeline.Begin(0, 40000);
    EXPECT_EQ(timeline.Place(SoundAt(0)).presentation, 40000);
    EXPECT_EQ(timeline.Place(PictureAt(20000000)).presentation, 20040000);
    timeline.Begin(0, end.Get());
    EXPECT_EQ(timeline.Place(PictureAt(0)).presentation, 20080000);
    EXPECT_EQ(timeline.Place(SoundAt(0)).presentation, 20080000);
}

TEST_F(TimelineTest, PicturesKeepTheTimeThatTheyAreShownAt)
{
    timeline.Begin(0, 40000);
    Unit late = PictureAt(0);
    late.presentation = 120000;
    EXPECT_EQ(timeline.Place(late).presentation, 160000);
    EXPECT_EQ(timeline.Place(PictureAt(40000)).presentation, 80000);
    EXPECT_EQ(timeline.Place(PictureAt(40000)).presentation, 80000);
    EXPECT_EQ(end.Get(), 160000 + kPicture);
}

TEST_F(TimelineTest, ClockThatStepsBackGoesOnWhereTheTrackWas)
{
    timeline.Begin(0, 0);
    timeline.Place(PictureAt(8000000));
    EXPECT_EQ(timeline.Place(PictureAt(0)).due, 8000000 + kPicture);
    EXPECT_EQ(timeline.Place(PictureAt(kPicture)).due, 8000000 + 2 * kPicture);
}

TEST_F(TimelineTest, BothTracksStayTogetherOverABreak)
{
    timeline.Begin(0, 0);
    timeline.Place(PictureAt(8000000));
    timeline.Place(SoundAt(8010000));
    const int64_t picture = timeline.Place(PictureAt(0)).due;
    timeline.Place(SoundAt(8030000));
    EXPECT_EQ(timeline.Place(SoundAt(17000)).due, picture + 17000);
}

TEST_F(TimelineTest, StepsWithinTheBoundsStay)
{
    timeline.Begin(0, 0);
    timeline.Place(PictureAt(2000000));
    EXPECT_EQ(timeline.Place(PictureAt(1000000)).due, 1000000);
    EXPECT_EQ(timeline.Place(PictureAt(11000000)).due, 11000000);
    EXPECT_EQ(timeline.Place(PictureAt(9999999)).due, 11000000 + kPicture);
    const int64_t offset = 11000000 + kPicture - 9999999;
    EXPECT_EQ(timeline.Place(PictureAt(19999999)).due, 19999999 + offset);
    EXPECT_EQ(timeline.Place(PictureAt(30000000)).due, 19999999 + offset + kPicture);
}

} // namespace
