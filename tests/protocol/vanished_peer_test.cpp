#include "tests/support/stdout_capture.h"
#include "tests/support/test_server.h"

#include <gtest/gtest.h>

#include <linux/filter.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cerrno>
#include <string>

namespace {

int Option(int nSocket, int nLevel, int nName)
{
    int nValue = -1;
    socklen_t nSize = sizeof(nValue);
    EXPECT_EQ(getsockopt(nSocket, nLevel, nName, &nValue, &nSize), 0);
    return nValue;
}

void SetOption(int nSocket, int nLevel, int nName, int nValue)
{
    ASSERT_EQ(setsockopt(nSocket, nLevel, nName, &nValue, sizeof(nValue)), 0);
}

/// From now on the player's end neither gets nor answers anything, as behind a
/// link that is down.
void Vanish(const KovaRtspTestClient &player)
{
    struct sock_filter dropAll[] = {BPF_STMT(BPF_RET | BPF_K, 0)};
    const struct sock_fprog program = {1, dropAll};
    ASSERT_EQ(setsockopt(player.Socket(), SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof(program)),
              0);
}

/// A started server and its accepted connections.
class VanishedPeer : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(server.IsUp());
        ASSERT_TRUE(server.PushReady(1000));
        ASSERT_TRUE(server.Connect(&player));
        ASSERT_EQ(player.Options("live").nStatus, 200);
    }

    /// The accepted end of the player's connection.
    int Accepted()
    {
        return server.Handler(player)->nSocket.load();
    }

    void ExpectAsksForItsPeer()
    {
        EXPECT_EQ(Option(Accepted(), SOL_SOCKET, SO_KEEPALIVE), 1);
        EXPECT_EQ(Option(Accepted(), IPPROTO_TCP, TCP_KEEPIDLE), 30);
        EXPECT_EQ(Option(Accepted(), IPPROTO_TCP, TCP_KEEPINTVL), 10);
        EXPECT_EQ(Option(Accepted(), IPPROTO_TCP, TCP_KEEPCNT), 3);
    }

    KovaStdoutCapture capture;
    KovaTestServer server;
    KovaRtspTestClient player;
};

TEST_F(VanishedPeer, IsAskedForFromTheStartAndLimitedOnceItTakesMedia)
{
    ExpectAsksForItsPeer();
    EXPECT_EQ(Option(Accepted(), IPPROTO_TCP, TCP_USER_TIMEOUT), 0);
    ASSERT_EQ(player.SetupUdp("live", 96, 5000).nStatus, 200);
    EXPECT_EQ(Option(Accepted(), IPPROTO_TCP, TCP_USER_TIMEOUT), 0);
    ASSERT_EQ(player.SetupTcp("live", 97, 0).nStatus, 200);
    EXPECT_EQ(Option(Accepted(), IPPROTO_TCP, TCP_USER_TIMEOUT), 10000);
    ExpectAsksForItsPeer();
    server.Settle(player);
}

TEST_F(VanishedPeer, LosesItsConnectionAlsoWhenItPlaysOverUdp)
{
    const int nBefore = KovaOpenDescriptors();
    KovaRtspTestClient other;
    ASSERT_TRUE(server.Connect(&other));
    for (const int nTrack : {96, 97})
        ASSERT_EQ(player.SetupUdp("live", nTrack, 5000).nStatus, 200);
    ASSERT_EQ(player.Play("live").nStatus, 200);
    // Seconds in the place of tens of seconds; the count of lost answers stays.
    SetOption(Accepted(), IPPROTO_TCP, TCP_KEEPINTVL, 1);
    Vanish(player);
    SetOption(Accepted(), IPPROTO_TCP, TCP_KEEPIDLE, 1);
    capture.Clear();
    EXPECT_TRUE(server.WaitHandlers(1, 60000));
    // The number of the error is the system's: 110 on most, 145 on MIPS.
    EXPECT_TRUE(capture.WaitFor(
        "pHandleRequestProc, " + std::to_string(ETIMEDOUT) + "(Connection timed out)\n", 5000));
    EXPECT_EQ(other.Options("live").nStatus, 200);
    // Both ends of the other connection and four UDP sockets have come.
    EXPECT_EQ(KovaOpenDescriptors(), nBefore + 2 + 4 - 1);
    // Its session has its own time-out.
    EXPECT_EQ(server.SessionCount(), 1U);
}

} // namespace
