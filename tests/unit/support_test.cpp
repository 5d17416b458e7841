#include "tests/support/fake_clock.h"
#include "tests/support/stdout_capture.h"

#include <gtest/gtest.h>

#include <sys/time.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <string>
#include <thread>
#include <vector>

namespace {

using Texts = std::vector<std::string>;

TEST(StdoutCapture, TakesBufferedAndDirectOutput)
{
    KovaStdoutCapture capture;
    printf("one\n");
    EXPECT_EQ(capture.Text(), "one\n");
    ASSERT_EQ(write(STDOUT_FILENO, "two\n", 4), 4);
    printf("three");
    EXPECT_EQ(capture.Text(), "one\ntwo\nthree");
    EXPECT_EQ(capture.Lines(), (Texts{"one", "two", "three"}));
}

TEST(StdoutCapture, ForgetsWhenCleared)
{
    KovaStdoutCapture capture;
    printf("one\n");
    capture.Clear();
    EXPECT_EQ(capture.Text(), "");
    printf("two\n");
    EXPECT_EQ(capture.Text(), "two\n");
}

TEST(StdoutCapture, LeavesOutTheStampsOfMessages)
{
    KovaStdoutCapture capture;
    printf("2024/01/05 09:03:07 Name, text\nplain\n\n2024/01/05 09:03:07\n");
    EXPECT_EQ(capture.Messages(), (Texts{"Name, text", "plain", "", "2024/01/05 09:03:07"}));
}

TEST(StdoutCapture, HoldsMoreThanAPipe)
{
    KovaStdoutCapture capture;
    const std::string line(999, 'x');
    for (int n = 0; n < 500; n++)
        puts(line.c_str());
    EXPECT_EQ(capture.Text().size(), 500000U);
    EXPECT_EQ(capture.Lines(), Texts(500, line));
}

TEST(StdoutCapture, WaitsForAnotherThread)
{
    KovaStdoutCapture capture;
    EXPECT_FALSE(capture.WaitFor("late", 0));
    std::thread printer([] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        printf("late\n");
    });
    EXPECT_TRUE(capture.WaitFor("late\n", 10000));
    printer.join();
}

TEST(StdoutCapture, TakesNothingMoreAfterItsEnd)
{
    KovaStdoutCapture outer;
    {
        KovaStdoutCapture inner;
        printf("inner\n");
        inner.Stop();
        printf("outer\n");
        EXPECT_EQ(inner.Text(), "inner\n");
    }
    EXPECT_EQ(outer.Text(), "outer\n");
}

int64_t Microseconds()
{
    struct timeval now = {};
    EXPECT_EQ(gettimeofday(&now, nullptr), 0);
    return static_cast<int64_t>(now.tv_sec) * 1000000 + now.tv_usec;
}

TEST(FakeClock, StandsAndMoves)
{
    KovaFakeClock clock;
    clock.Fix(1234567890123456);
    EXPECT_EQ(Microseconds(), 1234567890123456);
    EXPECT_EQ(time(nullptr), 1234567890);
    struct timespec now = {};
    ASSERT_EQ(clock_gettime(CLOCK_REALTIME, &now), 0);
    EXPECT_EQ(now.tv_sec, 1234567890);
    EXPECT_EQ(now.tv_nsec, 123456000);
    clock.Advance(2000000);
    EXPECT_EQ(Microseconds(), 1234567892123456);
    clock.Advance(-3000000);
    time_t tNow = 0;
    EXPECT_EQ(time(&tNow), 1234567889);
    EXPECT_EQ(tNow, 1234567889);
    EXPECT_EQ(clock.Now(), 1234567889123456);
}

TEST(FakeClock, RunsFromAGivenTime)
{
    KovaFakeClock clock;
    clock.StartAt(5000000);
    const int64_t nFirst = Microseconds();
    EXPECT_GE(nFirst, 5000000);
    EXPECT_LT(nFirst, 65000000);
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    EXPECT_GT(Microseconds(), nFirst);
    clock.Advance(3600000000);
    EXPECT_GE(Microseconds(), 3605000000);
}

TEST(FakeClock, FailsOnRequest)
{
    KovaFakeClock clock;
    clock.Fail(true);
    struct timeval now = {};
    EXPECT_EQ(gettimeofday(&now, nullptr), -1);
    EXPECT_EQ(time(nullptr), -1);
    clock.Fail(false);
    EXPECT_EQ(gettimeofday(&now, nullptr), 0);
}

TEST(FakeClock, GivesTheRealTimeBack)
{
    {
        KovaFakeClock clock;
        clock.Fix(1);
        clock.Fail(true);
    }
    EXPECT_GT(Microseconds(), 1700000000000000);
}

} // namespace
