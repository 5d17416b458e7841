#include "classic/server/server.h"

#include "classic/rtsp/server_calls.h"
#include "foundation/log.h"
#include "system_shims.h"
#include "tests/soak/short_sleeps.h"
#include "tests/support/failing_heap.h"
#include "tests/support/fake_clock.h"
#include "tests/support/sockets.h"
#include "tests/support/stdout_capture.h"
#include "tests/support/stream_host.h"
#include "tests/support/test_server.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>
#include <vector>

namespace {

using Lines = std::vector<std::string>;

constexpr char kLoopback[KOVA_ADDRESS_SIZE] = "127.0.0.1";
constexpr char kAny[KOVA_ADDRESS_SIZE] = "";

sockaddr_in AddressOf(int nSocket)
{
    sockaddr_in address = {};
    socklen_t nSize = sizeof(address);
    EXPECT_EQ(getsockname(nSocket, reinterpret_cast<sockaddr *>(&address), &nSize), 0);
    return address;
}

bool Connects(in_addr_t nAddress, in_port_t nPort)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = nAddress;
    address.sin_port = nPort;
    const int nSocket = socket(AF_INET, SOCK_STREAM, 0);
    const bool bGood =
        connect(nSocket, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0;
    close(nSocket);
    return bGood;
}

/// A port that another socket listens on.
struct TakenPort {
    int nSocket = KovaListen(1);
    uint32_t nPort = KovaPortOf(nSocket);

    ~TakenPort()
    {
        close(nSocket);
    }
};

struct Server : testing::Test {
    KovaShortSleeps sleeps{10}; // a stop waits for the monitor
    KovaStdoutCapture capture;
    KovaRtspServer *const pUntouched = reinterpret_cast<KovaRtspServer *>(16);
    KovaRtspServer *pServer = pUntouched;

    Server()
    {
        RTSP_SetLogLevel(5);
    }

    ~Server() override
    {
        RTSP_SetLogLevel(2);
    }

