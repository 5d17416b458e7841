#include "classic/rtp/send_group.h"
#include "foundation/log.h"
#include "tests/support/delivery.h"
#include "tests/support/failing_heap.h"
#include "tests/support/net_ends.h"
#include "tests/support/socket_faults.h"
#include "tests/support/stdout_capture.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <deque>
#include <string>
#include <vector>

/// What waits in a send group.
namespace {

using Texts = std::vector<std::string>;
using Sequences = std::vector<int>;

constexpr uint32_t kMiB = 1024 * 1024;
const Texts kLine = {"KovaRtpSendGroupAddRtpPacket, Packet Overflow !!!"};

struct PacketQueueTest : testing::Test {
    KovaSocketFaults faults;
    KovaStdoutCapture capture;
    KovaDelivery delivery;
    KovaRtpSendGroup *pGroup = delivery.Group();

    PacketQueueTest()
    {
        RTSP_SetLogLevel(2);
        capture.Clear();
    }

    static Sequences Queued(const KovaRtpSendGroup *pQueue)
    {
        Sequences sequences;
        for (KovaList *pNode = pQueue->pPacketList; pNode != nullptr; pNode = pNode->next) {
            const uint8_t *pData = static_cast<KovaRtpPacket *>(pNode->data)->pData;
            sequences.push_back(pData[2] * 256 + pData[3]);
        }
        return sequences;
    }

    /// Leaves room for one packet of a MiB.
    void FillVideo(uint32_t nLeft = kMiB)
    {
        for (uint16_t n = 1; n <= 13; n++)
            delivery.Queue({n, 0, 1000, kFrameKey, n < 13 ? kMiB : 2 * kMiB - nLeft});
        ASSERT_EQ(Queued(pGroup).size(), 13U);
    }

    /// Whether the packet got into the queue.
    bool Enters(uint16_t nSequence, uint32_t nPts, uint32_t nFrameType, uint32_t nSize = 100)
    {
        delivery.Queue({nSequence, 0, nPts, nFrameType, nSize});
        const Sequences sequences = Queued(pGroup);
        return !sequences.empty() && sequences.back() == nSequence;
    }

