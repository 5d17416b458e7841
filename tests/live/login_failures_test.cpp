#include "live/rtsp/login_failures.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

constexpr uint64_t kStart = 5000000000;
constexpr uint32_t kGuesser = 0x0A000001;

class LoginFailures : public testing::Test {
protected:
    uint32_t Add(uint32_t nAddress, uint64_t nAfter)
    {
        return KovaLoginFailuresNote(m_pFailures.get(), nAddress, kStart + nAfter, false);
    }
    uint32_t Wait(uint32_t nAddress, uint64_t nAfter)
    {
        return KovaLoginFailuresWait(m_pFailures.get(), nAddress, kStart + nAfter);
    }

    std::unique_ptr<KovaLoginFailures> m_pFailures{new KovaLoginFailures()};
};

TEST_F(LoginFailures, EachOneCostsMoreUpToTwoSeconds)
{
    EXPECT_EQ(Wait(kGuesser, 0), 0U);
    EXPECT_EQ(Add(kGuesser, 0), 0U);
    EXPECT_EQ(Add(kGuesser, 0), 250U);
    EXPECT_EQ(Add(kGuesser, 250000), 500U);
    EXPECT_EQ(Add(kGuesser, 750000), 1000U);
    EXPECT_EQ(Add(kGuesser, 1750000), 2000U);
    EXPECT_EQ(Add(kGuesser, 3750000), 2000U);
    EXPECT_EQ(Add(kGuesser, 5750000), 2000U);
}

TEST_F(LoginFailures, TheWaitEndsOnTime)
{
    Add(kGuesser, 0);
    Add(kGuesser, 0);
    EXPECT_EQ(Wait(kGuesser, 0), 250U);
    EXPECT_EQ(Wait(kGuesser, 1), 250U) << "never told too short";
    EXPECT_EQ(Wait(kGuesser, 1001), 249U);
    EXPECT_EQ(Wait(kGuesser, 249999), 1U);
    EXPECT_EQ(Wait(kGuesser, 250000), 0U);
}

TEST_F(LoginFailures, AddressesDoNotCountForEachOther)
{
    for (int nCount = 0; nCount < 4; nCount++)
        Add(kGuesser, 0);
    EXPECT_EQ(Wait(kGuesser, 0), 1000U);
    EXPECT_EQ(Wait(kGuesser + 1, 0), 0U);
    EXPECT_EQ(Add(kGuesser + 1, 0), 0U);
}

TEST_F(LoginFailures, ARightAnswerClears)
{
    for (int nCount = 0; nCount < 4; nCount++)
        Add(kGuesser, 0);
    EXPECT_EQ(KovaLoginFailuresNote(m_pFailures.get(), kGuesser, kStart, true), 0U);
    EXPECT_EQ(Wait(kGuesser, 0), 0U);
    EXPECT_EQ(Add(kGuesser, 0), 0U);
    EXPECT_EQ(KovaLoginFailuresNote(m_pFailures.get(), kGuesser + 1, kStart, true), 0U);
    EXPECT_EQ(Add(kGuesser, 0), 250U);
}

TEST_F(LoginFailures, OneIsForgottenEachHalfMinute)
{
    for (int nCount = 0; nCount < 4; nCount++)
        Add(kGuesser, 0);
    EXPECT_EQ(Add(kGuesser, kLoginFailureForgotten - 1), 2000U);
    // Five until now; two are forgotten after a minute, and this is the fourth.
    EXPECT_EQ(Add(kGuesser, 3 * kLoginFailureForgotten), 1000U);
    EXPECT_EQ(Add(kGuesser, 1000 * kLoginFailureForgotten), 0U);
}

TEST_F(LoginFailures, AClockThatIsALittleBehindDoesNotHarm)
{
    Add(kGuesser, 10);
    EXPECT_EQ(Add(kGuesser, 0), 250U);
}

TEST_F(LoginFailures, AFloodOfAddressesTakesTheOldestPlaces)
{
    for (uint32_t nIndex = 0; nIndex < kLoginFailureSlots; nIndex++)
        Add(nIndex, nIndex);
    Add(0, 1000);
    for (uint32_t nIndex = 0; nIndex < kLoginFailureSlots - 1; nIndex++)
        Add(100000 + nIndex, 2000 + nIndex);
    EXPECT_EQ(Add(0, 5000), 500U) << "the last one to fail before them is still known";
    EXPECT_EQ(Add(1, 5000), 0U) << "others are not";
    for (uint32_t nIndex = 0; nIndex < 100000; nIndex++)
        Add(nIndex * 7919, 10000 + nIndex);
    EXPECT_EQ(Add(kGuesser, 200000), 0U);
    EXPECT_EQ(Add(kGuesser, 200000), 250U);
}

TEST_F(LoginFailures, AddressZeroIsAnAddress)
{
    EXPECT_EQ(Add(0, 0), 0U);
    EXPECT_EQ(Add(0, 0), 250U);
    EXPECT_EQ(Wait(0, 0), 250U);
}

} // namespace
