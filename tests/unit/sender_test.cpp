#include "classic/rtp/sender.h"
#include "tests/support/delivery.h"
#include "tests/support/failing_heap.h"
#include "tests/support/net_ends.h"
#include "tests/support/stdout_capture.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace {

using Texts = std::vector<std::string>;

std::string Now(unsigned nCount)
{
    return "KovaRtpSenderAddRtpClient, Now Client Count: " + std::to_string(nCount);
}

std::string Next(unsigned nCount)
{
    return "KovaRtpSenderAddRtpClient, Next Client Count: " + std::to_string(nCount);
}

const std::string kMore = "KovaRtpSenderAddRtpClient, Now client count more than Next !!!";
const std::string kTooMany = "KovaRtpSenderAddRtpClient, Error: too much client !!!";
const std::string kNewGroup = "KovaRtpSenderAddRtpClient, create new sendgroup, then add client";

struct RtpSenderTest : testing::Test {
    KovaDelivery delivery;
    KovaRtpSender *pSender = delivery.pSender;

    std::vector<KovaRtpSendGroup *> Groups() const
    {
        std::vector<KovaRtpSendGroup *> groups;
        for (KovaList *pNode = pSender->pSendGroupList; pNode != nullptr; pNode = pNode->next)
            groups.push_back(static_cast<KovaRtpSendGroup *>(pNode->data));
        return groups;
    }

    static void AddTo(KovaRtpSendGroup *pGroup, unsigned nCount)
    {
        for (unsigned n = 0; n < nCount; n++)
            KovaRtpSendGroupAddRtpClient(
                pGroup, KovaRtpClientCreate("1", 0, 0, 0, 0, {}, 0, nullptr, 0, 0, 0, 0));
    }

    /// Groups with these numbers of clients, the first being the sender's own.
    void Arrange(const std::vector<unsigned> &counts) const
    {
        AddTo(Groups()[0], counts[0]);
        for (size_t n = 1; n < counts.size(); n++) {
            KovaRtpSendGroup *pGroup = KovaRtpSendGroupCreate(pSender);
            AddTo(pGroup, counts[n]);
            KovaRtpSenderAddRtpSendGroup(pSender, pGroup);
        }
    }

    std::vector<unsigned> Counts() const
    {
        std::vector<unsigned> counts;
        for (KovaRtpSendGroup *pGroup : Groups())
            counts.push_back(KovaRtpSendGroupClientCount(pGroup));
        return counts;
    }

    /// Adds one more client; returns what was printed.
    Texts AddOne(const char *szSessionId = "12345678901", int32_t nRtp = 0, int32_t nRtcp = 0) const
    {
        KovaStdoutCapture capture;
        KovaRtpSenderAddRtpClient(pSender, szSessionId, nRtp, nRtcp, 1, 2, {}, 0, nullptr, 0, 0, 0,
                                  0);
        return capture.Lines();
    }
};

using Counted = std::vector<unsigned>;

TEST_F(RtpSenderTest, StartsWithOneGroupThatDoesNotRun)
{
    EXPECT_EQ(pSender->pStreamer, delivery.pStream);
    EXPECT_EQ(pSender->nPayloadId, 97U);
    EXPECT_EQ(pSender->nSendGroupCount, 1U);
    EXPECT_EQ(pSender->nLastSequence, 0);
    EXPECT_EQ(pSender->nLastTimestamp, 0U);
    ASSERT_EQ(Groups().size(), 1U);
    EXPECT_EQ(Groups()[0]->nState, 0U);
    EXPECT_EQ(Groups()[0]->pSender, pSender);
    EXPECT_EQ(pSender->pSendGroupListTail->data, Groups()[0]);
}

TEST_F(RtpSenderTest, IsNotMadeWithoutStreamOrMemory)
{
    EXPECT_EQ(KovaRtpSenderCreate(nullptr, 97), nullptr);
    for (int nGood = 0; nGood < 3; nGood++) { // sender, group, place in the list
        const KovaFailingHeap heap(nGood);
        EXPECT_EQ(KovaRtpSenderCreate(delivery.pStream, 97), nullptr) << nGood;
        EXPECT_EQ(heap.Failed(), 1) << nGood;
    }
}

