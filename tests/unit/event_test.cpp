#include "foundation/event.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

/// Waits until the event was signalled, however often the wait returns early.
template <typename Condition> bool WaitUntil(KovaEvent *pEvent, Condition condition)
{
    const Clock::time_point end = Clock::now() + std::chrono::seconds(30);
    while (!condition()) {
        if (Clock::now() > end)
            return false;
        KovaEventWait(pEvent, 1000);
    }
    return true;
}

long long MillisecondsSince(Clock::time_point start)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

TEST(Event, ZeroedWordIsAnEventWithoutASignal)
{
    KovaEvent event;
    EXPECT_EQ(event.nWord.load(), 0U);
    const Clock::time_point start = Clock::now();
    for (int n = 0; n < 100 && MillisecondsSince(start) < 20; n++)
        KovaEventWait(&event, 25);
    EXPECT_GE(MillisecondsSince(start), 20);
}

TEST(Event, SignalBeforeTheWaitEndsItAtOnce)
{
    KovaEvent event;
    KovaEventSignal(&event);
    const Clock::time_point start = Clock::now();
    KovaEventWait(&event, 60000);
    EXPECT_LT(MillisecondsSince(start), 30000);
}

TEST(Event, ManySignalsAreOne)
{
    KovaEvent event;
    for (int n = 0; n < 5; n++)
        KovaEventSignal(&event);
    KovaEventWait(&event, 60000);
    const Clock::time_point start = Clock::now();
    for (int n = 0; n < 100 && MillisecondsSince(start) < 20; n++)
        KovaEventWait(&event, 25);
    EXPECT_GE(MillisecondsSince(start), 20);
}

TEST(Event, SignalWakesAWaiter)
{
    KovaEvent event;
    std::atomic<bool> bReady{false};
    std::thread signaller([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        bReady = true;
        KovaEventSignal(&event);
    });
    const Clock::time_point start = Clock::now();
    for (int n = 0; n < 100 && !bReady; n++)
        KovaEventWait(&event, 60000);
    EXPECT_TRUE(bReady);
    EXPECT_LT(MillisecondsSince(start), 30000);
    signaller.join();
}

/// Two threads hand a number back and forth: one lost signal, and both wait.
TEST(Event, NoSignalIsLost)
{
    constexpr int kTurns = 20000;
    KovaEvent ping;
    KovaEvent pong;
    std::atomic<int> nTurn{0};
    std::thread other([&] {
        for (int n = 1; n < kTurns; n += 2) {
            if (!WaitUntil(&ping, [&] { return nTurn.load() == n; }))
                return;
            nTurn = n + 1;
            KovaEventSignal(&pong);
        }
    });
    const Clock::time_point start = Clock::now();
    for (int n = 0; n < kTurns; n += 2) {
        nTurn = n + 1;
        KovaEventSignal(&ping);
        if (!WaitUntil(&pong, [&] { return nTurn.load() == n + 2; }))
            break;
    }
    other.join();
    EXPECT_EQ(nTurn.load(), kTurns);
    // A lost signal costs a whole wait of a second; one or two late ones may be
    // the machine's.
    EXPECT_LT(MillisecondsSince(start), 20000);
}

} // namespace
