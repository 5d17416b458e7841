#include "classic/server/listener.h"

#include "classic/server/handler_registry.h"
#include "foundation/log.h"
#include "foundation/mutex.h"
#include "system_shims.h"
#include "tests/support/failing_heap.h"
#include "tests/support/net_ends.h"
#include "tests/support/sockets.h"
#include "tests/support/stdout_capture.h"
#include "tests/support/stream_host.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <thread>
#include <vector>

namespace {

using Lines = std::vector<std::string>;

/// A server whose listener alone is run, as a thread of the test.
struct Listener : testing::Test {
    KovaStdoutCapture capture;
    KovaStreamHost host;
    KovaRtspServer *pServer = host.Server();
    uint16_t nPort = 0;
    std::thread listener;
    std::vector<int> players;

    Listener()
    {
        RTSP_SetLogLevel(0);
        pServer->nListenSocket = KovaListen(16);
        EXPECT_EQ(fcntl(pServer->nListenSocket, F_SETFL, O_NONBLOCK), 0);
        nPort = KovaPortOf(pServer->nListenSocket);
    }

    ~Listener() override
    {
        Stop();
        for (const int nPlayer : players)
            close(nPlayer);
        RTSP_SetLogLevel(2);
    }

    void Start()
    {
        pServer->nListenState = 2;
        listener = std::thread(pListenProc, pServer);
    }

    void Stop()
    {
        if (!listener.joinable())
            return;
        KovaThreadRequestStop(pServer->nListenState);
        KovaServerWakeListener(pServer);
        listener.join();
    }

    /// What listeners said; the last lines of other tests' handlers may come late.
    Lines OwnLines()
    {
        Lines own;
        for (const std::string &message : capture.Messages()) {
            if (message.rfind("pListenProc, ", 0) == 0)
                own.push_back(message);
        }
        return own;
    }

    unsigned Handlers()
    {
        const KovaMutexLock lock(&pServer->mtxHandler, kRankHandlers);
        return KovaListLength(pServer->pHandlerList);
    }

    /// Whether one more connection, and all before it, get their handlers.
    bool Accepts()
    {
        players.push_back(KovaConnect(nPort));
        return KovaWaitUntil([&] { return Handlers() == players.size(); });
    }
};

TEST_F(Listener, GivesEachConnectionAHandler)
{
    Start();
    EXPECT_TRUE(Accepts());
    EXPECT_TRUE(Accepts());
    const KovaMutexLock lock(&pServer->mtxHandler, kRankHandlers);
    const auto *pHandler = static_cast<KovaRtspServerHandler *>(pServer->pHandlerList->data);
    EXPECT_STREQ(pHandler->szPeerAddr, "127.0.0.1");
    EXPECT_EQ(pHandler->peerAddr.sin_family, AF_INET);
    EXPECT_EQ(ntohs(pHandler->peerAddr.sin_port), pHandler->nPeerPort);
    EXPECT_EQ(pHandler->nLocalPort, nPort);
}

TEST_F(Listener, SurvivesShortagesAndAbortedConnections)
{
    Start();
    for (const int nError : {EMFILE, ENFILE, ENOBUFS, ENOMEM, ECONNABORTED, EINTR, EAGAIN}) {
        const KovaFailingCall call(kShimAccept, nError, 0, 5);
        players.push_back(KovaConnect(nPort));
        EXPECT_TRUE(KovaWaitUntil([&] { return call.Failed() == 5; })) << nError;
        EXPECT_TRUE(Accepts()) << nError;
        EXPECT_EQ(pServer->nListenState.load(), 2U) << nError;
    }
    EXPECT_EQ(capture.Text().find("pListenProc"), std::string::npos);
}

TEST_F(Listener, EndsAtAnyOtherError)
{
    const KovaFailingCall call(kShimAccept, EINVAL);
    Start();
    listener.join();
    EXPECT_EQ(pServer->nListenState.load(), 4U);
    EXPECT_EQ(pServer->nListenSocket.load(), -1);
    EXPECT_EQ(call.Failed(), 1);
    // Never filtered, and without a line end.
    EXPECT_EQ(capture.Text(), "pListenProc, 22(Invalid argument)");
}

TEST_F(Listener, ClosesItsSocketAndSaysSoAtLevel4)
{
    RTSP_SetLogLevel(4);
    Start();
    EXPECT_TRUE(capture.WaitFor("pListenProc, Enter thread\n", 10000));
    const int nSocket = pServer->nListenSocket;
    EXPECT_TRUE(KovaIsOpen(nSocket));
    Stop();
    EXPECT_EQ(pServer->nListenState.load(), 4U);
    EXPECT_EQ(pServer->nListenSocket.load(), -1);
    EXPECT_FALSE(KovaIsOpen(nSocket));
    EXPECT_EQ(OwnLines(), (Lines{"pListenProc, Enter thread", "pListenProc, Leave thread"}));
    capture.Clear();
    std::thread(pListenProc, nullptr).join();
    EXPECT_EQ(OwnLines(),
              (Lines{"pListenProc, Enter thread", "pListenProc, Leave thread(pServer)"}));
    capture.Clear();
    RTSP_SetLogLevel(3);
    std::thread(pListenProc, nullptr).join();
    EXPECT_EQ(OwnLines(), Lines());
}

TEST_F(Listener, NoticesAStopThatNobodyAnnounces)
{
    Start();
    pServer->nListenState = 3;
    EXPECT_TRUE(KovaWaitUntil([&] { return pServer->nListenState == 4; }));
}

TEST_F(Listener, FailedHandlersLeaveNothingBehind)
{
    sockaddr_in peer = {};
    EXPECT_EQ(AddNewRtspHandler(nullptr, -1, peer), 2);
    EXPECT_EQ(AddNewRtspHandler(pServer, 0, peer), 2);
    int32_t nResult = 1;
    int nGood = 0;
    for (; nResult != 0 && nGood < 50; nGood++) {
        players.push_back(KovaConnect(nPort));
        int nSocket = -1;
        EXPECT_TRUE(KovaWaitUntil([&] {
            nSocket = accept(pServer->nListenSocket, nullptr, nullptr);
            return nSocket > 0;
        }));
        {
            const KovaFailingHeap heap(nGood);
            nResult = AddNewRtspHandler(pServer, nSocket, peer);
        }
        EXPECT_EQ(KovaIsOpen(nSocket), nResult == 0) << nGood;
        EXPECT_EQ(Handlers(), nResult == 0 ? 1U : 0U) << nGood;
        if (nGood == 0) {
            EXPECT_EQ(nResult, 2);
        }
    }
    EXPECT_EQ(nResult, 0);
    EXPECT_GT(nGood, 2);
}

TEST_F(Listener, HandlersWithoutAThreadLeaveNothingBehind)
{
    players.push_back(KovaConnect(nPort));
    int nSocket = -1;
    EXPECT_TRUE(KovaWaitUntil([&] {
        nSocket = accept(pServer->nListenSocket, nullptr, nullptr);
        return nSocket > 0;
    }));
    const KovaFailingCall threads(kShimThread, EAGAIN);
    EXPECT_EQ(AddNewRtspHandler(pServer, nSocket, sockaddr_in{}), 1);
    EXPECT_FALSE(KovaIsOpen(nSocket));
    EXPECT_EQ(Handlers(), 0U);
}

} // namespace
