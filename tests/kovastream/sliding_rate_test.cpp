#include "sliding_rate.h"

#include <gtest/gtest.h>

namespace {

using kovastream::SlidingRate;

const SlidingRate::Time kBegin = SlidingRate::Time(std::chrono::hours(7));

struct SlidingRateTest : testing::Test {
    SlidingRate rate;

    double Take(int second, uint64_t bytes)
    {
        return rate.Take(bytes, kBegin + std::chrono::seconds(second));
    }
};

TEST_F(SlidingRateTest, KilobitIsAThousandBits)
{
    EXPECT_EQ(Take(0, 5000000), 0);
    EXPECT_NEAR(Take(2, 5250000), 1000, 0.001);
}

TEST_F(SlidingRateTest, MeanOfTenSeconds)
{
    for (int second = 0; second <= 10; second++)
        Take(second, second == 0 ? 0 : 1250000);
    EXPECT_NEAR(Take(10, 1250000), 1000, 0.001);
    // What came in the first second is more than ten seconds ago.
    EXPECT_EQ(Take(11, 1250000), 0);
}

} // namespace
