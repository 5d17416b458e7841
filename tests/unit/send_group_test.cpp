#include "classic/rtp/send_group.h"
#include "tests/support/delivery.h"
#include "tests/support/failing_heap.h"
#include "tests/support/net_ends.h"
#include "tests/support/stdout_capture.h"
#include "tests/unit/system_shims.h"

#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <iterator>
#include <new>
#include <vector>

namespace {

struct SendGroupTest : testing::Test {
    KovaDelivery delivery;
    KovaRtpSendGroup *pGroup = KovaRtpSendGroupCreate(delivery.pSender);

    ~SendGroupTest() override
    {
        KovaRtpSendGroupDestory(pGroup);
    }

    std::vector<KovaRtpClient *> Clients() const
    {
        std::vector<KovaRtpClient *> clients;
        for (KovaList *pNode = pGroup->pClientList; pNode != nullptr; pNode = pNode->next)
            clients.push_back(static_cast<KovaRtpClient *>(pNode->data));
        return clients;
    }

    std::vector<KovaRtpPacket *> Packets() const
    {
        std::vector<KovaRtpPacket *> packets;
        for (KovaList *pNode = pGroup->pPacketList; pNode != nullptr; pNode = pNode->next)
            packets.push_back(static_cast<KovaRtpPacket *>(pNode->data));
        return packets;
    }

    /// A packet with the test's own reference and nMore.
    static KovaRtpPacket *Packet(int nMore)
    {
        KovaRtpPacket *pPacket = KovaMakePacket({});
        for (int n = 0; n <= nMore; n++)
            KovaRtpPacketAddRef(pPacket);
        return pPacket;
    }
};

std::ptrdiff_t Threads()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}

using ClientList = std::vector<KovaRtpClient *>;
using PacketList = std::vector<KovaRtpPacket *>;

TEST_F(SendGroupTest, StartsEmpty)
{
    EXPECT_EQ(pGroup->pSender, delivery.pSender);
    EXPECT_EQ(pGroup->nState, 0U);
    EXPECT_EQ(pGroup->pPacketList, nullptr);
    EXPECT_EQ(pGroup->pPacketListTail, nullptr);
    EXPECT_EQ(pGroup->pClientList, nullptr);
    EXPECT_EQ(pGroup->nLastPts, 0U);
}

TEST_F(SendGroupTest, IsNotMadeWithoutSenderOrMemory)
{
    EXPECT_EQ(KovaRtpSendGroupCreate(nullptr), nullptr);
    const KovaFailingHeap heap;
    EXPECT_EQ(KovaRtpSendGroupCreate(delivery.pSender), nullptr);
}

TEST_F(SendGroupTest, IgnoresNull)
{
    KovaUdpEnds ends;
    KovaRtpClient *pClient = ends.Client("1");
    KovaRtpPacket *pPacket = Packet(0);
    EXPECT_EQ(KovaRtpSendGroupStart(nullptr), 2);
    EXPECT_EQ(KovaRtpSendGroupStop(nullptr), 2);
    KovaRtpSendGroupDestory(nullptr);
    KovaRtpSendGroupAddRtpClient(nullptr, pClient);
    KovaRtpSendGroupAddRtpClient(pGroup, nullptr);
    KovaRtpSendGroupRemoveRtpClient(nullptr, pClient);
    KovaRtpSendGroupRemoveRtpClient(pGroup, nullptr);
    KovaRtpSendGroupRemoveAllRtpClient(nullptr);
    KovaRtpSendGroupAddRtpPacket(nullptr, pPacket);
    KovaRtpSendGroupAddRtpPacket(pGroup, nullptr);
    KovaRtpSendGroupRemoveRtpPacket(nullptr, pPacket);
    KovaRtpSendGroupRemoveRtpPacket(pGroup, nullptr);
    KovaRtpSendGroupRemoveAllRtpPacket(nullptr);
    EXPECT_EQ(Clients(), ClientList{});
    EXPECT_EQ(Packets(), PacketList{});
    EXPECT_EQ(pPacket->nRefCount, 1);
    KovaRtpPacketReleaseRef(pPacket);
    KovaRtpClientDestroy(pClient);
}

