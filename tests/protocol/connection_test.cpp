#include "classic/rtp/tcp_channel.h"
#include "classic/rtsp/server_calls.h"
#include "classic/server/handler_registry.h"
#include "foundation/log.h"
#include "tests/protocol/handler_pair.h"
#include "tests/protocol/protocol_fixture.h"
#include "tests/support/c_calls.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <string>
#include <thread>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

class Connection : public ProtocolTest {
protected:
    void TearDown() override
    {
        RTSP_SetLogLevel(2);
    }
    /// What request threads logged; threads of the stream may log at any time.
    std::vector<std::string> RequestThreadLines()
    {
        std::vector<std::string> lines;
        for (const std::string &line : capture.Messages()) {
            if (line.rfind("pHandleRequestProc, ", 0) == 0)
                lines.push_back(line);
        }
        return lines;
    }
};

std::string OptionsOf(size_t nSize)
{
    const std::string head = "OPTIONS rtsp://h/live RTSP/1.0\r\nCSeq: 1\r\nX: ";
    return head + std::string(nSize - head.size() - 4, 'x') + "\r\n\r\n";
}

TEST_F(Connection, OneReadIsOneRequest)
{
    const std::string request = "OPTIONS rtsp://h/live RTSP/1.0\r\nCSeq: 1\r\n\r\n";
    EXPECT_EQ(client.Exchange(request + request + request).text, kOptionsAnswer);
    EXPECT_TRUE(client.IsSilent(100));
}

/// The receiver whose next calls are interrupted, and how many are left.
std::atomic<int> g_nInterrupted{-1};
std::atomic<int> g_nInterruptions{0};

ssize_t Interrupt(int nSocket, void *pData, size_t nSize, int nFlags)
{
    if (nSocket != g_nInterrupted || g_nInterruptions == 0)
        return __real_recv(nSocket, pData, nSize, nFlags);
    g_nInterruptions--;
    errno = EINTR;
    return -1;
}

TEST_F(Connection, ReceiveThatASignalInterruptsIsMadeAgain)
{
    server.Settle(client);
    g_nInterrupted = server.Handler(client)->nSocket.load();
    g_nInterruptions = 3;
    KovaReplaceCall<__real_recv>(Interrupt);
    EXPECT_EQ(client.Exchange("OPTIONS rtsp://h/live RTSP/1.0\r\nCSeq: 1\r\n\r\n").text,
              kOptionsAnswer);
    EXPECT_EQ(g_nInterruptions, 0);
    KovaReplaceCall<__real_recv>(nullptr);
    EXPECT_EQ(client.Exchange("OPTIONS rtsp://h/live RTSP/1.0\r\nCSeq: 1\r\n\r\n").text,
              kOptionsAnswer);
}

TEST_F(Connection, PartsOfARequestAreRequestsOfTheirOwn)
{
    EXPECT_EQ(client.Exchange("OPTIONS rtsp://h/live RTSP/1.0\r\n").text, k400);
    EXPECT_EQ(Printed(), "Parse CSeq fail\n");
    EXPECT_EQ(client.Exchange("CSeq: 1\r\n\r\n").text, k400);
    EXPECT_EQ(Printed(), "Parse CSeq fail\nNot Support Request Command\n");
}

TEST_F(Connection, RequestOf8192BytesIsHandledAsItIs)
{
    RTSP_SetLogLevel(4);
    EXPECT_EQ(client.Exchange(OptionsOf(8192)).text, kOptionsAnswer);
    // The line is longer than the log prints; what goes to it is cut, not the request.
    EXPECT_NE(capture.Text().find(" pHandleRequestProc, Recv: OPTIONS rtsp://h/live RTSP/1.0\r\n"),
              std::string::npos);
    EXPECT_TRUE(client.IsSilent(50));
}

TEST_F(Connection, LongerRequestIsCutAndTheRestIsTheNextOne)
{
    ASSERT_TRUE(client.Send(OptionsOf(8192) + "options rest"));
    EXPECT_EQ(client.Receive().text, kOptionsAnswer);
    EXPECT_EQ(client.Receive().text, k400);
    EXPECT_EQ(Printed(), "Not Support Request Command\n");
    // What would make it complete lies behind the cut.
    const std::string head = "OPTIONS rtsp://h/live RTSP/1.0\r\nX: ";
    ASSERT_TRUE(client.Send(head + std::string(8192 - head.size(), 'x') + "\r\nCSeq: 1\r\n\r\n"));
    EXPECT_EQ(client.Receive().text, k400);
    EXPECT_EQ(client.Receive().text, k400);
    EXPECT_TRUE(client.IsSilent(50));
}

