#include "out_rate.h"

#include <gtest/gtest.h>

namespace {

using kovastream::OutRate;

const kovastream::SlidingRate::Time kBegin = kovastream::SlidingRate::Time(std::chrono::hours(7));

struct OutRateTest : testing::Test {
    OutRate rate;

    double Take(int second, uint64_t bytes, int clients, uint32_t told)
    {
        return rate.Take(told, clients, bytes, kBegin + std::chrono::seconds(second));
    }
};

TEST_F(OutRateTest, KilobitIsAThousandBits)
{
    Take(0, 0, 2, 0);
    EXPECT_NEAR(Take(1, 1000000, 2, 10000), 10240, 0.001);
}

TEST_F(OutRateTest, NoMoreThanWhatCameInToEachPlayer)
{
    // 125000 bytes a second are a megabit.
    Take(0, 0, 0, 0);
    EXPECT_NEAR(Take(1, 125000, 4, 36000), 4400, 0.001);
    EXPECT_NEAR(Take(2, 250000, 4, 4000), 4096, 0.001);
    EXPECT_NEAR(Take(3, 375000, 1, 4000), 1100, 0.001);
}

TEST_F(OutRateTest, NothingWithoutPlayers)
{
    Take(0, 0, 3, 100);
    EXPECT_EQ(Take(1, 125000, 0, 3000), 0);
    EXPECT_EQ(Take(2, 250000, -1, 3000), 0);
}

TEST_F(OutRateTest, ComparesWithTheInputOfTheLastTenSeconds)
{
    for (int second = 0; second <= 10; second++)
        Take(second, second == 0 ? 0 : 1250000, 1, 0);
    EXPECT_NEAR(Take(10, 1250000, 1, 5000), 1100, 0.001);
    // What came in the first second is more than ten seconds ago.
    EXPECT_NEAR(Take(11, 1250000, 1, 5000), 0, 0.001);
}

TEST_F(OutRateTest, FirstLookIsTheServersOwn)
{
    EXPECT_NEAR(Take(0, 125000, 1, 1000), 1024, 0.001);
}

} // namespace
