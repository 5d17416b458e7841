#include "rtp/udp_batch.h"
#include "tests/support/net_ends.h"
#include "tests/support/udp_system.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cerrno>
#include <random>

namespace {

using Texts = std::vector<std::string>;

constexpr int kSocket = KovaUdpSystem::kFirstSocket;

/// Packets of these sizes, no two alike.
Texts Packets(const std::vector<size_t> &sizes)
{
    Texts packets;
    char cFill = 'a';
    for (const size_t nSize : sizes) {
        packets.emplace_back(nSize, cFill);
        cFill = cFill == 'z' ? 'A' : static_cast<char>(cFill + 1);
    }
    return packets;
}

/// One destination and what is to go there.
struct Destination {
    Destination(int nSocket_, uint16_t nPort, Texts packets_)
        : nSocket(nSocket_), packets(std::move(packets_))
    {
        address.sin_family = AF_INET;
        address.sin_port = htons(nPort);
        for (std::string &packet : packets)
            parts.push_back({packet.data(), packet.size()});
    }

    KovaUdpDelivery Delivery(uint32_t nFirst = 0)
    {
        KovaUdpDelivery delivery = {};
        delivery.nSocket = nSocket;
        delivery.pAddress = &address;
        delivery.pRoute = &route;
        delivery.pPackets = parts.data() + nFirst;
        delivery.nPackets = static_cast<uint32_t>(parts.size()) - nFirst;
        return delivery;
    }

    int nSocket;
    Texts packets;
    sockaddr_in address = {};
    KovaUdpRoute route = {};
    std::vector<iovec> parts;
};

/// What is behind the first nCount.
Texts From(const Texts &packets, size_t nCount)
{
    return {packets.begin() + static_cast<ptrdiff_t>(nCount), packets.end()};
}

Texts UpTo(const Texts &packets, size_t nCount)
{
    return {packets.begin(), packets.begin() + static_cast<ptrdiff_t>(nCount)};
}

struct UdpBatchTest : testing::Test {
    KovaUdpSystem system;

    UdpBatchTest()
    {
        KovaUdpBatchForget();
    }
    ~UdpBatchTest() override
    {
        KovaUdpBatchForget();
    }

    KovaUdpDelivery Send(Destination *pDestination, uint32_t nFirst = 0)
    {
        KovaUdpDelivery delivery = pDestination->Delivery(nFirst);
        KovaUdpBatchSend(&delivery, 1);
        return delivery;
    }

    /// Sends everything, as a caller does who waits for a full socket; the numbers of the
    /// packets that were lost.
    std::vector<uint32_t> SendAll(Destination *pDestination)
    {
        std::vector<uint32_t> lost;
        uint32_t nNext = 0;
        for (int nTurn = 0; nTurn < 1000 && nNext < pDestination->packets.size(); nTurn++) {
            const KovaUdpDelivery delivery = Send(pDestination, nNext);
            nNext += delivery.nSent;
            if (delivery.outcome == kSendFailed)
                lost.push_back(nNext++);
        }
        EXPECT_EQ(nNext, pDestination->packets.size());
        return lost;
    }

