#include "repeats.h"

#include <gtest/gtest.h>

namespace {

using kovastream::Repeats;

TEST(RepeatsTest, LinesThatDifferStay)
{
    Repeats repeats;
    EXPECT_EQ(repeats.Without("one\ntwo\none\n"), "one\ntwo\none\n");
    EXPECT_EQ(repeats.Said(), "");
}

TEST(RepeatsTest, RepeatedLinesAreCountedUntilTheyAreSaid)
{
    Repeats repeats;
    EXPECT_EQ(repeats.Without("one\none\n"), "one\n");
    EXPECT_EQ(repeats.Without("one\none\n"), "");
    EXPECT_EQ(repeats.Said(), "  (3 more of this line)\n");
    EXPECT_EQ(repeats.Said(), "");
    EXPECT_EQ(repeats.Without("one\n"), "");
    EXPECT_EQ(repeats.Said(), "  (1 more of this line)\n");
}

TEST(RepeatsTest, CountStandsInFrontOfTheNextLine)
{
    Repeats repeats;
    EXPECT_EQ(repeats.Without("one\none\ntwo\n"), "one\n  (1 more of this line)\ntwo\n");
    EXPECT_EQ(repeats.Said(), "");
}

} // namespace