TEST_F(Connection, BytesOfAnEarlierRequestAreGone)
{
    EXPECT_EQ(
        client.Exchange("OPTIONS rtsp://h/live RTSP/1.0\r\nCSeq: 1\r\nSession: 1\r\n\r\n").text,
        k454);
    EXPECT_EQ(client.Exchange("OPTIONS rtsp://h/live RTSP/1.0\r\nCSeq: 1\r\n").text,
              kOptionsAnswer);
}

TEST_F(Connection, DumpOfARequestShowsNothingOfAnEarlierOne)
{
    const std::string longer = "OPTIONS rtsp://h/live RTSP/1.0\r\nCSeq: 1\r\nX: secret\r\n\r\n";
    const std::string shorter = "OPTIONS rtsp://h/live RTSP/1.0\r\nCSeq: 1\r\n\r\n";
    RTSP_SetLogLevel(4);
    EXPECT_EQ(client.Exchange(longer).text, kOptionsAnswer);
    capture.Clear();
    EXPECT_EQ(client.Exchange(shorter).text, kOptionsAnswer);
    const std::string printed = capture.Text();
    RTSP_SetLogLevel(2);
    EXPECT_NE(printed.find("pHandleRequestProc, Recv: " + shorter +
                           ", Len: " + std::to_string(shorter.size()) + "\n\n"),
              std::string::npos)
        << printed;
}

TEST_F(Connection, EndOfThePeerLeavesSessionAndClients)
{
    ASSERT_EQ(client.SetupTcp("live", 97, 0).nStatus, 200);
    ASSERT_EQ(client.Play("live").nStatus, 200);
    const std::string session = client.Session();
    EXPECT_NE(KovaRtspServerGetHandlerBySessionId(server.Server(), session.c_str()), nullptr);
    const int *const pField = server.Clients(97).at(0).pTcpSocket;
    EXPECT_EQ(pField, reinterpret_cast<int *>(&server.Handler(client)->nSocket));
    capture.Clear();
    client.Close();
    ASSERT_TRUE(server.WaitHandlers(0, 5000));
    EXPECT_TRUE(
        capture.WaitFor(" pHandleRequestProc, Client RTSP Handler connection closed !!!\n", 2000));
    EXPECT_EQ(KovaRtspServerGetHandlerBySessionId(server.Server(), session.c_str()), nullptr);
    EXPECT_EQ(server.SessionCount(), 1u);
    ASSERT_EQ(server.Clients(97).size(), 1u);
    ASSERT_TRUE(KovaWaitUntil(2000, [&] { return server.Clients(97)[0].pTcpSocket != pField; }));
    EXPECT_EQ(*server.Clients(97)[0].pTcpSocket, -1);
    EXPECT_EQ(ClientCount(), 1);
    // Another connection can end the session.
    KovaRtspTestClient other;
    ASSERT_TRUE(server.Connect(&other));
    other.SetSession(session);
    EXPECT_EQ(other.Teardown("live").nStatus, 200);
    EXPECT_EQ(server.Clients(97).size(), 0u);
    EXPECT_EQ(ClientCount(), 0);
}

TEST_F(Connection, ResetOfThePeerIsLoggedWithItsError)
{
    client.Close(true);
    ASSERT_TRUE(server.WaitHandlers(0, 5000));
    EXPECT_TRUE(capture.WaitFor(" pHandleRequestProc, " + std::to_string(ECONNRESET) +
                                    "(Connection reset by peer)\n",
                                2000));
}

TEST_F(Connection, ThreadTellsItsLifeAtLevelFour)
{
    RTSP_SetLogLevel(4);
    KovaRtspTestClient other;
    ASSERT_TRUE(server.Connect(&other));
    EXPECT_TRUE(capture.WaitFor(" pHandleRequestProc, Enter thread\n", 2000));
    EXPECT_EQ(other.Exchange("OPTIONS rtsp://h/live RTSP/1.0\r\nCSeq: 1\r\n\r\n").text,
              kOptionsAnswer);
    other.Close();
    EXPECT_TRUE(capture.WaitFor(" pHandleRequestProc, Leave thread\n", 5000));
    EXPECT_NE(capture.Text().find(" pHandleRequestProc, Recv: OPTIONS rtsp://h/live RTSP/1.0\r\n"
                                  "CSeq: 1\r\n\r\n, Len: 43\n\n"),
              std::string::npos);
}

