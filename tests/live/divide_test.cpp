#include "foundation/divide.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace {

constexpr uint64_t kValues[] = {0,
                                1,
                                999999,
                                1000000,
                                0x7fffffff,
                                0x80000000,
                                0xffffffff,
                                0x100000000,
                                0x123456789abcdef0,
                                0x7fffffffffffffff,
                                0x8000000000000000,
                                0xfffffffffffffffe,
                                0xffffffffffffffff};
constexpr uint32_t kDivisors[] = {
    1,     2,      3,          7,          1000,       8000,    44100,      65536,
    90000, 146097, 0x7fffffff, 0x80000000, 0x80000001, 1000000, 0xfffffffe, 0xffffffff};

TEST(Divide, ByWordsGivesQuotientAndRest)
{
    for (const uint64_t value : kValues) {
        for (const uint32_t divisor : kDivisors) {
            uint32_t rest = 0;
            EXPECT_EQ(KovaDivideByWords(value, divisor, &rest), value / divisor)
                << value << " / " << divisor;
            EXPECT_EQ(rest, value % divisor) << value << " % " << divisor;
            EXPECT_EQ(KovaDivideByWords(value, divisor, nullptr), value / divisor);
        }
    }
}

TEST(Divide, ByWordsIsRightForManyNumbers)
{
    uint64_t value = 1;
    for (int round = 0; round < 20000; round++) {
        value = value * 6364136223846793005U + 1442695040888963407U;
        const uint32_t divisor = static_cast<uint32_t>(value >> 32 >> round % 32) | 1;
        uint32_t rest = 0;
        ASSERT_EQ(KovaDivideByWords(value, divisor, &rest), value / divisor)
            << value << " / " << divisor;
        ASSERT_EQ(rest, value % divisor) << value << " % " << divisor;
    }
}

TEST(Divide, DownRoundsNegativeValuesDown)
{
    for (const uint64_t pattern : kValues) {
        const int64_t value = static_cast<int64_t>(pattern);
        for (const uint32_t divisor : kDivisors) {
            uint32_t rest = 0;
            const int64_t quotient = KovaDivideDown(value, divisor, &rest);
            EXPECT_LT(rest, divisor) << value << " / " << divisor;
            // Modulo 2^64, as the product of the lowest value may lie below it.
            EXPECT_EQ(static_cast<uint64_t>(quotient) * divisor + rest, pattern)
                << value << " / " << divisor;
            EXPECT_EQ(quotient < 0, value < 0) << value << " / " << divisor;
        }
    }
}

} // namespace