TEST_F(SendGroupTest, StopsAtOnceWhenItNeverRan)
{
    EXPECT_EQ(KovaRtpSendGroupStop(pGroup), 0);
    EXPECT_EQ(pGroup->nState, 4U);
    EXPECT_EQ(KovaRtpSendGroupStop(pGroup), 0);
    EXPECT_EQ(pGroup->nState, 4U);
    pGroup->nState = 1;
    EXPECT_EQ(KovaRtpSendGroupStop(pGroup), 0);
    EXPECT_EQ(pGroup->nState, 4U);
}

TEST_F(SendGroupTest, RunsBetweenStartAndStopAndMayStartAgain)
{
    for (int nTurn = 0; nTurn < 2; nTurn++) {
        EXPECT_EQ(KovaRtpSendGroupStart(pGroup), 0);
        EXPECT_EQ(pGroup->nState, 2U);
        EXPECT_EQ(KovaRtpSendGroupStop(pGroup), 0);
        EXPECT_EQ(pGroup->nState, 4U);
    }
}

TEST_F(SendGroupTest, HasOneThreadHoweverOftenItIsStarted)
{
    const int nBefore = Threads();
    for (int nTurn = 0; nTurn < 3; nTurn++) {
        EXPECT_EQ(KovaRtpSendGroupStart(pGroup), 0);
        EXPECT_EQ(pGroup->nState, 2U);
        EXPECT_EQ(Threads(), nBefore + 1);
    }
    EXPECT_EQ(KovaRtpSendGroupStop(pGroup), 0);
    EXPECT_EQ(pGroup->nState, 4U);
    EXPECT_TRUE(KovaWaitUntil(2000, [&] { return Threads() == nBefore; }));
}

TEST_F(SendGroupTest, CountsAsStoppedWhenItsThreadCannotBeMade)
{
    const KovaFailingCall call(kShimThread, EAGAIN);
    EXPECT_EQ(KovaRtpSendGroupStart(pGroup), 1);
    EXPECT_EQ(call.Failed(), 1);
    EXPECT_EQ(pGroup->nState, 4U);
}

TEST_F(SendGroupTest, KeepsClientsInOrder)
{
    KovaUdpEnds ends[3];
    KovaRtpClient *pFirst = ends[0].Client("1");
    KovaRtpClient *pSecond = ends[1].Client("2");
    KovaRtpClient *pThird = ends[2].Client("3");
    for (KovaRtpClient *pClient : {pFirst, pSecond, pThird})
        KovaRtpSendGroupAddRtpClient(pGroup, pClient);
    EXPECT_EQ(Clients(), (ClientList{pFirst, pSecond, pThird}));
    EXPECT_EQ(KovaRtpSendGroupClientCount(pGroup), 3U);
    KovaRtpSendGroupRemoveRtpClient(pGroup, pSecond);
    EXPECT_EQ(Clients(), (ClientList{pFirst, pThird}));
    EXPECT_TRUE(KovaIsOpen(ends[1].nServerRtp));
    KovaRtpSendGroupRemoveRtpClient(pGroup, pSecond); // no member any more
    EXPECT_EQ(Clients(), (ClientList{pFirst, pThird}));
    KovaRtpClientDestroy(pSecond);
    KovaRtpSendGroupRemoveAllRtpClient(pGroup);
    EXPECT_EQ(Clients(), ClientList{});
    EXPECT_FALSE(KovaIsOpen(ends[0].nServerRtp));
    EXPECT_FALSE(KovaIsOpen(ends[2].nServerRtcp));
}

