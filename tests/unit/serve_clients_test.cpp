#include "classic/rtp/send_group.h"
#include "classic/server/server.h"
#include "foundation/log.h"
#include "tests/support/delivery.h"
#include "tests/support/fake_clock.h"
#include "tests/support/net_ends.h"
#include "tests/support/socket_faults.h"
#include "tests/support/stdout_capture.h"
#include "tests/unit/sleep_shim.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <ctime>
#include <deque>

/// How a group's thread shares its clients with those who need them.
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

struct ServeClientsTest : testing::Test {
    KovaFakeClock clock;
    KovaSocketFaults faults;
    KovaStdoutCapture capture;
    KovaDelivery delivery;
    KovaRtpSendGroup *pGroup = delivery.Group();
    KovaTcpEnds tcp;
    KovaUdpEnds udp;

    /// Adds clients that have set up a track and do not play.
    void AddWaiting(int nCount)
    {
        for (int n = 0; n < nCount; n++)
            KovaRtpSendGroupAddRtpClient(
                pGroup, KovaRtpClientCreate("1", 0, 0, 0, 0, {}, 1, nullptr, 0, 1, 0, 0));
    }

    /// Takes the last client out of the group. Its node is kept: who still follows the
    /// link is seen by what it sends.
    KovaList *UnlinkLast()
    {
        KovaList *pNode = nullptr;
        delivery.WithClients([&] {
            pNode = KovaListLast(pGroup->pClientList);
            pGroup->pClientList = KovaListRemoveLink(pGroup->pClientList, pNode);
        });
        return pNode;
    }

    /// Queues a packet and waits until the thread has met a waiting client.
    void BeginPacket()
    {
        capture.Clear();
        delivery.Queue({1});
        ASSERT_EQ(KovaRtpSendGroupStart(pGroup), 0);
        ASSERT_TRUE(capture.WaitFor("Client Waiting !!!", 5000));
    }

    bool Queued()
    {
        pthread_mutex_lock(&pGroup->packetMutex.native);
        const bool bQueued = pGroup->pPacketList != nullptr;
        pthread_mutex_unlock(&pGroup->packetMutex.native);
        return bQueued;
    }
};

TEST_F(ServeClientsTest, WaitingClientCostsAMillisecondForEachPacket)
{
    AddWaiting(200);
    const Clock::time_point begin = Clock::now();
    ASSERT_TRUE(delivery.Send({1}));
    ASSERT_TRUE(delivery.Send({2}));
    EXPECT_GE(Clock::now() - begin, milliseconds(400));
}

TEST_F(ServeClientsTest, ClientThatIsGoneCostsItsMillisecondToo)
{
    AddWaiting(200);
    delivery.WithClients([this] {
        for (KovaList *pNode = pGroup->pClientList; pNode != nullptr; pNode = pNode->next)
            static_cast<KovaRtpClient *>(pNode->data)->nState = kClientGone;
    });
    const Clock::time_point begin = Clock::now();
    ASSERT_TRUE(delivery.Send({1}));
    EXPECT_GE(Clock::now() - begin, milliseconds(200));
    EXPECT_EQ(KovaRtpSendGroupClientCount(pGroup), 0U);
}

TEST_F(ServeClientsTest, ThreadThatHasNothingToSendSleeps)
{
    ASSERT_TRUE(delivery.Send({1}));
    const clock_t before = std::clock(); // of the whole process
    usleep(500000);
    EXPECT_LT(std::clock() - before, CLOCKS_PER_SEC / 20) << "of the processor's half second";
}

TEST_F(ServeClientsTest, NobodyIsLockedOutWhileWaitingClientsArePaidFor)
{
    AddWaiting(6000);
    BeginPacket();
    KovaClientLock{pGroup};
    usleep(100000);
    EXPECT_TRUE(Queued()) << "all six seconds had passed before";
    EXPECT_EQ(KovaRtpSendGroupStop(pGroup), 0); // which ends them
}

TEST_F(ServeClientsTest, ClientThatIsGoneIsRemovedBeforeTheOthersArePaidFor)
{
    AddWaiting(6000);
    KovaRtpClient *pGone = delivery.Add(tcp.Client("2"), 2);
    BeginPacket();
    EXPECT_TRUE(KovaWaitUntil([&] { return !delivery.Has(pGone); }));
    usleep(100000);
    EXPECT_TRUE(Queued()) << "all six seconds had passed before";
    EXPECT_EQ(KovaRtpSendGroupStop(pGroup), 0);
}

TEST_F(ServeClientsTest, StopIsSeenInTheMiddleOfThePay)
{
    AddWaiting(20000);
    BeginPacket();
    const Clock::time_point begin = Clock::now();
    pGroup->nState = 3; // without a wake
    EXPECT_TRUE(KovaWaitUntil(15000, [this] { return pGroup->nState == 4; }));
    EXPECT_LT(Clock::now() - begin, milliseconds(15000));
    EXPECT_FALSE(Queued());
}

