#include "rtp/udp_batch.h"
#include "tests/live/live_host.h"

#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>

// Boards run kernels that lack this and that.

namespace {

constexpr int kNoFilter = 8;
constexpr uint32_t kAnyLevel = 0xFFFFFFFF;

struct Missing {
    const char *szName;
    long nCall;
    uint32_t nLevel; ///< of getsockopt() and setsockopt(): only those of it
    int nError;
};

/// Lets a call fail in this process from now on, as on a kernel without it.
bool TakeAway(const Missing &missing)
{
    const uint32_t nCall = static_cast<uint32_t>(missing.nCall);
    const uint32_t nError = static_cast<uint32_t>(missing.nError);
    const bool bAny = missing.nLevel == kAnyLevel;
    sock_filter steps[] = {
        {BPF_LD | BPF_W | BPF_ABS, 0, 0, offsetof(seccomp_data, nr)},
        {BPF_JMP | BPF_JEQ | BPF_K, 0, 3, nCall},
        {BPF_LD | BPF_W | BPF_ABS, 0, 0, offsetof(seccomp_data, args) + sizeof(uint64_t)},
        {static_cast<uint16_t>(BPF_JMP | (bAny ? BPF_JGE : BPF_JEQ) | BPF_K), 0, 1,
         bAny ? 0 : missing.nLevel},
        {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ERRNO | nError},
        {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW},
    };
    sock_fprog program = {6, steps};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program, 0, 0) == 0;
}

/// Serves two players: 0 when all went well.
int Serve()
{
    KovaLiveHost host;
    KovaLiveStream *pStream = host.AddStream("cam");
    KovaLiveTrack *pVideo = KovaLiveHost::AddVideo(pStream);
    KovaLiveClient clients[3];
    if (!KovaLivePlayTcp(&clients[0], host) || !KovaLivePlayUdp(&clients[1], host) ||
        !KovaLivePlayUdp(&clients[2], host))
        return 1;
    for (int nPicture = 0; nPicture < 20; nPicture++) {
        KovaLivePushText(pVideo, KovaLiveKey(5000 + 700 * static_cast<size_t>(nPicture)),
                         nPicture * 40000);
        for (KovaLiveClient &client : clients) {
            if (KovaLiveNextUnit(&client, 1).empty())
                return 2;
        }
    }
    if (clients[0].Teardown("cam").nStatus != 200)
        return 3;
    clients[1].Close();
    return host.Close() < 5000 ? 0 : 4;
}

class LiveMissingCalls : public testing::TestWithParam<Missing> {};

} // namespace

TEST_P(LiveMissingCalls, EverybodyIsServed)
{
    const pid_t nChild = fork();
    if (nChild == 0) {
        KovaUdpBatchForget();
        _exit(TakeAway(GetParam()) ? Serve() : kNoFilter);
    }
    int nStatus = -1;
    ASSERT_EQ(waitpid(nChild, &nStatus, 0), nChild);
    ASSERT_TRUE(WIFEXITED(nStatus));
    if (WEXITSTATUS(nStatus) == kNoFilter)
        GTEST_SKIP() << "no seccomp filters here (an emulator has none)";
    EXPECT_EQ(WEXITSTATUS(nStatus), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Kernel, LiveMissingCalls,
    testing::Values(Missing{"epoll", SYS_epoll_create1, kAnyLevel, ENOSYS},
                    Missing{"eventfd", SYS_eventfd2, kAnyLevel, ENOSYS},
                    Missing{"sendmmsg", SYS_sendmmsg, kAnyLevel, ENOSYS},
                    Missing{"getrandom", SYS_getrandom, kAnyLevel, ENOSYS},
                    Missing{"accept4", SYS_accept4, kAnyLevel, ENOSYS},
                    Missing{"prctl", SYS_prctl, kAnyLevel, EINVAL},
                    Missing{"udp_segment", SYS_getsockopt, IPPROTO_UDP, ENOPROTOOPT},
                    Missing{"udp_segment_set", SYS_setsockopt, IPPROTO_UDP, ENOPROTOOPT},
                    Missing{"tcp_options", SYS_setsockopt, IPPROTO_TCP, ENOPROTOOPT}),
    [](const auto &kind) { return std::string(kind.param.szName); });