TEST_F(RtpSenderTest, IgnoresNull)
{
    KovaRtpPacket *pPacket = KovaMakePacket({});
    KovaRtpPacketAddRef(pPacket);
    EXPECT_EQ(KovaRtpSenderStart(nullptr), 2);
    EXPECT_EQ(KovaRtpSenderStop(nullptr), 2);
    KovaRtpSenderDestory(nullptr);
    KovaRtpSenderAddRtpClient(nullptr, "1", 0, 0, 1, 2, {}, 0, nullptr, 0, 0, 0, 0);
    KovaRtpSenderAddRtpPacket(nullptr, pPacket);
    KovaRtpSenderAddRtpPacket(pSender, nullptr);
    KovaRtpSenderAddRtpSendGroup(nullptr, Groups()[0]);
    KovaRtpSenderAddRtpSendGroup(pSender, nullptr);
    KovaRtpSenderRemoveRtpSendGroup(nullptr, Groups()[0]);
    KovaRtpSenderRemoveRtpSendGroup(pSender, nullptr);
    KovaRtpSenderRemoveAllRtpSendGroup(nullptr);
    KovaRtpSenderStartAllRtpSendGroup(nullptr);
    KovaRtpSenderStopAllRtpSendGroup(nullptr);
    EXPECT_EQ(Groups().size(), 1U);
    EXPECT_EQ(pPacket->nRefCount, 1);
    KovaRtpPacketReleaseRef(pPacket);
}

TEST_F(RtpSenderTest, StartsAndStopsEveryGroup)
{
    Arrange({0, 0, 0});
    EXPECT_EQ(KovaRtpSenderStart(pSender), 0);
    for (const KovaRtpSendGroup *pGroup : Groups())
        EXPECT_EQ(pGroup->nState, 2U);
    EXPECT_EQ(KovaRtpSenderStop(pSender), 0);
    for (const KovaRtpSendGroup *pGroup : Groups())
        EXPECT_EQ(pGroup->nState, 4U);
    KovaRtpSenderStartAllRtpSendGroup(pSender);
    for (const KovaRtpSendGroup *pGroup : Groups())
        EXPECT_EQ(pGroup->nState, 2U);
    KovaRtpSenderStopAllRtpSendGroup(pSender);
    for (const KovaRtpSendGroup *pGroup : Groups())
        EXPECT_EQ(pGroup->nState, 4U);
}

TEST_F(RtpSenderTest, KeepsGroupsInOrder)
{
    Arrange({0, 1, 2});
    const std::vector<KovaRtpSendGroup *> groups = Groups();
    KovaRtpSenderRemoveRtpSendGroup(pSender, groups[2]);
    EXPECT_EQ(Counts(), (Counted{0, 1}));
    EXPECT_EQ(pSender->pSendGroupListTail->data, groups[1]);
    EXPECT_EQ(groups[2]->nState, 0U); // unlinked only
    KovaRtpSenderAddRtpSendGroup(pSender, groups[2]);
    EXPECT_EQ(Groups(), groups);
    KovaRtpSenderRemoveAllRtpSendGroup(pSender);
    EXPECT_EQ(pSender->pSendGroupList, nullptr);
    EXPECT_EQ(pSender->pSendGroupListTail, nullptr);
}

TEST_F(RtpSenderTest, StopsRunningGroupsBeforeItDestroysThem)
{
    KovaUdpEnds ends;
    KovaRtpSendGroupAddRtpClient(Groups()[0], ends.Client("1"));
    KovaRtpSenderStart(pSender);
    KovaRtpSenderRemoveAllRtpSendGroup(pSender);
    EXPECT_EQ(Groups().size(), 0U);
    EXPECT_FALSE(KovaIsOpen(ends.nServerRtp));
}

