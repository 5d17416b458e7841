#include "tests/fault/fault_bench.h"

#include "classic/rtp/sender.h"
#include "classic/streamer/registries.h"

#include <cerrno>

namespace {

constexpr char kCrowd[] = "00000000000";
constexpr char kLate[] = "11111111111";

/// A sender whose only group is full, and the client that comes next.
class FullGroup : public KovaFaultTest {
protected:
    void SetUp() override
    {
        KovaFaultTest::SetUp();
        ASSERT_TRUE(server.IsUp());
        pSender = KovaRtspStreamerGetRtpSenderByPayloadId(server.Stream(), 96);
        ASSERT_NE(pSender, nullptr);
        for (uint32_t nClient = 0; nClient < kGroupMaxClients; nClient++)
            Place(kCrowd, nullptr);
        ASSERT_EQ(Clients(), kGroupMaxClients);
        before = KovaHoldingsNow();
    }

    void Place(const char *szSessionId, int *pTcpSocket) const
    {
        const KovaInsideLibrary inside;
        KovaRtpSenderAddRtpClient(pSender, szSessionId, 0, 0, 0, 0, sockaddr_in{}, 1, pTcpSocket, 0,
                                  1, 0, 0);
    }

    size_t Clients()
    {
        return KovaTestServer::Clients(server.Stream(), 96).size();
    }

    KovaRtpSendGroup *SecondGroup() const
    {
        const KovaList *pNode = pSender->pSendGroupList->next;
        return pNode != nullptr ? static_cast<KovaRtpSendGroup *>(pNode->data) : nullptr;
    }

    /// Takes the second group away again, with what is in it.
    void DropSecondGroup() const
    {
        KovaRtpSendGroup *pGroup = SecondGroup();
        if (pGroup == nullptr)
            return;
        KovaRtpSenderRemoveRtpSendGroup(pSender, pGroup);
        KovaRtpSendGroupStop(pGroup);
        KovaRtpSendGroupDestory(pGroup);
    }

    KovaTestServer server{{"live", 16, false}};
    KovaRtpSender *pSender = nullptr;
    KovaHoldings before = {};
    int nField = -1; ///< a connection's socket field
};

TEST_F(FullGroup, NextClientIsLostWithoutMemoryAndTheOneAfterItPlaced)
{
    KovaFailEach(kFaultHeap, {ENOMEM}, 40, [&](KovaFaults *pFaults) {
        Place(kLate, &nField);
        pFaults->Stop();
        EXPECT_EQ(Clients(), kGroupMaxClients + (pFaults->Hits() != 0 ? 0 : 1));
        Place(kLate, &nField);
        EXPECT_EQ(Clients(), kGroupMaxClients + (pFaults->Hits() != 0 ? 1 : 2));
        ASSERT_NE(SecondGroup(), nullptr);
        EXPECT_EQ(SecondGroup()->nState, kThreadRunning);
        DropSecondGroup();
        KovaExpectHeld(before);
    });
}

TEST_F(FullGroup, GroupWithoutAThreadGetsItWithTheNextClient)
{
    KovaFailEach(kFaultThread, {EAGAIN}, 4, [&](KovaFaults *pFaults) {
        Place(kLate, &nField);
        pFaults->Stop();
        EXPECT_EQ(Clients(), kGroupMaxClients + 1);
        ASSERT_NE(SecondGroup(), nullptr);
        EXPECT_EQ(SecondGroup()->nState, pFaults->Hits() != 0 ? kThreadStopped : kThreadRunning);
        Place(kLate, &nField);
        EXPECT_EQ(Clients(), kGroupMaxClients + 2);
        EXPECT_EQ(SecondGroup()->nState, kThreadRunning);
        DropSecondGroup();
        EXPECT_EQ(SecondGroup(), nullptr);
    });
}

} // namespace