    /// Takes the oldest packet out, as if it had been served.
    void TakeOldest()
    {
        auto *pPacket = static_cast<KovaRtpPacket *>(pGroup->pPacketList->data);
        KovaRtpSendGroupRemoveRtpPacket(pGroup, pPacket);
        KovaRtpPacketReleaseRef(pPacket);
    }
};

TEST_F(PacketQueueTest, HoldsAsMuchAsTheVideoRing)
{
    FillVideo();
    EXPECT_FALSE(Enters(20, 1000, kFrameVideo, kMiB + 1));
    TakeOldest();
    TakeOldest();
    EXPECT_TRUE(Enters(21, 1040, kFrameKey, 3 * kMiB)); // to the byte
    EXPECT_FALSE(Enters(22, 1080, kFrameKey, 12));
    EXPECT_EQ(pGroup->nQueuedBytes, 14 * kMiB);
}

TEST_F(PacketQueueTest, HoldsAsMuchAsTheAudioRingForTheFirstPayloadId)
{
    KovaRtpSender *pSender = KovaRtpSenderCreate(delivery.pStream, 96);
    auto *pAudio = static_cast<KovaRtpSendGroup *>(pSender->pSendGroupList->data);
    for (uint16_t n = 1; n <= 4; n++) {
        KovaRtpPacket *pPacket = KovaMakePacket({n, 0, 1000U + n, kFrameAudio, kMiB});
        KovaRtpPacketAddRef(pPacket);
        KovaRtpSendGroupAddRtpPacket(pAudio, pPacket);
    }
    EXPECT_EQ(Queued(pAudio), (Sequences{1, 2}));
    EXPECT_EQ(capture.Messages(), kLine);
    KovaRtpSenderDestory(pSender);
}

TEST_F(PacketQueueTest, SaysSoOnceEachTimeItBeginsToDrop)
{
    FillVideo(0);
    EXPECT_EQ(capture.Messages(), Texts{});
    for (uint16_t n = 20; n < 25; n++)
        EXPECT_FALSE(Enters(n, 1000U + n, kFrameKey));
    EXPECT_EQ(capture.Messages(), kLine);
    TakeOldest();
    EXPECT_TRUE(Enters(30, 2000, kFrameKey));
    EXPECT_FALSE(Enters(31, 2000, kFrameKey, kMiB));
    EXPECT_FALSE(Enters(32, 2000, kFrameKey, kMiB));
    EXPECT_EQ(capture.Messages(), (Texts{kLine[0], kLine[0]}));
}

TEST_F(PacketQueueTest, LineIsOfLevelTwo)
{
    FillVideo(0);
    RTSP_SetLogLevel(1);
    EXPECT_FALSE(Enters(20, 1040, kFrameKey));
    EXPECT_EQ(capture.Messages(), Texts{});
}

TEST_F(PacketQueueTest, GoesOnWithALaterKeyFrameOrAudioOnly)
{
    for (const uint32_t nEntry : {kFrameKey, kFrameAudio}) {
        FillVideo(0);
        EXPECT_FALSE(Enters(20, 2000, kFrameVideo));
        TakeOldest();
        EXPECT_FALSE(Enters(21, 2000, nEntry)) << "of the picture that was dropped";
        EXPECT_FALSE(Enters(22, 2040, kFrameVideo)) << "nobody can begin with it";
        EXPECT_TRUE(Enters(23, 2080, nEntry));
        EXPECT_TRUE(Enters(24, 2040, kFrameVideo)) << "as ever";
        KovaRtpSendGroupRemoveAllRtpPacket(pGroup);
    }
}

TEST_F(PacketQueueTest, GoesOnBehindParameterSetsThatWereDropped)
{
    FillVideo(0);
    EXPECT_FALSE(Enters(20, 2000, kFrameVideo));
    EXPECT_FALSE(Enters(21, 2040, kFrameVideo));
    TakeOldest();
    EXPECT_FALSE(Enters(22, 2040, kFrameVideo));
    EXPECT_TRUE(Enters(23, 2040, kFrameKey));
}

TEST_F(PacketQueueTest, DoesNotGoOnInTheMiddleOfAKeyFrame)
{
    FillVideo(0);
    EXPECT_FALSE(Enters(20, 2000, kFrameVideo));
    EXPECT_FALSE(Enters(21, 2040, kFrameKey));
    TakeOldest();
    EXPECT_FALSE(Enters(22, 2040, kFrameKey));
    EXPECT_FALSE(Enters(23, 2040, kFrameKey));
    EXPECT_TRUE(Enters(24, 2080, kFrameKey));
}

TEST_F(PacketQueueTest, ClockThatStepsBackOrWrapsCostsOneKeyFrameMore)
{
    FillVideo(0);
    EXPECT_FALSE(Enters(20, 0xFFFFFFF0, kFrameVideo));
    TakeOldest();
    EXPECT_FALSE(Enters(21, 10, kFrameKey));
    EXPECT_FALSE(Enters(22, 10, kFrameKey));
    EXPECT_TRUE(Enters(23, 1010, kFrameKey));
}

TEST_F(PacketQueueTest, DroppedPacketLosesTheReferenceThatItCameWith)
{
    FillVideo(0);
    KovaRtpPacket *pPacket = KovaMakePacket({20});
    KovaRtpPacketAddRef(pPacket);
    KovaRtpSenderAddRtpPacket(delivery.pSender, pPacket);
    EXPECT_EQ(pPacket->nRefCount, 1);
    KovaRtpPacketAddRef(pPacket);
    KovaRtpSendGroupAddRtpPacket(pGroup, pPacket);
    EXPECT_EQ(pPacket->nRefCount, 1);
    KovaRtpPacketReleaseRef(pPacket);
}

TEST_F(PacketQueueTest, PacketWhoseOwnerCountsNothingIsQueuedAsItIs)
{
    KovaRtpPacket *pPacket = KovaMakePacket({1});
    KovaRtpSendGroupAddRtpPacket(pGroup, pPacket);
    ASSERT_NE(pGroup->pPacketList, nullptr);
    EXPECT_EQ(pGroup->pPacketList->data, pPacket);
    EXPECT_EQ(pPacket->nRefCount, 0);
    KovaRtpSendGroupRemoveRtpPacket(pGroup, pPacket);
    EXPECT_EQ(pGroup->pPacketList, nullptr);
    EXPECT_EQ(pPacket->nRefCount, 0);
    KovaRtpFreePacket(pPacket);
}

TEST_F(PacketQueueTest, CountsDownWhateverWayAPacketLeaves)
{
    KovaRtpPacket *pPacket = KovaMakePacket({1, 0, 1000, kFrameKey, 100});
    for (int n = 0; n < 3; n++)
        KovaRtpPacketAddRef(pPacket);
    KovaRtpSendGroupAddRtpPacket(pGroup, pPacket);
    EXPECT_EQ(pGroup->nQueuedBytes, 100U);
    KovaRtpSendGroupRemoveRtpPacket(pGroup, pPacket);
    KovaRtpSendGroupRemoveRtpPacket(pGroup, pPacket); // not queued any more
    EXPECT_EQ(pGroup->nQueuedBytes, 0U);
    KovaRtpSendGroupAddRtpPacket(pGroup, pPacket);
    KovaRtpSendGroupRemoveAllRtpPacket(pGroup);
    EXPECT_EQ(pGroup->nQueuedBytes, 0U);
    EXPECT_EQ(pPacket->nRefCount, 2);
    ASSERT_TRUE(delivery.Send({2, 0, 1000, kFrameKey, 60}));
    ASSERT_TRUE(delivery.Send({3, 0, 1000, kFrameKey, 60}));
    EXPECT_EQ(pGroup->nQueuedBytes, 0U);
    KovaRtpPacketReleaseRef(pPacket);
    KovaRtpPacketReleaseRef(pPacket);
}

TEST_F(PacketQueueTest, PacketThatIsServedWhileTheQueueIsFlushedIsReleasedAndCountedOnce)
{
    KovaRtpPacket *pPacket = KovaMakePacket({7, 0, 1000, kFrameKey, 100});
    for (int n = 0; n < 3; n++) // the queue's and two of the test
        KovaRtpPacketAddRef(pPacket);
    KovaRtpSendGroupAddRtpPacket(pGroup, pPacket);
    std::optional<KovaClientLock> lock(pGroup);
    KovaRtpSendGroupStart(pGroup);
    // It is being served, and waits for the clients.
    EXPECT_TRUE(KovaWaitUntil([this] { return delivery.pSender->nLastSequence == 7; }));
    KovaRtpSendGroupRemoveAllRtpPacket(pGroup);
    EXPECT_EQ(KovaReferences(pPacket), 3); // the thread's own keeps it alive
    KovaRtpPacket *pNext = KovaMakePacket({8, 0, 1000, kFrameKey, 70});
    KovaRtpPacketAddRef(pNext);
    KovaRtpSendGroupAddRtpPacket(pGroup, pNext); // not through the sender, whose lock comes first
    lock.reset();
    ASSERT_TRUE(delivery.Drain());
    EXPECT_EQ(delivery.pSender->nLastSequence, 8);
    EXPECT_EQ(KovaReferences(pPacket), 2);
    EXPECT_EQ(pGroup->nQueuedBytes, 0U);
    KovaRtpPacketReleaseRef(pPacket);
    KovaRtpPacketReleaseRef(pPacket);
}

TEST_F(PacketQueueTest, PacketThatNoMemoryWasLeftForTakesNoRoom)
{
    KovaRtpPacket *pPacket = KovaMakePacket({1, 0, 1000, kFrameKey, 100});
    KovaRtpPacketAddRef(pPacket);
    KovaRtpPacketAddRef(pPacket);
    {
        const KovaFailingHeap heap;
        EXPECT_EQ(KovaRtpSendGroupTakePackets(pGroup, &pPacket, 1), 0U);
    }
    EXPECT_EQ(pPacket->nRefCount, 1);
    KovaRtpPacketReleaseRef(pPacket);
    EXPECT_EQ(Queued(pGroup), Sequences{});
    EXPECT_EQ(pGroup->nQueuedBytes, 0U);
}

/// Packets to be queued together, with the test's reference each.
struct Together {
    explicit Together(const std::vector<KovaPacketPlan> &plans)
    {
        for (const KovaPacketPlan &plan : plans) {
            packets.push_back(KovaMakePacket(plan));
            KovaRtpPacketAddRef(packets.back());
        }
    }
    ~Together()
    {
        for (KovaRtpPacket *pPacket : packets)
            KovaRtpPacketReleaseRef(pPacket);
    }
    Together(const Together &) = delete;
    Together &operator=(const Together &) = delete;

