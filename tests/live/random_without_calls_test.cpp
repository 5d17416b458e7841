#include "foundation/random.h"
#include "tests/live/missing_call.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

namespace {

constexpr size_t kSize = 32;

constexpr KovaMissingCall kGetrandom = {"getrandom", SYS_getrandom, kAnyLevel, ENOSYS};

bool TakeDescriptorsAway()
{
    const rlimit none = {0, 0};
    return setrlimit(RLIMIT_NOFILE, &none) == 0;
}

/// Fills two buffers in a child process: 0 when both came from the system, 1 when neither did;
/// anything else is wrong.
int FillTwice()
{
    uint8_t first[kSize] = {};
    uint8_t second[kSize] = {};
    const bool bFirst = KovaRandomFill(first, kSize);
    const bool bSecond = KovaRandomFill(second, kSize);
    if (bFirst != bSecond || memcmp(first, second, kSize) == 0)
        return 2;
    const uint8_t zeros[8] = {};
    if (memcmp(first, zeros, 8) == 0 || memcmp(first + 24, zeros, 8) == 0)
        return 3;
    return bFirst ? 0 : 1;
}

template <typename Body> int ResultOfChild(Body body)
{
    const pid_t nChild = fork();
    if (nChild == 0)
        _exit(body());
    int nStatus = -1;
    waitpid(nChild, &nStatus, 0);
    return WIFEXITED(nStatus) ? WEXITSTATUS(nStatus) : -1;
}

void ExpectWithoutGetrandom(bool bDescriptors, int nExpected)
{
    const int nResult = ResultOfChild([bDescriptors] {
        if (!KovaTakeCallAway(kGetrandom))
            return 8;
        return bDescriptors || TakeDescriptorsAway() ? FillTwice() : 9;
    });
    EXPECT_EQ(nResult, nExpected);
}

TEST(RandomWithoutCalls, IsTheSystemsAlsoWithoutTheCall)
{
    ExpectWithoutGetrandom(true, 0);
}

TEST(RandomWithoutCalls, IsAMixThatDiffersWhenTheSystemHasNone)
{
    ExpectWithoutGetrandom(false, 1);
}

} // namespace
