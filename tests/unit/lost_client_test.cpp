#include "classic/server/session_registry.h"
#include "foundation/log.h"
#include "tests/support/delivery.h"
#include "tests/support/net_ends.h"
#include "tests/support/socket_faults.h"
#include "tests/support/stdout_capture.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <deque>
#include <string>
#include <vector>

/// Players that take nothing for a while, and players whose connection breaks.
namespace {

using Texts = std::vector<std::string>;
const char *const kId = "12345678901";

struct LostClientTest : testing::Test {
    KovaSocketFaults faults;
    KovaStdoutCapture capture;
    KovaDelivery delivery;
    KovaTcpEnds tcp;
    KovaUdpEnds udp;

    /// An interleaved client that has had its first packet.
    KovaRtpClient *Playing(const char *szId = kId)
    {
        KovaRtpClient *pClient = delivery.Add(tcp.Client(szId));
        EXPECT_TRUE(delivery.Send({1}));
        EXPECT_EQ(tcp.Receive(76, 2000).size(), 76U); // report and packet
        capture.Clear();
        return pClient;
    }

    int32_t State(KovaRtpClient *pClient)
    {
        int32_t nState = -1;
        delivery.WithClients([&] { nState = pClient->nState; });
        return nState;
    }

    /// Queues a packet for a client whose socket takes nothing, for 5 s at
    /// least; returns when its thread waits.
    void Stick(uint16_t nSequence)
    {
        faults.Script(tcp.Socket(), std::deque<KovaScriptedSend>(kTries, {EAGAIN}));
        delivery.Queue({nSequence, 0, 1000, kFrameKey, 1400});
        EXPECT_TRUE(KovaWaitUntil([this] { return faults.Left() < kTries - 2; }));
    }

    void Unstick()
    {
        faults.Script(tcp.Socket(), {});
    }

