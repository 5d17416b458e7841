#include "classic/sdp/sdp_generator.h"
#include "foundation/calendar.h"
#include "foundation/log.h"
#include "tests/support/stdout_capture.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <thread>

namespace {

TEST(Calendar, TellsTheDateInUtcWhateverTheZone)
{
    struct tm utc = {};
    KovaCalendarUtc(2147483647, &utc);
    EXPECT_EQ(utc.tm_year, 138);
    EXPECT_EQ(utc.tm_mon, 0);
    EXPECT_EQ(utc.tm_mday, 19);
    EXPECT_EQ(utc.tm_hour, 3);
    EXPECT_EQ(utc.tm_min, 14);
    EXPECT_EQ(utc.tm_sec, 7);
}

/// Nothing orders the two threads, so a thread sanitizer sees what they share
/// without a lock. Run first in its process: the first call sets the zone up.
TEST(Calendar, LogLinesAndDescriptionsShareTheZoneUnderALock)
{
    KovaStdoutCapture capture;
    KovaRtspSdpGenerator *pGenerator = KovaRtspSdpGeneratorCreate("live");
    char szText[kSdpTextSize] = {};
    int32_t nLength = 0;
    std::atomic<bool> bDescribed{false};
    std::thread describing([&] {
        KovaRtspGenerateSdpGetSdpInfo(pGenerator, szText, &nLength);
        bDescribed.store(true, std::memory_order_relaxed);
    });
    std::thread logging([&] {
        for (int i = 0; i < 10000 && !bDescribed.load(std::memory_order_relaxed); i++)
            usleep(1000);
        TimeLog(kLogFailure, "%s\n", "a line");
    });
    describing.join();
    logging.join();
    EXPECT_GT(nLength, 0);
    EXPECT_EQ(capture.Messages(), std::vector<std::string>{"a line"});
    KovaRtspSdpGeneratorDestroy(pGenerator);
}

} // namespace
