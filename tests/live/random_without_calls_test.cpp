#include "foundation/random.h"

#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace {

constexpr size_t kSize = 32;

/// Lets getrandom(2) fail in this process from now on, as on a kernel without it.
bool TakeGetrandomAway()
{
    sock_filter steps[] = {
        {BPF_LD | BPF_W | BPF_ABS, 0, 0, offsetof(seccomp_data, nr)},
        {BPF_JMP | BPF_JEQ | BPF_K, 0, 1, SYS_getrandom},
        {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ERRNO | ENOSYS},
        {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW},
    };
    sock_fprog program = {4, steps};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program, 0, 0) == 0;
}

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

/// What a child tells when its system cannot take a call away.
constexpr int kNoFilter = 8;

void ExpectWithoutGetrandom(bool bDescriptors, int nExpected)
{
    const int nResult = ResultOfChild([bDescriptors] {
        if (!TakeGetrandomAway())
            return kNoFilter;
        return bDescriptors || TakeDescriptorsAway() ? FillTwice() : 9;
    });
    if (nResult == kNoFilter)
        GTEST_SKIP() << "no seccomp filters here (an emulator has none)";
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