    void Queue(KovaRtpSender *pSender) const
    {
        KovaRtpSenderAddRtpPackets(pSender, packets.data(), static_cast<uint32_t>(packets.size()));
    }
    std::vector<int32_t> References() const
    {
        std::vector<int32_t> references;
        for (KovaRtpPacket *pPacket : packets)
            references.push_back(KovaReferences(pPacket));
        return references;
    }

    std::vector<KovaRtpPacket *> packets;
};

TEST_F(PacketQueueTest, PacketsOfAnAccessUnitComeTogetherInEveryGroup)
{
    KovaRtpSendGroup *pSecond = KovaRtpSendGroupCreate(delivery.pSender);
    KovaRtpSenderAddRtpSendGroup(delivery.pSender, pSecond);
    const Together unit({{1}, {2}, {3}});
    unit.Queue(delivery.pSender);
    EXPECT_EQ(Queued(pGroup), (Sequences{1, 2, 3}));
    EXPECT_EQ(Queued(pSecond), (Sequences{1, 2, 3}));
    EXPECT_EQ(unit.References(), (std::vector<int32_t>{3, 3, 3}));
    EXPECT_EQ(pGroup->nQueuedBytes, 120U);
    EXPECT_NE(pSecond->work.nWord.load(), 0U);
    KovaRtpSenderAddRtpPackets(delivery.pSender, nullptr, 0);
    EXPECT_EQ(Queued(pGroup), (Sequences{1, 2, 3}));
}

TEST_F(PacketQueueTest, EachOfThePacketsThatComeTogetherIsJudgedAlone)
{
    FillVideo(100);
    const Together unit({{20, 0, 1040, kFrameKey, 60},
                         {21, 0, 1040, kFrameVideo, 60},
                         {22, 0, 1040, kFrameVideo, 12},
                         {23, 0, 1040, kFrameKey, 12}});
    unit.Queue(delivery.pSender);
    EXPECT_EQ(Queued(pGroup).back(), 20);
    EXPECT_EQ(unit.References(), (std::vector<int32_t>{2, 1, 1, 1}));
    EXPECT_EQ(capture.Messages(), kLine);
    TakeOldest();
    const Together next({{30, 0, 1080, kFrameVideo, 60},
                         {31, 0, 1080, kFrameKey},
                         {32, 0, 1080, kFrameVideo, 2 * kMiB}});
    next.Queue(delivery.pSender);
    EXPECT_EQ(Queued(pGroup).back(), 31);
    EXPECT_EQ(capture.Messages(), (Texts{kLine[0], kLine[0]}));
}

TEST_F(PacketQueueTest, ShortageCostsOneOfThePacketsThatComeTogether)
{
    const Together unit({{1}, {2}, {3}});
    {
        const KovaFailingHeap heap(2);
        unit.Queue(delivery.pSender);
    }
    EXPECT_EQ(Queued(pGroup), (Sequences{1, 2}));
    EXPECT_EQ(unit.References(), (std::vector<int32_t>{2, 2, 1}));
    EXPECT_EQ(pGroup->nQueuedBytes, 80U);
}

TEST_F(PacketQueueTest, PacketThatJustFitsAFrameIsSent)
{
    constexpr uint32_t kMost = 8192 - 4; // behind the four bytes in front of it
    KovaTcpEnds tcp;
    delivery.Add(tcp.Client("1"));
    ASSERT_TRUE(delivery.Send({1, 90000, 1000, kFrameKey, kMost}));
    const KovaBytes all = tcp.Receive(32 + 8192); // a report comes first
    ASSERT_EQ(all.size(), 32U + 8192U);
    EXPECT_EQ(KovaBytes(all.begin() + 32, all.end()),
              KovaFrameOf(0, KovaPacketBytes({1, 90000, 1000, kFrameKey, kMost})));
}

TEST_F(PacketQueueTest, PacketOfAHeaderAloneIsTheLastOneTaken)
{
    ASSERT_TRUE(delivery.Send({7, 1234, 1000, kFrameKey, 12}));
    EXPECT_EQ(delivery.pSender->nLastSequence, 7);
    EXPECT_EQ(delivery.pSender->nLastTimestamp, 1234U);
}

TEST_F(PacketQueueTest, NewPacketWakesTheThread)
{
    delivery.Queue({1});
    EXPECT_NE(pGroup->work.nWord.load(), 0U) << "the next wait would last";
}

TEST_F(PacketQueueTest, WhatWasQueuedIsSentAndTheClientsStay)
{
    KovaTcpEnds tcp;
    KovaRtpClient *pClient = delivery.Add(tcp.Client("12345678901"));
    ASSERT_TRUE(delivery.Send({1}));
    EXPECT_EQ(tcp.Receive(76, 2000).size(), 76U); // report and packet
    capture.Clear();
    faults.Script(tcp.Socket(), std::deque<KovaScriptedSend>(100000, {EAGAIN}));
    delivery.Queue({2, 0});
    EXPECT_TRUE(KovaWaitUntil([this] { return faults.Left() < 99999; }));
    delivery.Queue({3, 0, 1000, kFrameVideo, 14 * kMiB - 80});
    delivery.Queue({4, 0, 1000, kFrameVideo}); // to the byte
    delivery.Queue({5, 0, 1000, kFrameVideo});
    delivery.Queue({6, 0, 1040, kFrameKey});
    EXPECT_EQ(capture.Messages(), kLine);
    faults.Script(tcp.Socket(), {});
    ASSERT_TRUE(delivery.Drain());
    ASSERT_TRUE(delivery.Send({7, 0, 1080, kFrameKey}));
    KovaBytes expected; // the large one fits no frame
    for (const uint16_t n : {2, 4, 7}) {
        const KovaBytes frame = KovaFrameOf(0, KovaPacketBytes({n, 0}));
        expected.insert(expected.end(), frame.begin(), frame.end());
    }
    EXPECT_EQ(tcp.Receive(1000, 50), expected);
    EXPECT_TRUE(delivery.Has(pClient));
    delivery.WithClients([&] { EXPECT_EQ(pClient->nState, 1); });
}

} // namespace