TEST_F(Connection, ThreadWithoutAHandlerOrServerLeaves)
{
    // The thread of the other connection has said what it says at its start.
    EXPECT_EQ(client.Options("live").nStatus, 200);
    RTSP_SetLogLevel(4);
    capture.Clear();
    EXPECT_EQ(pHandleRequestProc(nullptr), nullptr);
    EXPECT_EQ(RequestThreadLines(),
              (std::vector<std::string>{"pHandleRequestProc, Enter thread",
                                        "pHandleRequestProc, Leave thread(pHandler)"}));
    KovaHandlerPair pair(server.Server());
    pair.pHandler->pServer = nullptr;
    capture.Clear();
    EXPECT_EQ(pHandleRequestProc(pair.pHandler), nullptr);
    EXPECT_EQ(RequestThreadLines(),
              (std::vector<std::string>{"pHandleRequestProc, Enter thread",
                                        "pHandleRequestProc, Leave thread(pServer)"}));
    EXPECT_EQ(pair.pHandler->nState.load(), kThreadStopped);
    EXPECT_EQ(pair.pHandler->nSocket.load(), -1);
    EXPECT_TRUE(pair.player.WaitClosed(2000));
}

TEST_F(Connection, CreationNotesBothEnds)
{
    capture.Clear();
    KovaHandlerPair pair(server.Server());
    ASSERT_NE(pair.pHandler, nullptr);
    const KovaRtspServerHandler &handler = *pair.pHandler;
    EXPECT_EQ(capture.Text(),
              "Rtsp Server, Addr: 127.0.0.1, Port: " + std::to_string(handler.nLocalPort) +
                  "\nRtsp Client, Addr: 127.0.0.1, Port: " +
                  std::to_string(pair.player.LocalPort()) + "\n");
    EXPECT_EQ(handler.pServer, server.Server());
    EXPECT_STREQ(handler.szLocalAddr, "127.0.0.1");
    EXPECT_STREQ(handler.szPeerAddr, "127.0.0.1");
    EXPECT_EQ(handler.nPeerPort, pair.player.LocalPort());
    EXPECT_EQ(ntohs(handler.peerAddr.sin_port), pair.player.LocalPort());
    EXPECT_EQ(handler.nState.load(), 0u);
    EXPECT_EQ(handler.nSpare, 0);
    EXPECT_STREQ(handler.szSessionId, "");
    EXPECT_TRUE(std::all_of(handler.recvBuf, handler.recvBuf + sizeof(handler.recvBuf),
                            [](uint8_t nByte) { return nByte == 0; }));
}

TEST_F(Connection, CreationNeedsAServerAndADescriptor)
{
    EXPECT_EQ(KovaRtspServerHandlerCreate(nullptr, 5, {}), nullptr);
    EXPECT_EQ(KovaRtspServerHandlerCreate(server.Server(), 0, {}), nullptr);
    EXPECT_EQ(KovaRtspServerHandlerCreate(server.Server(), -1, {}), nullptr);
    EXPECT_EQ(KovaRtspServerHandlerStart(nullptr), 2);
    EXPECT_EQ(KovaRtspServerHandlerStop(nullptr), 2);
    EXPECT_EQ(KovaRtspServerHandlerDestroy(nullptr), 2);
    EXPECT_EQ(KovaRtspServerAddServerHandler(nullptr, server.Handler(client)), 2);
    EXPECT_EQ(KovaRtspServerAddServerHandler(server.Server(), nullptr), 2);
}

TEST_F(Connection, StopOfAThreadThatNeverStartedDoesNotWait)
{
    for (const uint32_t nState : {0u, 1u}) {
        KovaHandlerPair pair(server.Server());
        pair.pHandler->nState = nState;
        EXPECT_EQ(KovaRtspServerHandlerStop(pair.pHandler), 0);
        EXPECT_EQ(pair.pHandler->nState.load(), kThreadStopped);
        EXPECT_EQ(pair.pHandler->nSocket.load(), -1);
        EXPECT_TRUE(pair.player.WaitClosed(2000));
    }
}

TEST_F(Connection, StopWakesTheThreadThatWaitsForARequest)
{
    KovaHandlerPair pair(server.Server());
    KovaRtspServerHandler *pHandler = pair.pHandler;
    pHandler->nState = kThreadRunning;
    std::chrono::steady_clock::duration waited = {};
    std::thread body([&] { // as the thread, but for its patience
        const auto begin = std::chrono::steady_clock::now();
        KovaTcpChannelWaitReadable(pHandler->pChannel, 20000);
        waited = std::chrono::steady_clock::now() - begin;
        pHandler->nState = kThreadStopped;
    });
    usleep(20000);
    EXPECT_EQ(KovaRtspServerHandlerStop(pHandler), 0);
    body.join();
    EXPECT_LT(waited, std::chrono::seconds(19));
}

