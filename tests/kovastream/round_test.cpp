#include "round.h"

#include <gtest/gtest.h>

namespace {

using kovastream::IsCutOff;

constexpr int64_t kSecond = 1000000;

TEST(RoundTest, FileMayLackHalfASecondAndATenth)
{
    EXPECT_FALSE(IsCutOff(8500000, 10 * kSecond));
    EXPECT_TRUE(IsCutOff(8499999, 10 * kSecond));
    EXPECT_FALSE(IsCutOff(539500000, 600 * kSecond));
    EXPECT_TRUE(IsCutOff(539499999, 600 * kSecond));
}

TEST(RoundTest, ShortFileMayLackHalfASecond)
{
    EXPECT_FALSE(IsCutOff(0, kSecond / 2));
    EXPECT_TRUE(IsCutOff(399999, kSecond));
    EXPECT_FALSE(IsCutOff(400000, kSecond));
}

TEST(RoundTest, FileThatIsAsLongAsItSaysOrLongerIsWhole)
{
    EXPECT_FALSE(IsCutOff(10 * kSecond, 10 * kSecond));
    EXPECT_FALSE(IsCutOff(20 * kSecond, 10 * kSecond));
}

TEST(RoundTest, FileThatDoesNotSayIsWhole)
{
    EXPECT_FALSE(IsCutOff(0, AV_NOPTS_VALUE));
    EXPECT_FALSE(IsCutOff(kSecond, AV_NOPTS_VALUE));
}

} // namespace