TEST_F(RtpSenderTest, QueuesAPacketInEveryGroupWithAReferenceEach)
{
    Arrange({0, 0, 0});
    KovaRtpPacket *pPacket = KovaMakePacket({});
    KovaRtpPacketAddRef(pPacket);
    KovaRtpSenderAddRtpPacket(pSender, pPacket);
    EXPECT_EQ(pPacket->nRefCount, 4);
    for (const KovaRtpSendGroup *pGroup : Groups()) {
        ASSERT_NE(pGroup->pPacketList, nullptr);
        EXPECT_EQ(pGroup->pPacketList->data, pPacket);
        EXPECT_EQ(pGroup->pPacketList->next, nullptr);
    }
    KovaRtpSenderRemoveAllRtpSendGroup(pSender);
    EXPECT_EQ(pPacket->nRefCount, 1);
    KovaRtpPacketReleaseRef(pPacket);
}

TEST_F(RtpSenderTest, GivesTheReferenceBackWhenThereIsNoMemoryToQueue)
{
    KovaRtpPacket *pPacket = KovaMakePacket({});
    KovaRtpPacketAddRef(pPacket);
    {
        const KovaFailingHeap heap;
        KovaRtpSenderAddRtpPacket(pSender, pPacket);
    }
    EXPECT_EQ(pPacket->nRefCount, 1);
    KovaRtpPacketReleaseRef(pPacket);
}

TEST_F(RtpSenderTest, MakesTheClientFromItsArguments)
{
    KovaUdpEnds ends;
    int nTcp = 77;
    KovaStdoutCapture capture;
    sockaddr_in address = {};
    address.sin_addr.s_addr = htonl(0xC0000207);
    KovaRtpSenderAddRtpClient(pSender, "12345678901", ends.nServerRtp, ends.nServerRtcp, 5004, 5005,
                              address, 1, &nTcp, 2, 3, 0xABCD, 0x12345678);
    ASSERT_EQ(Counts(), Counted{1});
    const KovaRtpClient *pClient = static_cast<KovaRtpClient *>(Groups()[0]->pClientList->data);
    EXPECT_EQ(pClient->nState, 0);
    EXPECT_STREQ(pClient->szSessionId, "12345678901");
    EXPECT_EQ(pClient->nRtpSocket, ends.nServerRtp);
    EXPECT_EQ(pClient->nRtcpSocket, ends.nServerRtcp);
    EXPECT_EQ(pClient->rtpAddress.sin_port, htons(5004));
    EXPECT_EQ(pClient->rtcpAddress.sin_port, htons(5005));
    EXPECT_EQ(pClient->rtpAddress.sin_addr.s_addr, htonl(0xC0000207));
    EXPECT_EQ(pClient->bInterleaved, 1);
    EXPECT_EQ(pClient->pTcpSocket.load(), &nTcp);
    EXPECT_EQ(pClient->nRtpChannel, 2);
    EXPECT_EQ(pClient->nRtcpChannel, 3);
    EXPECT_EQ(pClient->nStartSequence, 0xABCD);
    EXPECT_EQ(pClient->nStartTimestamp, 0x12345678U);
    KovaRtpSendGroupRemoveAllRtpClient(Groups()[0]);
}

TEST_F(RtpSenderTest, PlacesIntoTheOnlyGroup)
{
    EXPECT_EQ(AddOne(), Texts{Now(0)});
    EXPECT_EQ(AddOne(), Texts{Now(1)});
    EXPECT_EQ(Counts(), Counted{2});
}

TEST_F(RtpSenderTest, PlacesIntoTheFirstGroupWithFewerThanTheNext)
{
    Arrange({3, 5});
    EXPECT_EQ(AddOne(), (Texts{Now(3), Next(5)}));
    EXPECT_EQ(Counts(), (Counted{4, 5}));
}

TEST_F(RtpSenderTest, PlacesIntoTheLastOfEqualGroups)
{
    Arrange({5, 5});
    EXPECT_EQ(AddOne(), (Texts{Now(5), Next(5), Now(5)}));
    EXPECT_EQ(Counts(), (Counted{5, 6}));
}

