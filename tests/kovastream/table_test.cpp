#include "table.h"

#include <gtest/gtest.h>

namespace {

using kovastream::Lines;
using kovastream::Table;
using Texts = std::vector<std::string>;

const Table kTable = {{"live", "streaming", "0:00:09", "25.0 fps"},
                      {"second", "ended", "10:00:00", "9.0 fps"}};

TEST(TableTest, FieldsStandBelowEachOther)
{
    EXPECT_EQ(Lines(kTable, kovastream::kNoWidth), (Texts{
                                                       "live    streaming   0:00:09  25.0 fps",
                                                       "second  ended      10:00:00   9.0 fps",
                                                   }));
}

TEST(TableTest, FiguresAreLeftOutFromTheRight)
{
    EXPECT_EQ(Lines(kTable, 37).front().size(), 37U);
    EXPECT_EQ(Lines(kTable, 36),
              (Texts{"live    streaming   0:00:09", "second  ended      10:00:00"}));
    EXPECT_EQ(Lines(kTable, 26), (Texts{"live    streaming", "second  ended"}));
}

TEST(TableTest, NamesAreCutBeforeStates)
{
    EXPECT_EQ(Lines(kTable, 16), (Texts{"live   streaming", "secon  ended"}));
    EXPECT_EQ(Lines(kTable, 12), (Texts{"l  streaming", "s  ended"}));
    EXPECT_EQ(Lines(kTable, 9), (Texts{"streaming", "ended"}));
    EXPECT_EQ(Lines(kTable, 3), (Texts{"str", "end"}));
}

TEST(TableTest, OneFieldIsWhole)
{
    EXPECT_EQ(Lines({{"{\"uri\":\"live\"}"}}, kovastream::kNoWidth), (Texts{"{\"uri\":\"live\"}"}));
    EXPECT_TRUE(Lines({}, 80).empty());
}

} // namespace