TEST_F(SendGroupTest, TellsWhenThereIsNoMemoryForAMember)
{
    KovaUdpEnds ends;
    KovaRtpClient *pClient = ends.Client("1");
    KovaRtpPacket *pPacket = Packet(0);
    {
        const KovaFailingHeap heap;
        EXPECT_FALSE(KovaRtpSendGroupTakeClient(pGroup, pClient));
        EXPECT_EQ(KovaRtpSendGroupTakePackets(pGroup, &pPacket, 1), 0U);
    }
    EXPECT_EQ(Clients(), ClientList{});
    EXPECT_EQ(Packets(), PacketList{});
    KovaRtpClientDestroy(pClient);
}

TEST_F(SendGroupTest, KeepsPacketsInOrderWithTheReferenceThatTheyCameWith)
{
    KovaRtpPacket *pFirst = Packet(1);
    KovaRtpPacket *pSecond = Packet(1);
    KovaRtpPacket *pThird = Packet(1);
    for (KovaRtpPacket *pPacket : {pFirst, pSecond, pThird})
        KovaRtpSendGroupAddRtpPacket(pGroup, pPacket);
    EXPECT_EQ(Packets(), (PacketList{pFirst, pSecond, pThird}));
    EXPECT_EQ(pGroup->pPacketListTail->data, pThird);
    EXPECT_EQ(pFirst->nRefCount, 2);
    KovaRtpSendGroupRemoveRtpPacket(pGroup, pThird);
    EXPECT_EQ(Packets(), (PacketList{pFirst, pSecond}));
    EXPECT_EQ(pGroup->pPacketListTail->data, pSecond);
    EXPECT_EQ(pThird->nRefCount, 2);
    KovaRtpSendGroupRemoveAllRtpPacket(pGroup);
    EXPECT_EQ(Packets(), PacketList{});
    EXPECT_EQ(pGroup->pPacketListTail, nullptr);
    EXPECT_EQ(pFirst->nRefCount, 1);
    EXPECT_EQ(pSecond->nRefCount, 1);
    KovaRtpPacketReleaseRef(pThird);
    for (KovaRtpPacket *pPacket : {pFirst, pSecond, pThird})
        KovaRtpPacketReleaseRef(pPacket);
}

TEST_F(SendGroupTest, GivesUpEachQueuedPacketOnceInTheEnd)
{
    KovaRtpPacket *pFirst = Packet(1);
    KovaRtpPacket *pSecond = Packet(1);
    KovaRtpSendGroupAddRtpPacket(pGroup, pFirst);
    KovaRtpSendGroupAddRtpPacket(pGroup, pSecond);
    KovaRtpSendGroupDestory(pGroup);
    pGroup = nullptr;
    EXPECT_EQ(pFirst->nRefCount, 1);
    EXPECT_EQ(pSecond->nRefCount, 1);
    KovaRtpPacketReleaseRef(pFirst);
    KovaRtpPacketReleaseRef(pSecond);
}

TEST_F(SendGroupTest, PacketQueuedTwiceSurvivesTheEndOfOneGroup)
{
    KovaRtpSendGroup *pOther = KovaRtpSendGroupCreate(delivery.pSender);
    KovaRtpPacket *pPacket = Packet(1); // one for each group, none for the test
    KovaRtpSendGroupAddRtpPacket(pGroup, pPacket);
    KovaRtpSendGroupAddRtpPacket(pOther, pPacket);
    KovaRtpSendGroupDestory(pOther);
    EXPECT_EQ(pPacket->nRefCount, 1);
    EXPECT_EQ(Packets(), PacketList{pPacket});
    EXPECT_EQ(KovaBytes(pPacket->pData, pPacket->pData + pPacket->nSize), KovaPacketBytes({}));
}

