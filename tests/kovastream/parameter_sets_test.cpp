#include "parameter_sets.h"

#include <gtest/gtest.h>

namespace {

using kovastream::ParameterSets;
using Bytes = std::vector<uint8_t>;

// Ids are the first number behind the header, or behind the level: a set first bit is 0, 010 is 1.
const Bytes kSps0 = {0x67, 0x42, 0x00, 0x1E, 0x80, 0x55};
const Bytes kOtherSps0 = {0x67, 0x42, 0x00, 0x28, 0x80, 0x55};
const Bytes kSps1 = {0x67, 0x42, 0x00, 0x1E, 0x40, 0x55};
const Bytes kPps0 = {0x68, 0xC1};
const Bytes kOtherPps0 = {0x68, 0xC3};
const Bytes kPps1 = {0x68, 0x41};
const Bytes kPps30 = {0x68, 0x07, 0xC1}; // 000011111: 30
const Bytes kSlice = {0x65, 0x88, 0x80};

Bytes Text(const std::vector<Bytes> &units)
{
    Bytes text;
    for (const Bytes &unit : units) {
        text.insert(text.end(), {0, 0, 0, 1});
        text.insert(text.end(), unit.begin(), unit.end());
    }
    return text;
}

size_t Take(ParameterSets *sets, const std::vector<Bytes> &units)
{
    const Bytes text = Text(units);
    return sets->Take(text.data(), text.size());
}

bool Contradict(const ParameterSets &sets, const std::vector<Bytes> &units)
{
    const Bytes text = Text(units);
    return sets.ContradictedBy(text.data(), text.size());
}

TEST(ParameterSetsTest, TheNewestOfEachIdIsKept)
{
    ParameterSets sets;
    EXPECT_EQ(Take(&sets, {kSps0, kPps0, kPps1, kSlice}), 3U);
    EXPECT_EQ(Take(&sets, {kOtherSps0, kSlice}), 1U);
    EXPECT_EQ(Take(&sets, {kPps30, kPps30}), 1U);
    EXPECT_EQ(Take(&sets, {kSlice}), 0U);
    EXPECT_EQ(sets.Text(), Text({kOtherSps0, kPps0, kPps1, kPps30}));
    EXPECT_EQ(sets.Longest(), kSps0.size());
}

TEST(ParameterSetsTest, EachIdIsRead)
{
    // 010, 011, 00100, 00101, 00110, 00111, 0001000: 1 to 7.
    ParameterSets sets;
    EXPECT_EQ(Take(&sets, {{0x68, 0x51},
                           {0x68, 0x71},
                           {0x68, 0x21},
                           {0x68, 0x29},
                           {0x68, 0x31},
                           {0x68, 0x39},
                           {0x68, 0x11}}),
              7U);
    EXPECT_EQ(sets.Count(), 7U);
}

TEST(ParameterSetsTest, RepeatsAreNoContradiction)
{
    ParameterSets sets;
    Take(&sets, {kSps0, kPps0});
    EXPECT_FALSE(Contradict(sets, {kSps0, kPps0, kSlice}));
    EXPECT_FALSE(Contradict(sets, {kPps0, kSlice}));
    EXPECT_FALSE(Contradict(sets, {kSlice}));
    // A further one changes nothing for those who know the others.
    EXPECT_FALSE(Contradict(sets, {kSps0, kPps0, kPps1, kSlice}));
}

TEST(ParameterSetsTest, OtherBytesOfAnIdAreAContradiction)
{
    ParameterSets sets;
    Take(&sets, {kSps0, kPps0});
    EXPECT_TRUE(Contradict(sets, {kOtherSps0, kPps0, kSlice}));
    EXPECT_TRUE(Contradict(sets, {kSps0, kOtherPps0, kSlice}));
    EXPECT_TRUE(Contradict(sets, {kSps0, kSps1, kPps0, kSlice}));
}

TEST(ParameterSetsTest, ZerosBehindASetDoNotBelongToIt)
{
    ParameterSets sets;
    Take(&sets, {kSps0, kPps0});
    Bytes padded = kPps0;
    padded.insert(padded.end(), 3, 0);
    EXPECT_FALSE(Contradict(sets, {kSps0, padded}));
}

} // namespace
