#include "foundation/clock.h"
#include "tests/support/fake_clock.h"

#include <gtest/gtest.h>

namespace {

uint64_t TimeAt(int64_t nMicroseconds)
{
    KovaFakeClock clock;
    clock.Fix(nMicroseconds);
    uint64_t nTime = 0xABCD;
    EXPECT_EQ(RtspGetTime(&nTime), 1);
    return nTime;
}

constexpr int64_t kWrap = int64_t{1} << 32;

TEST(Clock, IsTheWallClockModulo32Bits)
{
    EXPECT_EQ(TimeAt(0), 0U);
    EXPECT_EQ(TimeAt(1234567), 1234567U);
    EXPECT_EQ(TimeAt(kWrap - 1 - kWrap / 2), 0x7FFFFFFFU);
    EXPECT_EQ(TimeAt(kWrap), 0U);
    EXPECT_EQ(TimeAt(400000 * kWrap + 77), 77U);
    // Ten minutes after 2026-11-20 12:00:00.25
    EXPECT_EQ(TimeAt(1795176600250000), 1795176600250000ULL % kWrap);
}

TEST(Clock, CarriesItsTopBitIntoTheUpperHalf)
{
    EXPECT_EQ(TimeAt(kWrap / 2), 0xFFFFFFFF80000000U);
    EXPECT_EQ(TimeAt(kWrap - 1), 0xFFFFFFFFFFFFFFFFU);
    EXPECT_EQ(TimeAt(400000 * kWrap + kWrap / 2 + 5), 0xFFFFFFFF80000005U);
    // 2026-11-20 12:00:00.25
    EXPECT_EQ(TimeAt(1795176000250000), 1795176000250000ULL % kWrap + 0xFFFFFFFF00000000U);
}

TEST(Clock, GivesNothingForANullPointer)
{
    EXPECT_EQ(RtspGetTime(nullptr), 0);
}

TEST(Clock, LeavesTheTimeUntouchedOnFailure)
{
    KovaFakeClock clock;
    clock.Fail(true);
    uint64_t nTime = 0xABCD;
    EXPECT_EQ(RtspGetTime(&nTime), 0);
    EXPECT_EQ(nTime, 0xABCDU);
    EXPECT_EQ(KovaClockMilliseconds(), 0U);
}

TEST(Clock, MillisecondsAreDividedWithoutSign)
{
    KovaFakeClock clock;
    clock.Fix(1999999);
    EXPECT_EQ(KovaClockMilliseconds(), 1999U);
    clock.Fix(kWrap / 2);
    EXPECT_EQ(KovaClockMilliseconds(), 18446744071562067U);
}

TEST(Clock, MillisecondsAreWholeThousandsWithAndWithoutTheTopBit)
{
    KovaFakeClock clock;
    for (const int64_t nNear : {int64_t{0}, int64_t{1000}, kWrap / 2, kWrap - 1000, kWrap}) {
        for (int64_t nAway = -1001; nAway <= 1001; nAway++) {
            const int64_t nMicroseconds = nNear + nAway;
            if (nMicroseconds < 0)
                continue;
            clock.Fix(nMicroseconds);
            uint64_t nExtended = nMicroseconds % kWrap;
            if (nExtended >= uint64_t{kWrap / 2})
                nExtended += 0xFFFFFFFF00000000U;
            ASSERT_EQ(KovaClockMilliseconds(), nExtended / 1000) << nMicroseconds;
        }
    }
}

TEST(Clock, SecondsAreTheLow32BitsOfTheWallClock)
{
    KovaFakeClock clock;
    clock.Fix(1795176000999999);
    EXPECT_EQ(KovaClockSeconds(), 1795176000);
    clock.Fix((kWrap / 2 + 1) * 1000000);
    EXPECT_EQ(KovaClockSeconds(), INT32_MIN + 1);
}

TEST(Clock, SecondsBetweenAreRightAcrossTheSignChange)
{
    EXPECT_EQ(KovaClockSecondsBetween(100, 160), 60);
    EXPECT_EQ(KovaClockSecondsBetween(160, 100), -60);
    EXPECT_EQ(KovaClockSecondsBetween(INT32_MAX, INT32_MIN), 1);
    EXPECT_EQ(KovaClockSecondsBetween(INT32_MIN, INT32_MAX), -1);
    EXPECT_EQ(KovaClockSecondsBetween(0, INT32_MAX), INT32_MAX);
}

TEST(Clock, SecondsAfterWrapAtTheLimit)
{
    EXPECT_EQ(KovaClockSecondsAfter(1795176000, 90), 1795176090);
    EXPECT_EQ(KovaClockSecondsAfter(INT32_MAX, 1), INT32_MIN);
    EXPECT_EQ(KovaClockSecondsAfter(-1, 90), 89);
}

} // namespace