TEST_F(SendGroupTest, DestroysItsClientsInTheEnd)
{
    KovaUdpEnds ends;
    KovaRtpSendGroupAddRtpClient(pGroup, ends.Client("1"));
    KovaRtpSendGroupDestory(pGroup);
    pGroup = nullptr;
    EXPECT_FALSE(KovaIsOpen(ends.nServerRtp));
    EXPECT_FALSE(KovaIsOpen(ends.nServerRtcp));
}

TEST_F(SendGroupTest, EmptyOneMayOutliveItsSender)
{
    const long nPage = sysconf(_SC_PAGESIZE);
    void *pPage = mmap(nullptr, static_cast<size_t>(nPage), PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(pPage, MAP_FAILED);
    KovaRtpSendGroup *pOrphan = KovaRtpSendGroupCreate(new (pPage) KovaRtpSender());
    KovaRtpPacket *pPacket = Packet(1);
    KovaRtpSendGroupAddRtpPacket(pOrphan, pPacket);
    // Whoever looked at it now would end the process.
    ASSERT_EQ(mprotect(pPage, static_cast<size_t>(nPage), PROT_NONE), 0);
    KovaRtpSendGroupRemoveAllRtpClient(pOrphan);
    KovaRtpSendGroupDestory(pOrphan);
    EXPECT_EQ(pPacket->nRefCount, 1);
    KovaRtpPacketReleaseRef(pPacket);
    munmap(pPage, static_cast<size_t>(nPage));
}

TEST_F(SendGroupTest, StopDoesNotWaitWithWaitingClients)
{
    KovaStdoutCapture capture;
    KovaUdpEnds ends;
    for (int n = 0; n < 300; n++)
        KovaRtpSendGroupAddRtpClient(pGroup, ends.Client("1"));
    for (uint16_t n = 10; n < 110; n++) {
        KovaRtpPacket *pPacket = KovaMakePacket({n});
        KovaRtpPacketAddRef(pPacket);
        KovaRtpSendGroupAddRtpPacket(pGroup, pPacket);
    }
    ASSERT_EQ(KovaRtpSendGroupStart(pGroup), 0);
    EXPECT_TRUE(KovaWaitUntil([this] { return delivery.pSender->nLastSequence == 10; }));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(KovaRtpSendGroupStop(pGroup), 0);
    // With a millisecond for each packet and client it would take half a minute.
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
    EXPECT_EQ(Packets(), PacketList{});
}

TEST_F(SendGroupTest, SendsWhatIsQueuedBeforeItStops)
{
    KovaStdoutCapture capture;
    KovaUdpEnds ends;
    KovaRtpClient *pClient = ends.Client("1");
    pClient->nState = 1;
    KovaRtpSendGroupAddRtpClient(pGroup, pClient);
    KovaRtpPacket *pFirst = Packet(1);
    KovaRtpSendGroupAddRtpPacket(pGroup, pFirst);
    ASSERT_EQ(KovaRtpSendGroupStart(pGroup), 0);
    ASSERT_NE(ends.Rtp(5000), std::nullopt);
    // While the thread cannot serve, packets and then the stop request come.
    std::optional<KovaClientLock> lock(pGroup);
    for (uint16_t n = 10; n < 15; n++) {
        KovaRtpPacket *pPacket = KovaMakePacket({n});
        KovaRtpPacketAddRef(pPacket);
        KovaRtpSendGroupAddRtpPacket(pGroup, pPacket);
    }
    EXPECT_TRUE(KovaWaitUntil([this] { return delivery.pSender->nLastSequence == 10; }));
    pGroup->nState = 3;
    lock.reset();
    EXPECT_TRUE(KovaWaitUntil([this] { return pGroup->nState == 4; }));
    EXPECT_EQ(Packets(), PacketList{});
    for (uint16_t n = 10; n < 15; n++)
        EXPECT_EQ(ends.Rtp(1000), KovaPacketBytes({n}));
    EXPECT_EQ(KovaReferences(pFirst), 1);
    KovaRtpPacketReleaseRef(pFirst);
}

} // namespace
