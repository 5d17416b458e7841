#include "classic/server/listener.h"
#include "classic/server/session_registry.h"
#include "tests/protocol/handler_pair.h"
#include "tests/protocol/protocol_fixture.h"
#include "tests/support/failing_heap.h"

#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using ConnectionEnd = ProtocolTest;

void Push(KovaRtspStreamer *pStream, const std::string &unit, uint32_t nTimestamp)
{
    KovaPush(pStream, 97, unit, nTimestamp);
}

TEST_F(ConnectionEnd, HandlerThatCannotBeMadeOrRegisteredIsClosed)
{
    bool bAdded = false;
    for (int nGood = 0; nGood < 10 && !bAdded; nGood++) {
        const int nBefore = KovaOpenDescriptors();
        KovaRtspTestClient player;
        sockaddr_in peer = {};
        const int nSocket = KovaAcceptPlayer(&player, &peer);
        ASSERT_GT(nSocket, 0);
        int32_t nResult = 0;
        {
            const KovaFailingHeap heap(nGood);
            nResult = AddNewRtspHandler(server.Server(), nSocket, peer);
        }
        bAdded = nResult == 0;
        EXPECT_EQ(server.HandlerCount(), bAdded ? 2u : 1u);
        if (bAdded)
            continue;
        EXPECT_EQ(nResult == 2, nGood < 3) << nGood;
        EXPECT_TRUE(player.WaitClosed(2000)) << nGood;
        EXPECT_EQ(KovaOpenDescriptors(), nBefore + 1) << nGood;
    }
    EXPECT_TRUE(bAdded);
    EXPECT_EQ(Answer("OPTIONS rtsp://h/live RTSP/1.0"), kOptionsAnswer);
}

TEST_F(ConnectionEnd, HandlerWithoutAServerIsClosed)
{
    KovaRtspTestClient player;
    sockaddr_in peer = {};
    const int nSocket = KovaAcceptPlayer(&player, &peer);
    EXPECT_EQ(AddNewRtspHandler(nullptr, nSocket, peer), 2);
    EXPECT_TRUE(player.WaitClosed(2000));
}

TEST_F(ConnectionEnd, ClientsOfAClosedConnectionSeeMinusOneAndSendNowhere)
{
    ASSERT_TRUE(server.PushReady(1000));
    ASSERT_EQ(client.SetupTcp("live", 97, 0).nStatus, 200);
    ASSERT_EQ(client.Play("live").nStatus, 200);
    const int nOld = server.Handler(client)->nSocket.load();
    client.Close();
    ASSERT_TRUE(server.WaitHandlers(0, 5000));
    // Until all numbers below are in use, new descriptors take the old number.
    int pairs[8][2];
    bool bReused = false;
    for (auto &pair : pairs) {
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
        bReused = bReused || pair[0] == nOld || pair[1] == nOld;
    }
    EXPECT_TRUE(bReused);
    capture.Clear();
    Push(server.Stream(), KovaTestKeyFrame(5000), 1040);
    EXPECT_TRUE(
        capture.WaitFor("pSenderProc, Send RTP Packet fail, Error: 9(Bad file descriptor)", 5000));
    for (const auto &pair : pairs) {
        for (const int nEnd : pair) {
            char nByte = 0;
            EXPECT_EQ(recv(nEnd, &nByte, 1, MSG_DONTWAIT), -1);
            EXPECT_EQ(errno, EAGAIN);
        }
    }
    for (const auto &pair : pairs) {
        EXPECT_EQ(close(pair[0]), 0);
        EXPECT_EQ(close(pair[1]), 0);
    }
}

TEST_F(ConnectionEnd, BrokenPlayingSessionLowersTheCountOnce)
{
    ASSERT_TRUE(server.PushReady(1000));
    ASSERT_EQ(client.SetupTcp("live", 96, 0).nStatus, 200);
    ASSERT_EQ(client.SetupTcp("live", 97, 2).nStatus, 200);
    ASSERT_EQ(client.Play("live").nStatus, 200);
    EXPECT_EQ(ClientCount(), 1);
    client.Close(true);
    ASSERT_TRUE(server.WaitHandlers(0, 5000));
    const std::string audio = KovaTestAacFrame(20);
    for (uint32_t nFrame = 0; nFrame < 5; nFrame++) {
        Push(server.Stream(), KovaTestKeyFrame(100), 1040 + nFrame * 40);
        KovaPush(server.Stream(), 96, audio, 1040 + nFrame * 40);
    }
    EXPECT_TRUE(KovaWaitUntil(8000, [&] {
        return server.Clients(96).size() + server.Clients(97).size() + server.SessionCount() == 0;
    }));
    EXPECT_TRUE(KovaWaitUntil(2000, [&] { return ClientCount() == 0; }));
    usleep(100000); // a second track that lowers it once more would have done so by now
    EXPECT_EQ(ClientCount(), 0);
}

TEST(StartedServer, ManyPlayersOfOneSecondPlayAndLeave)
{
    KovaStdoutCapture capture;
    KovaTestServer server({"live", 1000, true});
    ASSERT_TRUE(server.IsUp());
    const int nBefore = KovaOpenDescriptors();
    {
        std::vector<std::unique_ptr<KovaRtspTestClient>> players;
        for (int i = 0; i < 50; i++) {
            players.push_back(std::make_unique<KovaRtspTestClient>());
            ASSERT_TRUE(players.back()->Connect(server.Port()));
        }
        for (auto &pPlayer : players) {
            ASSERT_EQ(pPlayer->SetupUdp("live", 96, 5000).nStatus, 200);
            ASSERT_EQ(pPlayer->SetupTcp("live", 97, 0).nStatus, 200);
            ASSERT_EQ(pPlayer->Play("live").nStatus, 200);
        }
        EXPECT_EQ(server.SessionCount(), 50u);
        EXPECT_EQ(server.Stream()->nClientCount.load(), 50);
        for (auto &pPlayer : players)
            EXPECT_EQ(pPlayer->Teardown("live").nStatus, 200);
    }
    EXPECT_TRUE(server.WaitHandlers(0, 5000));
    EXPECT_EQ(server.SessionCount(), 0u);
    EXPECT_EQ(server.Stream()->nClientCount.load(), 0);
    EXPECT_TRUE(KovaWaitUntil(2000, [&] { return KovaOpenDescriptors() == nBefore; }));
}

} // namespace