    /// Start of a new server under a failing call; the server is destroyed again.
    int32_t StartWith(KovaShimmedCall call, int nError, int nGood = 0)
    {
        KovaRtspServer *pFailing = KovaRtspServerCreate(kLoopback, 0, 1);
        const KovaFailingCall failing(call, nError, nGood);
        RTSP_SetLogLevel(1);
        const int32_t nResult = KovaRtspServerStart(pFailing);
        EXPECT_EQ(pFailing->nListenState.load(), 1U);
        EXPECT_EQ(KovaRtspServerStop(pFailing), 0);
        EXPECT_EQ(pFailing->nListenSocket.load(), -1);
        EXPECT_EQ(KovaRtspServerDestroy(pFailing), 0);
        return nResult;
    }
};

TEST_F(Server, CreationAcceptsUpTo1024Clients)
{
    for (const int32_t nMax : {1024, 1, 0, -1, INT32_MIN}) {
        KovaRtspServer *pMade = KovaRtspServerCreate(kLoopback, 554, nMax);
        ASSERT_NE(pMade, nullptr) << nMax;
        EXPECT_EQ(pMade->nMaxClient, nMax);
        EXPECT_EQ(KovaRtspServerDestroy(pMade), 0);
    }
    EXPECT_EQ(KovaRtspServerCreate(kLoopback, 554, 1025), nullptr);
    EXPECT_EQ(KovaRtspServerCreate(kLoopback, 554, INT32_MAX), nullptr);
    EXPECT_EQ(KovaRtspServerCreate(nullptr, 554, 1), nullptr);
    const KovaFailingHeap heap;
    EXPECT_EQ(KovaRtspServerCreate(kLoopback, 554, 1), nullptr);
}

TEST_F(Server, CreationCopiesAllAddressBytesAndTheLowPortBits)
{
    const char szFull[17] = "255.255.255.2554";
    KovaRtspServer *pMade = KovaRtspServerCreate(szFull, 0x12345, 7);
    ASSERT_NE(pMade, nullptr);
    EXPECT_EQ(memcmp(pMade->szAddr, szFull, 16), 0);
    EXPECT_EQ(pMade->nPort, 0x2345);
    EXPECT_EQ(pMade->nListenSocket.load(), -1);
    EXPECT_EQ(pMade->nListenState.load(), 0U);
    EXPECT_EQ(pMade->nMonitorState.load(), 0U);
    EXPECT_EQ(pMade->pHandlerList, nullptr);
    EXPECT_EQ(pMade->pSessionList, nullptr);
    EXPECT_EQ(pMade->pStreamerList, nullptr);
    KovaRtspServerDestroy(pMade);
}

TEST_F(Server, CreationSeedsTheGeneratorWithTheSeconds)
{
    KovaFakeClock clock;
    clock.Fix(1704445387LL * 1000000);
    KovaRtspServerDestroy(KovaRtspServerCreate(kLoopback, 1, 1));
    const int nDrawn = rand();
    srand(1704445387);
    EXPECT_EQ(nDrawn, rand());
}

TEST_F(Server, NullServersAreRefused)
{
    EXPECT_EQ(KovaRtspServerUninit(nullptr), 2);
    EXPECT_EQ(KovaRtspServerDestroy(nullptr), 2);
    EXPECT_EQ(KovaRtspServerStart(nullptr), 2);
    EXPECT_EQ(KovaRtspServerStop(nullptr), 2);
}

TEST_F(Server, InitSetsTheLogLevelWhateverHappens)
{
    EXPECT_EQ(KovaRtspServerInit(nullptr, kLoopback, 0, 1), 2);
    EXPECT_EQ(Rtsp_DebugLevel.load(), 2U);
    RTSP_SetLogLevel(5);
    EXPECT_EQ(KovaRtspServerInit(&pServer, nullptr, 0, 1), 4);
    EXPECT_EQ(Rtsp_DebugLevel.load(), 2U);
    RTSP_SetLogLevel(0);
    EXPECT_EQ(KovaRtspServerInit(&pServer, kLoopback, 0, 1025), 4);
    EXPECT_EQ(Rtsp_DebugLevel.load(), 2U);
    EXPECT_EQ(pServer, pUntouched);
}

TEST_F(Server, InitOnATakenPort)
{
    const TakenPort taken;
    EXPECT_EQ(KovaRtspServerInit(&pServer, kLoopback, taken.nPort, 1), 9);
    EXPECT_EQ(pServer, pUntouched);
    EXPECT_EQ(Rtsp_DebugLevel.load(), 2U);
    EXPECT_EQ(capture.Messages(), (Lines{"KovaRtspServerStart, bind fail, error: " +
                                         std::to_string(EADDRINUSE) + "(Address already in use)"}));
}

TEST_F(Server, InitOnAnAddressThatIsNotOurs)
{
    const char szForeign[KOVA_ADDRESS_SIZE] = "192.0.2.1";
    EXPECT_EQ(KovaRtspServerInit(&pServer, szForeign, 0, 1), 9);
    EXPECT_EQ(pServer, pUntouched);
    EXPECT_EQ(capture.Messages(),
              (Lines{"KovaRtspServerStart, bind fail, error: " + std::to_string(EADDRNOTAVAIL) +
                     "(Cannot assign requested address)"}));
}

TEST_F(Server, StartTellsWhatFailed)
{
    EXPECT_EQ(StartWith(kShimSocket, EMFILE), 7);
    EXPECT_EQ(capture.Text(), "");
    EXPECT_EQ(StartWith(kShimSetsockopt, ENOPROTOOPT), 8);
    EXPECT_EQ(StartWith(kShimListen, EADDRINUSE), 10);
    EXPECT_EQ(capture.Messages(),
              (Lines{"KovaRtspServerStart, setsockopt (REUSEADDR) fail, error: " +
                         std::to_string(ENOPROTOOPT) + "(Protocol not available)",
                     "KovaRtspServerStart, listen fail, error: " + std::to_string(EADDRINUSE) +
                         "(Address already in use)"}));
}

TEST_F(Server, FailedStartLeavesItsSocketToTheStop)
{
    const TakenPort taken;
    KovaRtspServer *pMade = KovaRtspServerCreate(kLoopback, taken.nPort, 1);
    RTSP_SetLogLevel(0);
    EXPECT_EQ(KovaRtspServerStart(pMade), 9);
    EXPECT_EQ(capture.Text(), "");
    const int nSocket = pMade->nListenSocket;
    EXPECT_GT(nSocket, 0);
    EXPECT_NE(fcntl(nSocket, F_GETFD), -1);
    EXPECT_EQ(KovaRtspServerDestroy(pMade), 0);
    EXPECT_EQ(fcntl(nSocket, F_GETFD), -1);
}

TEST_F(Server, StartTriedAgainGivesItsFirstSocketBack)
{
    KovaRtspServer *pMade = nullptr;
    {
        const TakenPort taken;
        pMade = KovaRtspServerCreate(kLoopback, taken.nPort, 1);
        const int nBefore = KovaOpenDescriptors();
        for (int i = 0; i < 4; i++) {
            EXPECT_EQ(KovaRtspServerStart(pMade), 9);
            EXPECT_EQ(KovaOpenDescriptors(), nBefore + 1);
        }
    }
    const int nBefore = KovaOpenDescriptors();
    EXPECT_EQ(KovaRtspServerStart(pMade), 0);
    EXPECT_EQ(KovaOpenDescriptors(), nBefore);
    EXPECT_EQ(KovaRtspServerUninit(pMade), 0);
    EXPECT_EQ(KovaOpenDescriptors(), nBefore - 1);
}

TEST_F(Server, StartWithoutThreads)
{
    KovaRtspServer *pMade = KovaRtspServerCreate(kLoopback, 0, 1);
    {
        const KovaFailingCall failing(kShimThread, EAGAIN);
        EXPECT_EQ(KovaRtspServerStart(pMade), 11);
    }
    EXPECT_EQ(capture.Text(), "");
    // The state says running for ever: nobody may wait for it.
    EXPECT_EQ(pMade->nListenState.load(), 2U);
    EXPECT_EQ(pMade->nMonitorState.load(), 0U);
    EXPECT_EQ(KovaRtspServerDestroy(pMade), 0);
}

TEST_F(Server, StopOfAServerThatNeverRan)
{
    KovaRtspServer *pMade = KovaRtspServerCreate(kLoopback, 0, 1);
    EXPECT_EQ(KovaRtspServerStop(pMade), 0);
    EXPECT_EQ(pMade->nListenState.load(), 4U);
    EXPECT_EQ(pMade->nMonitorState.load(), 4U);
    EXPECT_EQ(KovaRtspServerStop(pMade), 0);
    EXPECT_EQ(KovaRtspServerUninit(pMade), 0);
    EXPECT_EQ(capture.Text(), "");
}

TEST_F(Server, StartsStopsAndStartsAgain)
{
    KovaRtspServer *pMade = KovaRtspServerCreate(kLoopback, 0, 1);
    ASSERT_EQ(KovaRtspServerStart(pMade), 0);
    const int nSocket = pMade->nListenSocket;
    EXPECT_EQ(pMade->nListenState.load(), 2U);
    EXPECT_EQ(pMade->nMonitorState.load(), 2U);
    EXPECT_NE(fcntl(nSocket, F_GETFL) & O_NONBLOCK, 0);
    int nReuse = 0;
    socklen_t nSize = sizeof(nReuse);
    EXPECT_EQ(getsockopt(nSocket, SOL_SOCKET, SO_REUSEADDR, &nReuse, &nSize), 0);
    EXPECT_NE(nReuse, 0);
    const sockaddr_in first = AddressOf(nSocket);
    EXPECT_EQ(first.sin_addr.s_addr, htonl(INADDR_LOOPBACK));
    EXPECT_TRUE(Connects(first.sin_addr.s_addr, first.sin_port));
    ASSERT_NE(KovaRtspServerAddUri(pMade, "live"), nullptr);
    EXPECT_EQ(KovaRtspServerStop(pMade), 0);
    EXPECT_EQ(pMade->nListenSocket.load(), -1);
    EXPECT_EQ(pMade->nListenState.load(), 4U);
    EXPECT_EQ(pMade->nMonitorState.load(), 4U);
    EXPECT_FALSE(Connects(first.sin_addr.s_addr, first.sin_port));
    // What is registered stays across the cycle.
    EXPECT_EQ(KovaRtspServerIsUriExist(pMade, "live"), 1);
    ASSERT_EQ(KovaRtspServerStart(pMade), 0);
    EXPECT_TRUE(Connects(htonl(INADDR_LOOPBACK), AddressOf(pMade->nListenSocket).sin_port));
    EXPECT_EQ(KovaRtspServerIsUriExist(pMade, "live"), 1);
    EXPECT_EQ(KovaRtspServerUninit(pMade), 0);
}

TEST_F(Server, EmptyAddressIsEveryInterface)
{
    ASSERT_EQ(KovaRtspServerInit(&pServer, kAny, 0x50000, 1), 0);
    ASSERT_NE(pServer, pUntouched);
    const sockaddr_in bound = AddressOf(pServer->nListenSocket);
    EXPECT_EQ(bound.sin_addr.s_addr, htonl(INADDR_ANY));
    EXPECT_TRUE(Connects(htonl(0x7F000002), bound.sin_port));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(KovaRtspServerUninit(pServer), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
}

} // namespace
