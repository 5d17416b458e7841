#include "classic/rtsp/server_ports.h"
#include "classic/server/listener.h"
#include "classic/server/server.h"
#include "foundation/list_view.h"
#include "foundation/mutex.h"
#include "tests/support/net_ends.h"
#include "tests/support/sockets.h"
#include "tests/support/stdout_capture.h"
#include "tests/support/stream_host.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>

/// A host that has closed its standard input: descriptor 0 comes up for sockets.
namespace {

/// Closes descriptor 0, and makes it what it was in the end.
class ClosedInput {
public:
    ClosedInput() : m_nKept(fcntl(0, F_DUPFD_CLOEXEC, 500))
    {
        close(0);
    }
    ~ClosedInput()
    {
        if (m_nKept < 0)
            return;
        dup2(m_nKept, 0);
        close(m_nKept);
    }
    ClosedInput(const ClosedInput &) = delete;
    ClosedInput &operator=(const ClosedInput &) = delete;

private:
    int m_nKept;
};

TEST(DescriptorZero, IsFreeAgainAfterAPortSearch)
{
    const ClosedInput input;
    uint16_t nRtpPort = 0;
    uint16_t nRtcpPort = 0;
    int32_t nRtp = -1;
    int32_t nRtcp = -1;
    GetServerPort(5000, 5001, &nRtpPort, &nRtcpPort, &nRtp, &nRtcp);
    EXPECT_NE(nRtpPort, 0);
    EXPECT_GT(nRtp, 0);
    EXPECT_GT(nRtcp, 0);
    EXPECT_FALSE(KovaIsOpen(0));
    close(nRtp);
    close(nRtcp);
}

TEST(DescriptorZero, IsNoListeningSocket)
{
    const KovaStdoutCapture capture;
    const KovaStreamHost host; // on any free port
    const ClosedInput input;
    ASSERT_EQ(KovaRtspServerStart(host.Server()), 0);
    EXPECT_GT(host.Server()->nListenSocket, 0);
    EXPECT_FALSE(KovaIsOpen(0));
    EXPECT_EQ(KovaRtspServerStop(host.Server()), 0);
}

TEST(DescriptorZero, IsNoConnectionAndFreeAgainWithTheListenersEnd)
{
    const KovaStdoutCapture capture;
    const KovaStreamHost host;
    KovaRtspServer *pServer = host.Server();
    pServer->nListenSocket = KovaListen(16);
    ASSERT_EQ(fcntl(pServer->nListenSocket, F_SETFL, O_NONBLOCK), 0);
    const int nFirst = KovaConnect(KovaPortOf(pServer->nListenSocket));
    const int nSecond = KovaConnect(KovaPortOf(pServer->nListenSocket));
    {
        const ClosedInput input;
        pServer->nListenState = kThreadRunning;
        std::thread listener(pListenProc, pServer);
        EXPECT_TRUE(KovaWaitUntil([&] {
            const KovaMutexLock lock(&pServer->mtxHandler, kRankHandlers);
            return pServer->pHandlerList != nullptr;
        }));
        EXPECT_TRUE(KovaIsOpen(0)) << "or it would come up for the next one";
        struct pollfd entry = {};
        entry.fd = nFirst;
        entry.events = POLLIN;
        EXPECT_EQ(poll(&entry, 1, 5000), 1) << "it is told that it is not served";
        KovaThreadRequestStop(pServer->nListenState);
        KovaServerWakeListener(pServer);
        listener.join();
        EXPECT_FALSE(KovaIsOpen(0));
    }
    close(nFirst);
    close(nSecond);
}

} // namespace