    static constexpr size_t kTries = 5000;
};

TEST_F(LostClientTest, FullConnectionIsTriedAgain)
{
    KovaRtpClient *pClient = Playing();
    faults.Script(tcp.Socket(), {{EAGAIN}, {EINTR}, {0, 10}, {EAGAIN}, {0, 5}});
    ASSERT_TRUE(delivery.Send({2}));
    EXPECT_EQ(faults.Left(), 0U);
    EXPECT_EQ(tcp.Receive(1000, 50), KovaFrameOf(0, KovaPacketBytes({2})));
    EXPECT_EQ(capture.Text(), "");
    delivery.WithClients([&] {
        EXPECT_EQ(pClient->nPacketCount, 2U);
        EXPECT_EQ(pClient->nOctetCount, 80U);
    });
}

TEST_F(LostClientTest, OtherErrorIsLoggedAndTheConnectionGoesOn)
{
    KovaRtpClient *pClient = Playing();
    RTSP_SetLogLevel(1);
    const int nSocket = tcp.Socket();
    faults.Script(nSocket, {{EPIPE}, {ETIMEDOUT}});
    ASSERT_TRUE(delivery.Send({2}));
    ASSERT_TRUE(delivery.Send({3}));
    EXPECT_EQ(capture.Messages(),
              (Texts{"pSenderProc, Send RTP Packet fail, Error: 32(Broken pipe)",
                     "pSenderProc, Send RTP Packet fail, Error: " + std::to_string(ETIMEDOUT) +
                         "(Connection timed out)"}));
    EXPECT_EQ(State(pClient), 1);
    EXPECT_EQ(tcp.Socket(), nSocket);
    ASSERT_TRUE(delivery.Send({4}));
    EXPECT_EQ(tcp.Receive(1000, 50), KovaFrameOf(0, KovaPacketBytes({4})));
    delivery.WithClients([&] { EXPECT_EQ(pClient->nPacketCount, 2U); });
}

TEST_F(LostClientTest, ResetClosesTheConnectionAndRemovesClientSessionAndCount)
{
    delivery.AddSession(kId);
    delivery.pStream->nClientCount = 5;
    KovaRtpClient *pClient = Playing();
    RTSP_SetLogLevel(1);
    const int nSocket = tcp.Socket();
    faults.Script(nSocket, {{ECONNRESET}});
    ASSERT_TRUE(delivery.Send({2}));
    EXPECT_EQ(capture.Messages(), Texts{"pSenderProc, Send RTP Packet fail, Error: " +
                                        std::to_string(ECONNRESET) + "(Connection reset by peer)"});
    EXPECT_EQ(State(pClient), 2);
    EXPECT_EQ(tcp.Socket(), -1);
    EXPECT_FALSE(KovaIsOpen(nSocket));
    EXPECT_TRUE(delivery.HasSession(kId));
    EXPECT_EQ(delivery.pStream->nClientCount, 5);
    capture.Clear();
    ASSERT_TRUE(delivery.Send({3}));
    EXPECT_EQ(capture.Text(), "Client Waiting !!!\n");
    EXPECT_FALSE(delivery.Has(pClient));
    EXPECT_FALSE(delivery.HasSession(kId));
    EXPECT_EQ(delivery.pStream->nClientCount, 4);
    ASSERT_TRUE(delivery.Send({4}));
    EXPECT_EQ(delivery.pStream->nClientCount, 4);
}

TEST_F(LostClientTest, ConnectionThatItsHandlerClosedCountsAsLost)
{
    KovaRtpClient *pClient = Playing();
    RTSP_SetLogLevel(1);
    tcp.EndHandler();
    ASSERT_TRUE(delivery.Send({2}));
    EXPECT_EQ(capture.Messages(),
              Texts{"pSenderProc, Send RTP Packet fail, Error: 9(Bad file descriptor)"});
    EXPECT_EQ(State(pClient), 2);
    ASSERT_TRUE(delivery.Send({3}));
    EXPECT_FALSE(delivery.Has(pClient));
}

TEST_F(LostClientTest, RealResetRaisesNoSignalAndEndsTheClient)
{
    KovaRtpClient *pClient = Playing();
    tcp.Reset();
    usleep(10000);
    ASSERT_TRUE(delivery.Send({2}));
    EXPECT_EQ(State(pClient), 2);
    EXPECT_EQ(tcp.Socket(), -1);
    ASSERT_TRUE(delivery.Send({3}));
    EXPECT_FALSE(delivery.Has(pClient));
}

TEST_F(LostClientTest, ClientWithoutARegisteredSessionCountsToo)
{
    delivery.pStream->nClientCount = 1;
    KovaRtpClient *pClient = Playing();
    delivery.WithClients([&] { pClient->nState = 2; });
    ASSERT_TRUE(delivery.Send({2}));
    EXPECT_FALSE(delivery.Has(pClient));
    EXPECT_EQ(delivery.pStream->nClientCount, 0);
}

TEST_F(LostClientTest, SessionCountsOnceHoweverManyTracks)
{
    KovaUdpEnds others[3];
    delivery.AddSession(kId);
    delivery.pStream->nClientCount = 7;
    // Two tracks of one session in this group, one with another sender, and
    // another player.
    delivery.Add(others[0].Client(kId), 2);
    delivery.Add(others[1].Client(kId), 2);
    KovaRtpClient *pOther = delivery.Add(others[2].Client("2"));
    KovaRtpSender *pAudio = KovaRtpSenderCreate(delivery.pStream, 96);
    KovaRtpClient *pTrack = udp.Client(kId);
    pTrack->nState = 2;
    ASSERT_TRUE(KovaRtpSenderPlaceClient(pAudio, pTrack));
    ASSERT_TRUE(delivery.Send({1}));
    EXPECT_EQ(delivery.pStream->nClientCount, 6);
    EXPECT_FALSE(delivery.HasSession(kId));
    EXPECT_TRUE(delivery.Has(pOther));
    EXPECT_FALSE(KovaIsOpen(others[0].nServerRtp));
    EXPECT_FALSE(KovaIsOpen(others[1].nServerRtcp));
    KovaRtpSenderAddRtpPacket(pAudio, KovaMakePacket({1, 0, 1000, kFrameAudio}));
    KovaRtpSenderStart(pAudio);
    EXPECT_TRUE(KovaWaitUntil([this] { return !KovaIsOpen(udp.nServerRtp); }));
    KovaRtpSenderDestory(pAudio);
    EXPECT_EQ(delivery.pStream->nClientCount, 6);
    EXPECT_EQ(others[2].Rtp(), KovaPacketBytes({1}));
}

TEST_F(LostClientTest, SeveralLostClientsLeaveInOnePass)
{
    KovaUdpEnds others[3];
    delivery.pStream->nClientCount = 3;
    delivery.Add(others[0].Client("1"), 2);
    delivery.Add(others[1].Client("2"), 2);
    delivery.Add(others[2].Client("3"));
    ASSERT_TRUE(delivery.Send({1}));
    EXPECT_EQ(delivery.pStream->nClientCount, 1);
    EXPECT_EQ(KovaRtpSendGroupClientCount(delivery.Group()), 1U);
    EXPECT_EQ(others[2].Rtp(), KovaPacketBytes({1}));
    EXPECT_EQ(others[2].Rtp(), std::nullopt);
}

TEST_F(LostClientTest, NobodyIsLockedOutWhileASocketIsFull)
{
    Playing();
    Stick(2);
    // Locks are free, clients come and go, and none gets the packet twice.
    for (int n = 0; n < 20; n++) {
        KovaUdpEnds ends;
        KovaRtpClient *pClient = delivery.Add(ends.Client("7"));
        EXPECT_TRUE(delivery.Has(pClient));
        KovaRtpSendGroupRemoveRtpClient(delivery.Group(), pClient);
        KovaRtpClientDestroy(pClient);
    }
    EXPECT_GT(faults.Left(), 0U);
    KovaRtpClient *pLater = delivery.Add(udp.Client("7"));
    usleep(5000);
    EXPECT_EQ(udp.Rtp(), std::nullopt); // it starts with the next packet
    Unstick();
    ASSERT_TRUE(delivery.Drain());
    EXPECT_EQ(udp.Rtp(), std::nullopt);
    ASSERT_TRUE(delivery.Send({3}));
    EXPECT_EQ(udp.Rtp(), KovaPacketBytes({3}));
    EXPECT_TRUE(delivery.Has(pLater));
}

TEST_F(LostClientTest, StopRequestEndsTheWaitForAFullSocket)
{
    Playing();
    Stick(2);
    const auto nStarted = std::chrono::steady_clock::now();
    EXPECT_EQ(KovaRtpSendGroupStop(delivery.Group()), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - nStarted, std::chrono::seconds(3));
    EXPECT_GT(faults.Left(), 0U);
    EXPECT_EQ(delivery.Group()->pPacketList, nullptr);
}

TEST_F(LostClientTest, ClientRemovedDuringTheWaitIsForgotten)
{
    KovaRtpClient *pClient = Playing();
    Stick(2);
    KovaRtpSendGroupRemoveRtpClient(delivery.Group(), pClient);
    EXPECT_TRUE(delivery.Drain());
    EXPECT_GT(faults.Left(), 0U);
    KovaRtpClientDestroy(pClient);
}

TEST_F(LostClientTest, ClientThatTakesTheAddressOfARemovedOneGetsNoOldPacket)
{
    KovaRtpClient *pClient = Playing();
    Stick(2);
    // The same record, as if freed and made again: a new member with free sockets.
    delivery.WithClients([&] {
        KovaListTake(&delivery.Group()->pClientList, nullptr, pClient);
        pClient->bInterleaved = 0;
        pClient->nRtpSocket = udp.nServerRtp;
        pClient->nRtcpSocket = udp.nServerRtcp;
        KovaRtpClient *pModel =
            KovaRtpClientCreate("7", 0, 0, udp.nRtpPort, udp.nRtcpPort, {}, 0, nullptr, 0, 0, 0, 0);
        pClient->rtpAddress = pModel->rtpAddress;
        pClient->rtpAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        pClient->rtcpAddress = pModel->rtcpAddress;
        pClient->rtcpAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        KovaRtpClientDestroy(pModel);
        // As KovaRtpSendGroupTakeClient() does, under the lock that is held here.
        pClient->nPass = delivery.Group()->nPass;
        pClient->nSerial = ++delivery.Group()->nLastSerial;
        ASSERT_TRUE(KovaListPush(&delivery.Group()->pClientList, pClient));
    });
    ASSERT_TRUE(delivery.Drain());
    EXPECT_EQ(udp.Rtp(50), std::nullopt);
    ASSERT_TRUE(delivery.Send({3}));
    EXPECT_EQ(udp.Rtp(2000), KovaPacketBytes({3}));
}

TEST_F(LostClientTest, TheOthersOfTheGroupGetThePacketAfterTheWait)
{
    Playing();
    KovaUdpEnds behind;
    delivery.Add(behind.Client("2"));
    Stick(2);
    EXPECT_EQ(behind.Rtp(), std::nullopt);
    KovaRtpSendGroupStop(delivery.Group());
    EXPECT_EQ(behind.Rtp(2000), KovaPacketBytes({2, 0, 1000, kFrameKey, 1400}));
    EXPECT_EQ(behind.Rtp(), std::nullopt);
}

TEST_F(LostClientTest, LaterReportIsFinishedBeforeThePacket)
{
    KovaRtpClient *pClient = Playing();
    delivery.WithClients([&] { pClient->nLastRtcpTime = 0; });
    faults.Script(tcp.Socket(), {{0, 7}, {EAGAIN}, {EAGAIN}});
    ASSERT_TRUE(delivery.Send({2}));
    EXPECT_EQ(capture.Text(), "");
    const KovaBytes all = tcp.Receive(1000, 50);
    ASSERT_EQ(all.size(), 32U + 44U);
    EXPECT_EQ(KovaBytes(all.begin(), all.begin() + 6), (KovaBytes{0x24, 1, 0, 28, 0x80, 200}));
    EXPECT_EQ(KovaBytes(all.begin() + 32, all.end()), KovaFrameOf(0, KovaPacketBytes({2})));
}

TEST_F(LostClientTest, SessionIsRemovedWithoutTheGroupsLock)
{
    // Somebody who holds the session registry and wants the group's clients, as
    // the monitor does, must not meet the sending thread the other way round.
    delivery.AddSession(kId);
    delivery.Add(udp.Client(kId), 2);
    pthread_mutex_lock(&delivery.pServer->mtxSession.native);
    delivery.Queue({1});
    KovaRtpSendGroupStart(delivery.Group());
    EXPECT_TRUE(KovaWaitUntil([this] { return !KovaIsOpen(udp.nServerRtp); }));
    usleep(5000);
    EXPECT_EQ(pthread_mutex_trylock(&delivery.Group()->clientMutex.native), 0);
    pthread_mutex_unlock(&delivery.Group()->clientMutex.native);
    pthread_mutex_unlock(&delivery.pServer->mtxSession.native);
    EXPECT_TRUE(delivery.Drain());
    EXPECT_FALSE(delivery.HasSession(kId));
}

TEST_F(LostClientTest, SessionIsRefreshedWithoutTheGroupsLock)
{
    delivery.AddSession(kId);
    delivery.Add(udp.Client(kId));
    udp.SendRtcp({0x81, 201, 0, 1});
    RTSP_SetLogLevel(4);
    pthread_mutex_lock(&delivery.pServer->mtxSession.native);
    delivery.Queue({1});
    KovaRtpSendGroupStart(delivery.Group());
    EXPECT_TRUE(capture.WaitFor("UpdateSession", 5000));
    usleep(5000);
    EXPECT_EQ(pthread_mutex_trylock(&delivery.Group()->clientMutex.native), 0);
    pthread_mutex_unlock(&delivery.Group()->clientMutex.native);
    pthread_mutex_unlock(&delivery.pServer->mtxSession.native);
    EXPECT_TRUE(delivery.Drain());
    EXPECT_EQ(udp.Rtp(2000), KovaPacketBytes({1}));
}

} // namespace
