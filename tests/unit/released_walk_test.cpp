#include "classic/server/server.h"
#include "foundation/log.h"
#include "tests/support/delivery.h"
#include "tests/support/net_ends.h"
#include "tests/support/stdout_capture.h"

#include <gtest/gtest.h>

#include <pthread.h>

/// What a sending thread makes of its clients after it had let go of them for a
/// call up to the server.
namespace {

const char *const kId = "12345678901";

struct ReleasedWalkTest : testing::Test {
    KovaStdoutCapture capture;
    KovaDelivery delivery;
    KovaUdpEnds udp;
    KovaUdpEnds behind;
    KovaRtpClient *pClient = nullptr;
    KovaRtpClient *pNeighbour = nullptr;

    /// Both get the first packet.
    void SetUp() override
    {
        delivery.AddSession(kId);
        pClient = delivery.Add(udp.Client(kId));
        pNeighbour = delivery.Add(behind.Client("2"));
        ASSERT_TRUE(delivery.Send({1}));
        ASSERT_EQ(udp.Rtp(2000), KovaPacketBytes({1}));
        ASSERT_EQ(behind.Rtp(2000), KovaPacketBytes({1}));
        RTSP_SetLogLevel(4);
        capture.Clear();
    }

    /// Runs an action while the thread, with the second packet for the first client, waits for
    /// the sessions, and lets it go on.
    void WhileItWaits(const std::function<bool()> &waits, const std::function<void()> &action)
    {
        pthread_mutex_lock(&delivery.pServer->mtxSession.native);
        delivery.Queue({2});
        EXPECT_TRUE(KovaWaitUntil(waits));
        action();
        pthread_mutex_unlock(&delivery.pServer->mtxSession.native);
        EXPECT_TRUE(delivery.Drain());
    }

    bool Refreshes()
    {
        return capture.Text().find("UpdateSession") != std::string::npos;
    }

    /// Takes a client out and keeps it: whoever still follows the link is seen by
    /// what it sends.
    KovaList *Unlink(const KovaRtpClient *pWanted)
    {
        KovaRtpSendGroup *pGroup = delivery.Group();
        KovaList *pNode = nullptr;
        delivery.WithClients([&] {
            pNode = pGroup->pClientList;
            while (pNode->data != pWanted)
                pNode = pNode->next;
            pGroup->pClientList = KovaListRemoveLink(pGroup->pClientList, pNode);
        });
        return pNode;
    }
};

TEST_F(ReleasedWalkTest, NeighbourThatIsRemovedDuringARefreshIsNotServed)
{
    KovaList *pNode = nullptr;
    udp.SendRtcp({0x81, 201, 0, 1});
    WhileItWaits([this] { return Refreshes(); }, [&] { pNode = Unlink(pNeighbour); });
    EXPECT_EQ(udp.Rtp(2000), KovaPacketBytes({2}));
    EXPECT_EQ(behind.Rtp(50), std::nullopt);
    KovaListFree(pNode);
    KovaRtpClientDestroy(pNeighbour);
}

TEST_F(ReleasedWalkTest, ClientThatIsRemovedDuringItsRefreshGetsNothingMore)
{
    KovaList *pNode = nullptr;
    udp.SendRtcp({0x81, 201, 0, 1});
    WhileItWaits([this] { return Refreshes(); }, [&] { pNode = Unlink(pClient); });
    EXPECT_EQ(behind.Rtp(2000), KovaPacketBytes({2}));
    EXPECT_EQ(udp.Rtp(50), std::nullopt);
    KovaListFree(pNode);
    KovaRtpClientDestroy(pClient);
}

TEST_F(ReleasedWalkTest, NeighbourThatIsRemovedWhileALostSessionEndsIsNotServed)
{
    KovaList *pNode = nullptr;
    delivery.WithClients([this] { pClient->nState = kClientGone; });
    WhileItWaits([this] { return !delivery.Has(pClient); }, [&] { pNode = Unlink(pNeighbour); });
    EXPECT_EQ(behind.Rtp(50), std::nullopt);
    KovaListFree(pNode);
    KovaRtpClientDestroy(pNeighbour);
}

} // namespace
