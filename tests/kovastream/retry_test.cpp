#include "retry.h"

#include <gtest/gtest.h>

namespace {

using kovastream::Retry;
using Pauses = std::vector<int64_t>;

Pauses Take(Retry *retry, int count)
{
    Pauses pauses;
    while (count-- > 0)
        pauses.push_back(retry->Pause().count());
    return pauses;
}

TEST(RetryTest, PausesGrowToTenSeconds)
{
    Retry retry;
    EXPECT_EQ(Take(&retry, 7), (Pauses{1, 2, 4, 8, 10, 10, 10}));
    retry.Succeeded();
    EXPECT_EQ(Take(&retry, 2), (Pauses{1, 2}));
}

TEST(RetryTest, SameFailureIsNewsOnce)
{
    Retry retry;
    EXPECT_TRUE(retry.IsNews("gone"));
    EXPECT_FALSE(retry.IsNews("gone"));
    EXPECT_TRUE(retry.IsNews("broken"));
    EXPECT_TRUE(retry.IsNews("gone"));
    retry.Succeeded();
    EXPECT_FALSE(retry.IsNews("gone"));
    retry.Forget();
    EXPECT_TRUE(retry.IsNews("gone"));
}

} // namespace
