#include "rtp/udp_batch.h"
#include "tests/live/live_host.h"
#include "tests/live/missing_call.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

// Boards run kernels that lack this and that.

namespace {

constexpr int kNotTaken = 8;

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

class LiveMissingCalls : public testing::TestWithParam<KovaMissingCall> {};

} // namespace

TEST_P(LiveMissingCalls, EverybodyIsServed)
{
    const pid_t nChild = fork();
    if (nChild == 0) {
        KovaUdpBatchForget();
        _exit(KovaTakeCallAway(GetParam()) ? Serve() : kNotTaken);
    }
    int nStatus = -1;
    ASSERT_EQ(waitpid(nChild, &nStatus, 0), nChild);
    ASSERT_TRUE(WIFEXITED(nStatus));
    EXPECT_EQ(WEXITSTATUS(nStatus), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Kernel, LiveMissingCalls,
    testing::Values(KovaMissingCall{"epoll", SYS_epoll_create1, kAnyLevel, ENOSYS},
                    KovaMissingCall{"eventfd", SYS_eventfd2, kAnyLevel, ENOSYS},
                    KovaMissingCall{"sendmmsg", SYS_sendmmsg, kAnyLevel, ENOSYS},
                    KovaMissingCall{"getrandom", SYS_getrandom, kAnyLevel, ENOSYS},
                    KovaMissingCall{"accept4", SYS_accept4, kAnyLevel, ENOSYS},
                    KovaMissingCall{"prctl", SYS_prctl, kAnyLevel, EINVAL},
                    KovaMissingCall{"udp_segment", SYS_getsockopt, IPPROTO_UDP, ENOPROTOOPT},
                    KovaMissingCall{"udp_segment_set", SYS_setsockopt, IPPROTO_UDP, ENOPROTOOPT},
                    KovaMissingCall{"tcp_options", SYS_setsockopt, IPPROTO_TCP, ENOPROTOOPT}),
    [](const auto &kind) { return std::string(kind.param.szName); });
