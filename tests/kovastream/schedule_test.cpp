#include "schedule.h"

#include <gtest/gtest.h>

namespace {

using kovastream::Schedule;
using std::chrono::milliseconds;

const Schedule::Time kBegin = Schedule::Time(std::chrono::hours(7));

/// Microseconds of the stream's time.
int64_t Micro(milliseconds time)
{
    return std::chrono::microseconds(time).count();
}

struct ScheduleTest : testing::Test {
    Schedule schedule;

    /// Milliseconds from the beginning to when the unit is let go.
    int64_t LetGo(milliseconds due, milliseconds come)
    {
        const auto when = schedule.Place(Micro(due), kBegin + come);
        return std::chrono::duration_cast<milliseconds>(when - kBegin).count();
    }
};

TEST_F(ScheduleTest, FirstUnitTellsWhatTimeItIs)
{
    EXPECT_EQ(LetGo(milliseconds(40), milliseconds(0)), -100);
    EXPECT_EQ(schedule.TimeOf(40000), kBegin);
    EXPECT_EQ(schedule.TimeOf(0), kBegin - milliseconds(40));
}

TEST_F(ScheduleTest, UnitsAreLetGoATenthBeforeTheirTime)
{
    LetGo(milliseconds(0), milliseconds(0));
    EXPECT_EQ(LetGo(milliseconds(1000), milliseconds(0)), 900);
    EXPECT_EQ(LetGo(milliseconds(1040), milliseconds(990)), 940);
}

TEST_F(ScheduleTest, LatenessOfHalfASecondIsMadeUpFor)
{
    LetGo(milliseconds(0), milliseconds(0));
    EXPECT_EQ(LetGo(milliseconds(1000), milliseconds(1500)), 900);
    EXPECT_EQ(LetGo(milliseconds(2000), milliseconds(1500)), 1900);
    EXPECT_EQ(schedule.TimeOf(0), kBegin);
}

TEST_F(ScheduleTest, AfterAStallEverythingIsThatMuchLater)
{
    LetGo(milliseconds(0), milliseconds(0));
    EXPECT_EQ(LetGo(milliseconds(1000), milliseconds(1501)), 1401);
    EXPECT_EQ(LetGo(milliseconds(1040), milliseconds(1501)), 1441);
    EXPECT_EQ(LetGo(milliseconds(3000), milliseconds(1501)), 3401);
    EXPECT_EQ(schedule.TimeOf(0), kBegin + milliseconds(501));
}

TEST_F(ScheduleTest, TrackThatLiesBehindIsNoStall)
{
    LetGo(milliseconds(0), milliseconds(0));
    LetGo(milliseconds(2000), milliseconds(1900));
    EXPECT_EQ(LetGo(milliseconds(1000), milliseconds(1900)), 900);
    EXPECT_EQ(LetGo(milliseconds(2000), milliseconds(1900)), 1900);
    EXPECT_EQ(schedule.TimeOf(0), kBegin);
}

} // namespace