TEST_F(RtpSenderTest, GoesOnBehindAFullerGroup)
{
    Arrange({6, 5, 7});
    EXPECT_EQ(AddOne(), (Texts{Now(6), Next(5), kMore, Now(5), Next(7)}));
    EXPECT_EQ(Counts(), (Counted{6, 6, 7}));
}

TEST_F(RtpSenderTest, PlacesIntoTheLastGroupWhateverItsCount)
{
    Arrange({2, 1});
    EXPECT_EQ(AddOne(), (Texts{Now(2), Next(1), kMore, Now(1)}));
    EXPECT_EQ(Counts(), (Counted{2, 2}));
}

TEST_F(RtpSenderTest, OpensARunningGroupForTheClientBehindAFullOne)
{
    Arrange({999});
    EXPECT_EQ(AddOne(), Texts{Now(999)});
    EXPECT_EQ(AddOne(), (Texts{Now(1000), kNewGroup}));
    EXPECT_EQ(Counts(), (Counted{1000, 1}));
    EXPECT_EQ(Groups()[0]->nState, 0U);
    EXPECT_EQ(Groups()[1]->nState, 2U);
    EXPECT_EQ(pSender->nSendGroupCount, 1U);
    EXPECT_EQ(AddOne(), (Texts{Now(1000), Now(1)}));
    EXPECT_EQ(Counts(), (Counted{1000, 2}));
}

TEST_F(RtpSenderTest, ComparesWithAFullNextGroup)
{
    Arrange({999, 1000});
    EXPECT_EQ(AddOne(), (Texts{Now(999), Next(1000)}));
    EXPECT_EQ(AddOne(), (Texts{Now(1000), Now(1000), kNewGroup}));
    EXPECT_EQ(Counts(), (Counted{1000, 1000, 1}));
}

TEST_F(RtpSenderTest, ReportsAnOverfullGroupAndUsesItAllTheSame)
{
    Arrange({1001});
    EXPECT_EQ(AddOne(), (Texts{Now(1001), kTooMany}));
    EXPECT_EQ(Counts(), Counted{1002});
}

TEST_F(RtpSenderTest, GoesOnBehindAnOverfullGroup)
{
    Arrange({1001, 4});
    EXPECT_EQ(AddOne(), (Texts{Now(1001), kTooMany, Next(4), kMore, Now(4)}));
    EXPECT_EQ(Counts(), (Counted{1001, 5}));
}

TEST_F(RtpSenderTest, AddsNothingWhenTheClientCannotBeMade)
{
    EXPECT_EQ(AddOne(nullptr), Texts{});
    EXPECT_EQ(AddOne("1", -1, 0), Texts{});
    EXPECT_EQ(AddOne("1", 0, -1), Texts{});
    EXPECT_EQ(Counts(), Counted{0});
}

TEST_F(RtpSenderTest, LosesTheClientWhenNoGroupCanBeMade)
{
    Arrange({1000});
    KovaUdpEnds ends;
    KovaRtpClient *pClient = ends.Client("1");
    {
        KovaStdoutCapture capture;
        const KovaFailingHeap heap;
        EXPECT_FALSE(KovaRtpSenderPlaceClient(pSender, pClient));
    }
    EXPECT_EQ(Counts(), Counted{1000});
    KovaRtpClientDestroy(pClient);
    for (int nGood = 0; nGood < 20; nGood++) {
        // Whatever is missing, nothing stays behind of the client.
        const int nSocket = socket(AF_INET, SOCK_DGRAM, 0);
        KovaStdoutCapture capture;
        const KovaFailingHeap heap(nGood);
        KovaRtpSenderAddRtpClient(pSender, "1", nSocket, 0, 1, 2, {}, 0, nullptr, 0, 0, 0, 0);
        if (Counts().size() == 2 && Counts()[1] == 1)
            break;
        EXPECT_GT(heap.Failed(), 0) << nGood;
        EXPECT_LT(nGood, 19);
        // A client that could not even be made leaves the socket to its maker.
        EXPECT_EQ(KovaIsOpen(nSocket), nGood == 0) << nGood;
        if (nGood == 0)
            close(nSocket);
    }
}

} // namespace