TEST_F(Connection, HasOneThreadHoweverOftenItIsStarted)
{
    const KovaHandlerPair pair(server.Server());
    const auto threads = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
    };
    const std::ptrdiff_t nBefore = threads();
    for (int nTurn = 0; nTurn < 3; nTurn++) {
        ASSERT_EQ(KovaRtspServerHandlerStart(pair.pHandler), 0);
        EXPECT_EQ(pair.pHandler->nState, 2);
        EXPECT_EQ(threads(), nBefore + 1);
    }
    EXPECT_EQ(KovaRtspServerHandlerStop(pair.pHandler), 0);
    EXPECT_EQ(pair.pHandler->nState, 4);
    EXPECT_TRUE(KovaWaitUntil(2000, [&] { return threads() == nBefore; }));
}

TEST_F(Connection, StopEndsTheThreadAndLeavesTheHandler)
{
    KovaHandlerPair pair(server.Server());
    ASSERT_EQ(KovaRtspServerAddServerHandler(server.Server(), pair.pHandler), 0);
    ASSERT_EQ(KovaRtspServerHandlerStart(pair.pHandler), 0);
    EXPECT_EQ(pair.player.Options("live").nStatus, 200);
    EXPECT_NE(fcntl(pair.pHandler->nSocket.load(), F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(KovaRtspServerRemoveServerHandler(server.Server(), pair.pHandler), 0);
    EXPECT_EQ(KovaRtspServerHandlerStop(pair.pHandler), 0);
    EXPECT_EQ(pair.pHandler->nState.load(), kThreadStopped);
    EXPECT_EQ(pair.pHandler->nSocket.load(), -1);
    EXPECT_TRUE(pair.player.WaitClosed(2000));
    EXPECT_EQ(server.HandlerCount(), 1u);
}

TEST_F(Connection, RemoveAllEndsEveryConnection)
{
    KovaRtspTestClient other;
    ASSERT_TRUE(server.Connect(&other));
    EXPECT_EQ(server.HandlerCount(), 2u);
    KovaRtspServerRemoveAllServerHandler(server.Server());
    EXPECT_EQ(server.HandlerCount(), 0u);
    EXPECT_TRUE(client.WaitClosed(2000));
    EXPECT_TRUE(other.WaitClosed(2000));
}

TEST_F(Connection, ResponseIsSentWhole)
{
    KovaHandlerPair pair(server.Server());
    EXPECT_EQ(RequestResponseSend(pair.pHandler, "abc\r\n\r\n", 7), 1);
    EXPECT_EQ(pair.player.Receive().text, "abc\r\n\r\n");
    EXPECT_EQ(RequestResponseSend(pair.pHandler, "abc", 0), 1);
    EXPECT_TRUE(pair.player.IsSilent(20));
}

TEST_F(Connection, ResponseThatMeetsAFullSocketIsCut)
{
    KovaHandlerPair pair(server.Server());
    const int nSocket = pair.pHandler->nSocket.load();
    fcntl(nSocket, F_SETFL, fcntl(nSocket, F_GETFL) | O_NONBLOCK);
    const std::string filler(64 << 20, 'f');
    capture.Clear();
    EXPECT_EQ(
        RequestResponseSend(pair.pHandler, filler.data(), static_cast<int32_t>(filler.size())), 0);
    EXPECT_EQ(capture.Text(),
              "RequestResponseSend, Send Error: 11(Resource temporarily unavailable)\n");
    EXPECT_NE(pair.pHandler->nSocket.load(), -1);
}

TEST_F(Connection, ResponseToALostPeerRaisesNoSignal)
{
    KovaHandlerPair pair(server.Server());
    pair.player.Close(true);
    EXPECT_TRUE(
        KovaWaitUntil(2000, [&] { return RequestResponseSend(pair.pHandler, "abc", 3) == 0; }));
    capture.Clear();
    EXPECT_EQ(RequestResponseSend(pair.pHandler, "abc", 3), 0); // EPIPE
    EXPECT_EQ(capture.Text(), "RequestResponseSend, Send Error: 32(Broken pipe)\n");
    KovaRtspServerHandlerStop(pair.pHandler);
    capture.Clear();
    EXPECT_EQ(RequestResponseSend(pair.pHandler, "abc", 3), 0);
    EXPECT_EQ(capture.Text(), "RequestResponseSend, Send Error: 9(Bad file descriptor)\n");
}

} // namespace