TEST_F(ServeClientsTest, NeighbourThatIsRemovedDuringTheWaitForAFullSocketIsNotServed)
{
    delivery.Add(tcp.Client("1"));
    KovaRtpClient *pNeighbour = delivery.Add(udp.Client("2"));
    ASSERT_TRUE(delivery.Send({1}));
    EXPECT_NE(udp.Rtp(2000), std::nullopt);
    faults.Script(tcp.Socket(), std::deque<KovaScriptedSend>(100000, {EAGAIN}));
    delivery.Queue({2});
    ASSERT_TRUE(KovaWaitUntil([this] { return faults.Left() < 99998; }));
    KovaList *pNode = UnlinkLast();
    ASSERT_EQ(pNode->data, pNeighbour);
    faults.Script(tcp.Socket(), {});
    ASSERT_TRUE(delivery.Drain());
    EXPECT_EQ(udp.Rtp(50), std::nullopt);
    KovaListFree(pNode);
    KovaRtpClientDestroy(pNeighbour);
}

/// The session registry is held, so the thread comes to a halt between two clients.
TEST_F(ServeClientsTest, NeighbourThatIsRemovedWhileASessionIsRefreshedIsNotServed)
{
    KovaUdpEnds other;
    delivery.Add(udp.Client("1"));
    KovaRtpClient *pNeighbour = delivery.Add(other.Client("2"));
    udp.SendRtcp({0x81, 201, 0, 1});
    RTSP_SetLogLevel(4);
    pthread_mutex_lock(&delivery.pServer->mtxSession.native);
    delivery.Queue({1});
    ASSERT_EQ(KovaRtpSendGroupStart(pGroup), 0);
    EXPECT_TRUE(capture.WaitFor("UpdateSession", 5000));
    KovaList *pNode = UnlinkLast();
    pthread_mutex_unlock(&delivery.pServer->mtxSession.native);
    EXPECT_TRUE(delivery.Drain());
    EXPECT_NE(udp.Rtp(2000), std::nullopt);
    EXPECT_EQ(other.Rtp(50), std::nullopt);
    KovaListFree(pNode);
    KovaRtpClientDestroy(pNeighbour);
}

TEST_F(ServeClientsTest, NeighbourThatIsRemovedWhileAPlayerIsGivenUpIsNotServed)
{
    KovaUdpEnds other;
    delivery.Add(udp.Client("1"), kClientGone);
    KovaRtpClient *pNeighbour = delivery.Add(other.Client("2"));
    pthread_mutex_lock(&delivery.pServer->mtxSession.native);
    delivery.Queue({1});
    ASSERT_EQ(KovaRtpSendGroupStart(pGroup), 0);
    EXPECT_TRUE(KovaWaitUntil([this] { return !KovaIsOpen(udp.nServerRtp); }));
    KovaList *pNode = UnlinkLast();
    pthread_mutex_unlock(&delivery.pServer->mtxSession.native);
    EXPECT_TRUE(delivery.Drain());
    EXPECT_EQ(other.Rtp(50), std::nullopt);
    KovaListFree(pNode);
    KovaRtpClientDestroy(pNeighbour);
}

TEST_F(ServeClientsTest, WhoeverWaitsForTheClientsIsLetInAfterEachBatch)
{
    delivery.Add(udp.Client("1"));
    pGroup->nClientWaiters = 1; // as if somebody came just now
    const KovaSleepCounter sleeps;
    for (uint16_t n = 1; n <= 5; n++)
        delivery.Queue({n, 90000, n * 2000U}); // too far apart for a schedule
    ASSERT_EQ(KovaRtpSendGroupStart(pGroup), 0);
    ASSERT_TRUE(delivery.Drain());
    EXPECT_GE(sleeps.Count(), 5);
    pGroup->nClientWaiters = 0;
}

TEST_F(ServeClientsTest, WhoeverHasHadTheClientsDelaysNothingAnyMore)
{
    delivery.Add(udp.Client("1"));
    KovaClientLock{pGroup};
    EXPECT_EQ(pGroup->nClientWaiters, 0U);
    const KovaSleepCounter sleeps;
    for (uint16_t n = 1; n <= 5; n++)
        delivery.Queue({n});
    ASSERT_EQ(KovaRtpSendGroupStart(pGroup), 0);
    ASSERT_TRUE(delivery.Drain());
    EXPECT_EQ(sleeps.Count(), 0);
}

TEST_F(ServeClientsTest, PacketIsTheLastOneTakenWhileItIsStillHeldBack)
{
    clock.Fix(1900000000000000);
    delivery.Add(udp.Client("1"));
    ASSERT_TRUE(delivery.Send({1, 1111, 500}));  // makes the schedule
    ASSERT_TRUE(delivery.Send({2, 1111, 1000})); // is compared with
    EXPECT_NE(udp.Rtp(2000), std::nullopt);
    EXPECT_NE(udp.Rtp(2000), std::nullopt);
    delivery.Queue({3, 2222, 1500});
    EXPECT_TRUE(KovaWaitUntil([this] { return delivery.pSender->nLastSequence == 3; }));
    EXPECT_EQ(delivery.pSender->nLastTimestamp, 2222U);
    EXPECT_EQ(udp.Rtp(50), std::nullopt); // the clock stands still
    clock.Advance(3000000);
    ASSERT_TRUE(delivery.Drain());
    EXPECT_NE(udp.Rtp(2000), std::nullopt);
}

} // namespace
