#include "tests/live/stepped_server.h"
#include "tests/support/c_calls.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

// A listening socket in a process that has no descriptors left.

namespace {

std::atomic<unsigned> g_nAccepts{0};

/// There is none, but for who has just given one up.
int AcceptEachSecond(int nSocket, sockaddr *pAddress, socklen_t *pSize, int nFlags)
{
    if (g_nAccepts++ % 2 != 0)
        return __real_accept4(nSocket, pAddress, pSize, nFlags);
    errno = EMFILE;
    return -1;
}

struct SteppedListener : testing::Test {
    KovaSteppedServer server;
    KovaLiveClient clients[3];

    ~SteppedListener() override
    {
        KovaReplaceCall<__real_accept4>(nullptr);
    }
};

} // namespace

TEST_F(SteppedListener, WithoutDescriptorsEverybodyIsSentAway)
{
    g_nAccepts = 0;
    KovaReplaceCall<__real_accept4>(AcceptEachSecond);
    for (KovaLiveClient &client : clients)
        ASSERT_TRUE(client.Connect(server.Port()));
    server.Run(1);
    for (KovaLiveClient &client : clients)
        EXPECT_TRUE(client.WaitClosed());
    EXPECT_GE(server.Loop()->nReserve, 0) << "for the next one";
    EXPECT_EQ(server.Figures().connections, 0U);
    EXPECT_EQ(server.lines.at(0), "no connection can be taken: no descriptors");
}

TEST_F(SteppedListener, ItRestsForATenthOfASecondWhenNobodyCanBeSentAway)
{
    KovaReplaceCall<__real_accept4>([](int, sockaddr *, socklen_t *, int) {
        g_nAccepts++;
        errno = ENOMEM;
        return -1;
    });
    ASSERT_TRUE(clients[0].Connect(server.Port()));
    server.Run(1);
    EXPECT_EQ(server.lines.at(0), "no connection can be taken: no memory");
    g_nAccepts = 0;
    KovaSteppedServer::Advance(99999);
    server.Run();
    EXPECT_EQ(g_nAccepts, 0U);
    KovaReplaceCall<__real_accept4>(nullptr);
    KovaSteppedServer::Advance(1);
    server.Run();
    EXPECT_EQ(server.Figures().connections, 1U);
}

TEST_F(SteppedListener, OnesThatAreTooManyCostNoDescriptors)
{
    const auto firstFree = [] {
        const int nDescriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
        close(nDescriptor);
        return nDescriptor;
    };
    server.Live()->settings.nMaxConnections = 0;
    for (KovaLiveClient &client : clients)
        ASSERT_TRUE(client.Connect(server.Port()));
    const int nFree = firstFree();
    server.Run(1);
    EXPECT_EQ(firstFree(), nFree);
    EXPECT_EQ(server.Figures().refused, 3U);
    for (KovaLiveClient &client : clients)
        EXPECT_EQ(client.Receive().nStatus, 503);
}

TEST_F(SteppedListener, OneThatIsGoneBeforeItWasTakenKeepsNobodyWaiting)
{
    for (KovaLiveClient &client : clients)
        ASSERT_TRUE(client.Connect(server.Port()));
    g_nAccepts = 0;
    KovaReplaceCall<__real_accept4>(
        [](int nSocket, sockaddr *pAddress, socklen_t *pSize, int nFlags) {
            const int errors[] = {ECONNABORTED, EINTR, 0};
            errno = errors[g_nAccepts++ % 3];
            return errno != 0 ? -1 : __real_accept4(nSocket, pAddress, pSize, nFlags);
        });
    server.Run(1);
    EXPECT_EQ(server.Figures().connections, 3U);
}
