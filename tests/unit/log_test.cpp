#include "foundation/log.h"
#include "tests/support/fake_clock.h"
#include "tests/support/stdout_capture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace {

/// Read before any test could change it.
const uint32_t kInitialLevel = Rtsp_DebugLevel.load();

// 2024-01-05 09:03:07 UTC
constexpr int64_t kMoment = 1704445387;

/// A fixed local time, and the level put back in the end.
struct LogTest : testing::Test {
    KovaFakeClock clock;
    KovaStdoutCapture capture;

    LogTest()
    {
        SetZone("UTC0");
        clock.Fix(kMoment * 1000000 + 999999);
        RTSP_SetLogLevel(2);
    }

    ~LogTest() override
    {
        unsetenv("TZ");
        tzset();
        RTSP_SetLogLevel(kInitialLevel);
    }

    static void SetZone(const char *szZone)
    {
        setenv("TZ", szZone, 1);
        tzset();
    }
};

TEST_F(LogTest, LevelIsInitially2)
{
    EXPECT_EQ(kInitialLevel, 2U);
}

TEST_F(LogTest, SetLogLevelStoresTheLevel)
{
    RTSP_SetLogLevel(5);
    EXPECT_EQ(Rtsp_DebugLevel.load(), 5U);
    RTSP_SetLogLevel(0xFFFFFFFF);
    EXPECT_EQ(Rtsp_DebugLevel.load(), 0xFFFFFFFFU);
    RTSP_SetLogLevel(0);
    EXPECT_EQ(Rtsp_DebugLevel.load(), 0U);
}

TEST_F(LogTest, StampsWithTheLocalTime)
{
    TimeLog(1, "%s, port %d\n", "Name", 554);
    EXPECT_EQ(capture.Text(), "2024/01/05 09:03:07 Name, port 554\n");
}

TEST_F(LogTest, StampFollowsTheTimeZone)
{
    SetZone("XXX-9:30");
    TimeLog(1, "a\n");
    SetZone("YYY10");
    TimeLog(1, "b\n");
    EXPECT_EQ(capture.Text(), "2024/01/05 18:33:07 a\n2024/01/04 23:03:07 b\n");
}

TEST_F(LogTest, PrintsLevelsUpToTheSetOne)
{
    TimeLog(0, "0");
    TimeLog(1, "1");
    TimeLog(2, "2");
    TimeLog(3, "3");
    TimeLog(4, "4");
    TimeLog(0x80000001, "5");
    EXPECT_EQ(capture.Text(), "2024/01/05 09:03:07 02024/01/05 09:03:07 12024/01/05 09:03:07 2");
}

TEST_F(LogTest, ComparesLevelsWithoutSign)
{
    RTSP_SetLogLevel(0xFFFFFFFF);
    TimeLog(0xFFFFFFFE, "high\n");
    RTSP_SetLogLevel(0);
    TimeLog(1, "one\n");
    TimeLog(0, "zero\n");
    EXPECT_EQ(capture.Text(), "2024/01/05 09:03:07 high\n2024/01/05 09:03:07 zero\n");
}

TEST_F(LogTest, AddsNoLineEnd)
{
    TimeLog(1, "a");
    EXPECT_EQ(capture.Text(), "2024/01/05 09:03:07 a");
}

TEST_F(LogTest, DoubledPercentOfTheMessageIsOne)
{
    TimeLog(1, "%s\n", "100%% sure");
    TimeLog(1, "%%%%|%%\n");
    TimeLog(1, "%s\n", "%%%%%");
    EXPECT_EQ(capture.Text(), "2024/01/05 09:03:07 100% sure\n"
                              "2024/01/05 09:03:07 %|%\n"
                              "2024/01/05 09:03:07 %%%\n");
}

TEST_F(LogTest, PercentAtTheEndOfTheMessageStays)
{
    TimeLog(1, "%s", "100%");
    EXPECT_EQ(capture.Text(), "2024/01/05 09:03:07 100%");
}

TEST_F(LogTest, TextIsNeverAFormat)
{
    TimeLog(1, "%s, URI %s\n", "Name", "%s%n%d%5$s%99999d%");
    EXPECT_EQ(capture.Text(), "2024/01/05 09:03:07 Name, URI %s%n%d%5$s%99999d%\n");
}

TEST_F(LogTest, LongLinesAreCut)
{
    const std::string text(20000, 'x');
    TimeLog(1, "%s\n", text.c_str());
    EXPECT_EQ(capture.Text(), "2024/01/05 09:03:07 " + std::string(8191 - 20, 'x'));
    capture.Clear();
    TimeLog(1, "%s\n", text.substr(0, 8191 - 21).c_str());
    EXPECT_EQ(capture.Text(), "2024/01/05 09:03:07 " + std::string(8191 - 21, 'x') + "\n");
}

TEST_F(LogTest, LinesOfManyThreadsStayWhole)
{
    constexpr int kThreads = 4;
    constexpr int kLines = 250;
    std::vector<std::thread> threads;
    for (int nThread = 0; nThread < kThreads; nThread++)
        threads.emplace_back([nThread] {
            const std::string text(500, static_cast<char>('a' + nThread));
            for (int n = 0; n < kLines; n++)
                TimeLog(1, "%d %s\n", n, text.c_str());
        });
    for (std::thread &thread : threads)
        thread.join();
    std::multiset<std::string> expected;
    for (int nThread = 0; nThread < kThreads; nThread++)
        for (int n = 0; n < kLines; n++)
            expected.insert("2024/01/05 09:03:07 " + std::to_string(n) + " " +
                            std::string(500, static_cast<char>('a' + nThread)));
    const std::vector<std::string> lines = capture.Lines();
    EXPECT_TRUE(std::multiset<std::string>(lines.begin(), lines.end()) == expected);
}

} // namespace
