#include "live/engine/wake.h"
#include "tests/support/c_calls.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>

// The descriptors of a wake, which are one or two.

namespace {

std::atomic<int> g_nClosed{0};
std::atomic<int> g_nFailed{0};

int CountClose(int nDescriptor)
{
    const int nResult = __real_close(nDescriptor);
    g_nClosed++;
    g_nFailed += nResult != 0 ? 1 : 0;
    return nResult;
}

struct LiveWakeEnds : testing::Test {
    ~LiveWakeEnds() override
    {
        KovaReplaceCall<__real_eventfd>(nullptr);
        KovaReplaceCall<__real_close>(nullptr);
    }
    static int Close(const KovaWake &wake)
    {
        KovaWake ends = wake;
        g_nClosed = 0;
        g_nFailed = 0;
        KovaReplaceCall<__real_close>(CountClose);
        KovaWakeClose(&ends);
        KovaReplaceCall<__real_close>(nullptr);
        EXPECT_EQ(g_nFailed, 0);
        return g_nClosed;
    }
};

} // namespace

TEST_F(LiveWakeEnds, TheOneIsClosedOnce)
{
    KovaWake wake = {};
    ASSERT_TRUE(KovaWakeOpen(&wake));
    ASSERT_EQ(wake.nReadEnd, wake.nWriteEnd);
    EXPECT_EQ(Close(wake), 1);
}

TEST_F(LiveWakeEnds, TheTwoOfAPipeAreBothClosed)
{
    KovaReplaceCall<__real_eventfd>([](unsigned, int) {
        errno = ENOSYS;
        return -1;
    });
    KovaWake wake = {};
    ASSERT_TRUE(KovaWakeOpen(&wake));
    ASSERT_NE(wake.nReadEnd, wake.nWriteEnd);
    EXPECT_EQ(Close(wake), 2);
}