    /// How many calls were made, and messages handed over with them.
    std::vector<size_t> Messages() const
    {
        std::vector<size_t> messages;
        for (const KovaUdpCall &call : system.calls)
            messages.push_back(call.nMessages);
        return messages;
    }
};

void ExpectSent(const KovaUdpDelivery &delivery)
{
    EXPECT_EQ(delivery.outcome, kSendDone);
    EXPECT_EQ(delivery.nSent, delivery.nPackets);
    EXPECT_EQ(delivery.nError, 0);
}

TEST_F(UdpBatchTest, PacketsOfOneSizeAndASmallerOneAreOneMessage)
{
    Destination player(kSocket, 1, Packets({100, 100, 100, 40}));
    ExpectSent(Send(&player));
    EXPECT_EQ(Messages(), std::vector<size_t>{1});
    EXPECT_FALSE(system.calls[0].bAlone);
    EXPECT_EQ(system.calls[0].nFlags, MSG_DONTWAIT | MSG_NOSIGNAL);
    EXPECT_EQ(system.At(1), player.packets);
}

TEST_F(UdpBatchTest, RunEndsBehindASmallerPacketAndBeforeALargerOne)
{
    Destination player(kSocket, 1, Packets({20, 10, 100, 100, 50, 50, 50, 60, 7}));
    ExpectSent(Send(&player));
    EXPECT_EQ(Messages(), std::vector<size_t>{4}); // 20 10 | 100 100 50 | 50 50 | 60 7
    EXPECT_EQ(system.At(1), player.packets);
}

TEST_F(UdpBatchTest, RunHasAtMost64Packets)
{
    Destination player(kSocket, 1, Packets(std::vector<size_t>(130, 10)));
    ExpectSent(Send(&player));
    EXPECT_EQ(Messages(), std::vector<size_t>{3});
    EXPECT_EQ(system.At(1), player.packets);
}

TEST_F(UdpBatchTest, RunHasAtMost65000Bytes)
{
    Destination player(kSocket, 1, Packets(std::vector<size_t>(14, 6500)));
    size_t nMost = 0;
    system.judge = [&nMost](const KovaUdpMessage &message) {
        nMost = std::max(nMost, message.packets.size());
        return 0;
    };
    ExpectSent(Send(&player));
    EXPECT_EQ(nMost, 10U);
    EXPECT_EQ(system.At(1), player.packets);
}

TEST_F(UdpBatchTest, PacketWithoutAByteIsADatagramByItself)
{
    Destination player(kSocket, 1, Packets({100, 100, 0, 0, 100}));
    ExpectSent(Send(&player));
    EXPECT_EQ(Messages(), std::vector<size_t>{4});
    EXPECT_EQ(system.At(1), player.packets);
}

TEST_F(UdpBatchTest, OnePacketNeedsAPlainCall)
{
    Destination player(kSocket, 1, Packets({100}));
    ExpectSent(Send(&player));
    ASSERT_EQ(system.calls.size(), 1U);
    EXPECT_TRUE(system.calls[0].bAlone);
    EXPECT_EQ(system.calls[0].nFlags, MSG_DONTWAIT | MSG_NOSIGNAL);
    EXPECT_EQ(system.At(1), player.packets);
}

TEST_F(UdpBatchTest, NothingToSendNeedsNoCall)
{
    Destination player(kSocket, 1, {});
    ExpectSent(Send(&player));
    KovaUdpBatchSend(nullptr, 0);
    EXPECT_EQ(system.calls.size(), 0U);
}

TEST_F(UdpBatchTest, SystemThatDoesNotKnowSegmentsIsNeverGivenOne)
{
    system.bSegments = false;
    Destination player(kSocket, 1, Packets(std::vector<size_t>(70, 100)));
    for (int n = 0; n < 2; n++)
        ExpectSent(Send(&player));
    EXPECT_EQ(Messages(), (std::vector<size_t>{64, 6, 64, 6}));
    EXPECT_EQ(system.nAsked, 1);
    EXPECT_EQ(UpTo(system.At(1), 70), player.packets);
    EXPECT_EQ(From(system.At(1), 70), player.packets);
}

TEST_F(UdpBatchTest, QuestionOnABadSocketDecidesNothing)
{
    for (const int nError : {EBADF, ENOTSOCK}) {
        system.bSegments = false;
        system.nAskError = nError;
        Destination bad(kSocket, 1, Packets({100, 100}));
        ExpectSent(Send(&bad));
        system.bSegments = true;
        system.calls.clear();
        Destination good(kSocket, 2, Packets({100, 100}));
        ExpectSent(Send(&good));
        EXPECT_EQ(Messages(), std::vector<size_t>{1});
        KovaUdpBatchForget();
        system.calls.clear();
    }
}

TEST_F(UdpBatchTest, SystemWithoutTheCallForManyIsAskedOnce)
{
    for (const bool bSegments : {false, true}) {
        KovaUdpBatchForget();
        system.calls.clear();
        system.bSegments = bSegments;
        system.bMany = false;
        const uint16_t nPort = bSegments ? 11 : 1;
        for (uint16_t n = 0; n < 3; n++) {
            Destination player(kSocket, static_cast<uint16_t>(nPort + n), Packets({9, 9, 9}));
            ExpectSent(Send(&player));
            EXPECT_EQ(system.At(static_cast<uint16_t>(nPort + n)), player.packets);
        }
        size_t nMany = 0;
        for (const KovaUdpCall &call : system.calls)
            nMany += call.bAlone ? 0 : 1;
        // For segments the next simpler way is tried first.
        EXPECT_LE(nMany, bSegments ? 2U : 1U);
        EXPECT_EQ(system.calls.size() - nMany, 9U);
    }
}

TEST_F(UdpBatchTest, NeighboursOfOneSocketShareACall)
{
    std::vector<Destination> players;
    for (uint16_t n = 0; n < 10; n++)
        players.emplace_back(kSocket, n, Packets({100, 100, static_cast<size_t>(10 + n)}));
    players.emplace_back(kSocket + 1, 10, Packets({5}));
    players.emplace_back(kSocket, 11, Packets({5, 6}));
    for (const bool bSegments : {true, false}) {
        KovaUdpBatchForget();
        system.calls.clear();
        system.bSegments = bSegments;
        std::vector<KovaUdpDelivery> deliveries;
        for (Destination &player : players)
            deliveries.push_back(player.Delivery());
        KovaUdpBatchSend(deliveries.data(), static_cast<uint32_t>(deliveries.size()));
        for (const KovaUdpDelivery &delivery : deliveries)
            ExpectSent(delivery);
        EXPECT_EQ(Messages(), (std::vector<size_t>{bSegments ? 10U : 30U, 1, 2}));
    }
    for (uint16_t n = 0; n < 12; n++)
        EXPECT_EQ(UpTo(system.At(n), players[n].packets.size()), players[n].packets);
}

TEST_F(UdpBatchTest, MoreNeighboursThanOneCallTakesGoInSeveral)
{
    std::vector<Destination> players;
    for (uint16_t n = 0; n < 20; n++)
        players.emplace_back(kSocket, n, Packets({5, 6, 7, 8, 9, 10, 11}));
    std::vector<KovaUdpDelivery> deliveries;
    for (Destination &player : players)
        deliveries.push_back(player.Delivery());
    KovaUdpBatchSend(deliveries.data(), static_cast<uint32_t>(deliveries.size()));
    EXPECT_EQ(Messages(), (std::vector<size_t>{64, 64, 12}));
    for (uint16_t n = 0; n < 20; n++) {
        ExpectSent(deliveries[n]);
        EXPECT_EQ(system.At(n), players[n].packets);
    }
}

TEST_F(UdpBatchTest, FullSocketStopsTheBatchAtThatPacket)
{
    system.bSegments = false;
    for (const int nError : {EAGAIN, EINTR}) {
        for (uint16_t nFull = 0; nFull < 5; nFull++) {
            const uint16_t nPort = static_cast<uint16_t>(nError * 10 + nFull);
            Destination player(kSocket, nPort, Packets({10, 11, 12, 13, 14}));
            size_t nTaken = 0;
            system.judge = [&](const KovaUdpMessage &) { return nTaken++ == nFull ? nError : 0; };
            const KovaUdpDelivery cut = Send(&player);
            // The call that meets it first tells only how many it has taken.
            if (nFull == 0) {
                EXPECT_EQ(cut.outcome, kSendAgain);
                EXPECT_EQ(cut.nSent, 0U);
                EXPECT_EQ(cut.nError, nError);
                EXPECT_EQ(system.At(nPort), Texts{});
            }
            system.judge = nullptr;
            Send(&player, cut.nSent);
            EXPECT_EQ(system.At(nPort), player.packets) << nFull;
            EXPECT_EQ(player.route.way, kUdpSegmented);
        }
    }
}

TEST_F(UdpBatchTest, FullSocketIsToldInEachWay)
{
    for (const int nWay : {0, 1, 2}) {
        KovaUdpBatchForget();
        system.bSegments = nWay == 0;
        system.bMany = nWay != 2;
        const uint16_t nPort = static_cast<uint16_t>(nWay + 1);
        Destination player(kSocket, nPort, Packets({10, 11, 12, 13, 14}));
        size_t nTaken = 0;
        system.judge = [&](const KovaUdpMessage &) { return nTaken++ >= 3 ? EAGAIN : 0; };
        const KovaUdpDelivery cut = Send(&player);
        EXPECT_EQ(cut.outcome, kSendAgain);
        EXPECT_EQ(cut.nSent, 3U);
        EXPECT_EQ(cut.nError, EAGAIN);
        EXPECT_EQ(system.At(nPort), UpTo(player.packets, 3));
        system.judge = nullptr;
        ExpectSent(Send(&player, 3));
        EXPECT_EQ(system.At(nPort), player.packets);
    }
}

TEST_F(UdpBatchTest, NeighboursBehindAFullSocketAreNotTried)
{
    Destination first(kSocket, 1, Packets({10, 20}));
    Destination second(kSocket, 2, Packets({10, 20}));
    Destination third(kSocket, 3, Packets({10}));
    Destination other(kSocket + 1, 4, Packets({10, 20}));
    size_t nTaken = 0;
    size_t nTried = 0;
    system.judge = [&](const KovaUdpMessage &message) {
        nTried += message.nPort == 3 ? 1 : 0;
        return message.nSocket == kSocket && nTaken++ >= 3 ? EAGAIN : 0;
    };
    KovaUdpDelivery deliveries[] = {first.Delivery(), second.Delivery(), third.Delivery(),
                                    other.Delivery()};
    KovaUdpBatchSend(deliveries, 4);
    ExpectSent(deliveries[0]);
    EXPECT_EQ(deliveries[1].outcome, kSendAgain);
    EXPECT_EQ(deliveries[1].nSent, 1U);
    EXPECT_EQ(deliveries[2].outcome, kSendAgain);
    EXPECT_EQ(deliveries[2].nSent, 0U);
    EXPECT_EQ(deliveries[2].nError, EAGAIN);
    ExpectSent(deliveries[3]);
    EXPECT_EQ(nTried, 0U);
}

TEST_F(UdpBatchTest, DestinationThatAllowsNoSegmentsIsRemembered)
{
    for (const int nError : {EIO, EINVAL, EMSGSIZE, EOPNOTSUPP}) {
        const uint16_t nPort = static_cast<uint16_t>(nError);
        Destination player(kSocket, nPort, Packets({100, 100, 100}));
        Destination other(kSocket, 1, Packets({100, 100, 100}));
        system.judge = [=](const KovaUdpMessage &message) {
            return message.nPort == nPort && message.packets.size() > 1 ? nError : 0;
        };
        system.calls.clear();
        ExpectSent(Send(&player));
        EXPECT_EQ(Messages(), (std::vector<size_t>{1, 3})); // refused, then many
        EXPECT_EQ(player.route.way, kUdpMany);
        ExpectSent(Send(&player));
        EXPECT_EQ(Messages(), (std::vector<size_t>{1, 3, 3}));
        EXPECT_EQ(UpTo(system.At(nPort), 3), player.packets);
        EXPECT_EQ(From(system.At(nPort), 3), player.packets);
        ExpectSent(Send(&other));
        EXPECT_EQ(system.calls.back().nMessages, 1U);
        EXPECT_EQ(other.route.way, kUdpSegmented);
    }
}

TEST_F(UdpBatchTest, ShortageIsNotTakenForWhatADestinationAllows)
{
    for (const int nError : {ENOBUFS, ENOMEM, ECONNREFUSED, EHOSTUNREACH, ENETUNREACH, ENETDOWN}) {
        const uint16_t nPort = static_cast<uint16_t>(nError);
        Destination player(kSocket, nPort, Packets({100, 100, 100}));
        bool bOnce = true;
        system.judge = [&](const KovaUdpMessage &) {
            return std::exchange(bOnce, false) ? nError : 0;
        };
        ExpectSent(Send(&player));
        EXPECT_EQ(player.route.way, kUdpSegmented);
        EXPECT_EQ(system.At(nPort), player.packets);
    }
}

TEST_F(UdpBatchTest, RefusalInTheMiddleGoesOnWithWhatWasNotSent)
{
    Destination player(kSocket, 1, Packets({10, 10, 20, 20, 30, 30, 40}));
    system.judge = [](const KovaUdpMessage &message) {
        return message.packets.size() > 1 && message.packets[0].size() == 20 ? EIO : 0;
    };
    ExpectSent(Send(&player));
    EXPECT_EQ(system.At(1), player.packets);
    EXPECT_EQ(player.route.way, kUdpMany);
}

TEST_F(UdpBatchTest, DestinationThatAllowsOnlyPlainCallsIsRemembered)
{
    Destination player(kSocket, 1, Packets({10, 11, 12, 13}));
    system.judge = [](const KovaUdpMessage &message) {
        return !message.bAlone && message.packets[0].size() == 12 ? EPERM : 0;
    };
    ExpectSent(Send(&player));
    EXPECT_EQ(system.At(1), player.packets);
    EXPECT_EQ(player.route.way, kUdpSingly);
    system.calls.clear();
    ExpectSent(Send(&player));
    EXPECT_EQ(Messages(), (std::vector<size_t>{1, 1, 1, 1}));
}

TEST_F(UdpBatchTest, PacketIsLostOnlyWhenACallForItAloneFails)
{
    Destination player(kSocket, 1, Packets({10, 11, 12, 13, 14}));
    system.judge = [](const KovaUdpMessage &message) {
        return message.packets[0].size() == 12 ? ENETUNREACH : 0;
    };
    const KovaUdpDelivery cut = Send(&player);
    EXPECT_EQ(cut.outcome, kSendFailed);
    EXPECT_EQ(cut.nSent, 2U);
    EXPECT_EQ(cut.nError, ENETUNREACH);
    ExpectSent(Send(&player, 3));
    EXPECT_EQ(system.At(1),
              (Texts{player.packets[0], player.packets[1], player.packets[3], player.packets[4]}));
    EXPECT_EQ(player.route.way, kUdpSegmented);
}

TEST_F(UdpBatchTest, RestOfABatchInTroubleTakesNoDetours)
{
    Destination player(kSocket, 1, Packets({10, 10, 10, 10, 10, 10}));
    system.judge = [](const KovaUdpMessage &) { return ENETUNREACH; };
    EXPECT_EQ(SendAll(&player), (std::vector<uint32_t>{0, 1, 2, 3, 4, 5}));
    EXPECT_EQ(system.calls.size(), 2U + 6U); // one refusal of each of the other ways
    system.judge = nullptr;
    system.calls.clear();
    ExpectSent(Send(&player));
    EXPECT_EQ(Messages(), std::vector<size_t>{1});
}

TEST_F(UdpBatchTest, TroubleOfANeighbourIsItsOwn)
{
    Destination first(kSocket, 1, Packets({10, 20}));
    Destination second(kSocket, 2, Packets({30, 40, 50}));
    Destination third(kSocket, 3, Packets({60, 70}));
    system.judge = [](const KovaUdpMessage &message) {
        return message.packets[0].size() == 40 ? EACCES : 0;
    };
    KovaUdpDelivery deliveries[] = {first.Delivery(), second.Delivery(), third.Delivery()};
    KovaUdpBatchSend(deliveries, 3);
    ExpectSent(deliveries[0]);
    EXPECT_EQ(deliveries[1].outcome, kSendFailed);
    EXPECT_EQ(deliveries[1].nSent, 1U);
    EXPECT_EQ(deliveries[1].nError, EACCES);
    ExpectSent(deliveries[2]);
    EXPECT_EQ(system.At(1), first.packets);
    EXPECT_EQ(system.At(2), UpTo(second.packets, 1));
    EXPECT_EQ(system.At(3), third.packets);
}

TEST_F(UdpBatchTest, DescriptorsBelowOneAreNeverUsed)
{
    for (const int nSocket : {0, -1}) {
        Destination player(nSocket, 1, Packets({10, 10}));
        const KovaUdpDelivery failed = Send(&player);
        EXPECT_EQ(failed.outcome, kSendFailed);
        EXPECT_EQ(failed.nSent, 0U);
        EXPECT_EQ(failed.nError, nSocket == 0 ? ENOTSOCK : EBADF);
    }
    EXPECT_EQ(system.nAsked, 0);
    EXPECT_EQ(system.calls.size(), 0U);
}

/// Whatever is refused, each packet arrives once and in order, or is told to be lost.
TEST_F(UdpBatchTest, NothingIsLostOrDoubledWhateverIsRefused)
{
    for (unsigned nSeed = 0; nSeed < 400; nSeed++) {
        SCOPED_TRACE(nSeed);
        std::mt19937 random(nSeed);
        const auto upTo = [&random](unsigned n) { return static_cast<unsigned>(random() % n); };
        KovaUdpBatchForget();
        system.bSegments = upTo(3) != 0;
        system.bMany = upTo(5) != 0;
        std::vector<size_t> sizes(upTo(80));
        for (size_t &nSize : sizes)
            nSize = upTo(4) == 0 ? upTo(2000) : 1400;
        const uint16_t nPort = static_cast<uint16_t>(1000 + nSeed);
        Destination player(kSocket, nPort, Packets(sizes));
        const unsigned nRarely = 2 + upTo(20);
        system.judge = [&](const KovaUdpMessage &) {
            constexpr int kErrors[] = {EAGAIN, EINTR, EIO, EINVAL, ENOBUFS, EPERM, ENETUNREACH};
            return upTo(nRarely) == 0 ? kErrors[upTo(7)] : 0;
        };
        std::vector<uint32_t> lost = SendAll(&player);
        Texts expected;
        for (uint32_t n = 0; n < player.packets.size(); n++) {
            if (std::find(lost.begin(), lost.end(), n) == lost.end())
                expected.push_back(player.packets[n]);
        }
        ASSERT_TRUE(system.At(nPort) == expected);
    }
}

/// On the system as it is.
TEST(UdpBatchOnThisSystem, DatagramsArriveAsTheyWere)
{
    KovaUdpBatchForget();
    KovaUdpEnds ends;
    KovaRtpClient *pClient = ends.Client("1");
    Destination player(ends.nServerRtp, 1, Packets({1400, 1400, 1400, 700, 9, 1400, 1400, 3}));
    KovaUdpDelivery delivery = player.Delivery();
    delivery.pAddress = &pClient->rtpAddress;
    KovaUdpBatchSend(&delivery, 1);
    ExpectSent(delivery);
    for (const std::string &packet : player.packets)
        EXPECT_EQ(ends.Rtp(2000), KovaBytes(packet.begin(), packet.end()));
    EXPECT_EQ(ends.Rtp(), std::nullopt);
    KovaRtpClientDestroy(pClient);
}

/// Behind number 0 stands a socket that would take datagrams.
TEST(UdpBatchOnThisSystem, DescriptorZeroIsLeftAlone)
{
    KovaUdpEnds ends;
    KovaRtpClient *pClient = ends.Client("1");
    const int nInput = dup(0);
    ASSERT_EQ(dup2(ends.nServerRtp, 0), 0);
    Destination player(0, 1, Packets({10, 10}));
    KovaUdpDelivery delivery = player.Delivery();
    delivery.pAddress = &pClient->rtpAddress;
    KovaUdpBatchSend(&delivery, 1);
    EXPECT_EQ(delivery.outcome, kSendFailed);
    EXPECT_EQ(ends.Rtp(50), std::nullopt);
    if (nInput >= 0) {
        dup2(nInput, 0);
        close(nInput);
    } else {
        close(0);
    }
    KovaRtpClientDestroy(pClient);
}

} // namespace
