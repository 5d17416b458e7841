#include "foundation/log.h"
#include "sleep_shim.h"
#include "tests/support/delivery.h"
#include "tests/support/stdout_capture.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

/// Sending threads with little to do.
namespace {

using Clock = std::chrono::steady_clock;

struct IdleSending : testing::Test {
    KovaStdoutCapture capture;
    KovaDelivery delivery;
};

TEST_F(IdleSending, PacketWithoutPlayersIsHeldInFewSleeps)
{
    ASSERT_TRUE(delivery.Send({1, 0, 100})); // the schedule's origin
    const KovaSleepCounter sleeps;
    ASSERT_TRUE(delivery.Send({2, 0, 140}));
    EXPECT_GT(sleeps.Count(), 0);
    EXPECT_LT(sleeps.Count(), 40) << "for a second";
}

TEST_F(IdleSending, StopThatComesDuringThePayEndsTheThreadAtOnce)
{
    constexpr int kWaiting = 200;
    for (int nClient = 0; nClient < kWaiting; nClient++)
        KovaRtpSendGroupAddRtpClient(
            delivery.Group(), KovaRtpClientCreate("1", 0, 0, 0, 0, {}, 1, nullptr, 0, 1, 0, 0));
    const Clock::time_point begin = Clock::now();
    constexpr int kTurns = 15;
    for (uint16_t nTurn = 0; nTurn < kTurns; nTurn++) {
        delivery.Queue({nTurn});
        ASSERT_EQ(KovaRtpSendGroupStart(delivery.Group()), 0);
        std::this_thread::sleep_for(std::chrono::milliseconds(50)); // a quarter of the pay
        ASSERT_EQ(KovaRtpSendGroupStop(delivery.Group()), 0);
    }
    // A thread that went to wait for work after all would take a second each time.
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(10));
}

} // namespace
