#include "classic/rtp/packet_batch.h"
#include "classic/rtp/send_group.h"
#include "classic/server/session_registry.h"
#include "foundation/byte_order.h"
#include "foundation/log.h"
#include "tests/support/c_calls.h"
#include "tests/support/delivery.h"
#include "tests/support/fake_clock.h"
#include "tests/support/net_ends.h"
#include "tests/support/socket_faults.h"
#include "tests/support/stdout_capture.h"
#include "tests/unit/sleep_shim.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <string>
#include <vector>

/// What clients get, and the log reader, of packets that are served as one.
namespace {

using Texts = std::vector<std::string>;

constexpr int64_t kStart = 1900000000000000;
constexpr uint32_t kPts = 500; // below the first one's: never held back
constexpr char kId[] = "12345678901";
constexpr char kWaits[] = "Client Waiting !!!";
constexpr char kSent40[] = "pSenderProc, Send RTP Packet success size=40 send=40";
constexpr char kSent44[] = "pSenderProc, Send RTP Packet success size=44 send=44";

std::atomic<int> g_nPolls{0};
std::atomic<int> g_nPollError{0};
std::atomic<int> g_nReceives{0};
std::atomic<int> g_nDatagramCalls{0};
std::atomic<int> g_nFrameCalls{0};

int Poll(pollfd *pEntries, nfds_t nEntries, int nMilliseconds)
{
    if (nMilliseconds != 0)
        return __real_poll(pEntries, nEntries, nMilliseconds);
    g_nPolls++;
    errno = g_nPollError;
    return errno != 0 ? -1 : __real_poll(pEntries, nEntries, 0);
}

ssize_t ReceiveFrom(int nSocket, void *pData, size_t nSize, int nFlags, sockaddr *pAddress,
                    socklen_t *pAddressSize)
{
    g_nReceives++;
    return __real_recvfrom(nSocket, pData, nSize, nFlags, pAddress, pAddressSize);
}

int SendMany(int nSocket, mmsghdr *pMessages, unsigned nCount, int nFlags)
{
    g_nDatagramCalls++;
    return __real_sendmmsg(nSocket, pMessages, nCount, nFlags);
}

ssize_t SendFrames(int nSocket, const msghdr *pMessage, int nFlags)
{
    g_nFrameCalls++;
    return __real_sendmsg(nSocket, pMessage, nFlags);
}

/// Counts calls while it lives; scripted ones go past it.
struct CallCounter {
    CallCounter()
    {
        g_nPolls = g_nPollError = g_nReceives = g_nDatagramCalls = g_nFrameCalls = 0;
        KovaReplaceCall<__real_poll>(Poll);
        KovaReplaceCall<__real_recvfrom>(ReceiveFrom);
        KovaReplaceCall<__real_sendmmsg>(SendMany);
        KovaReplaceCall<__real_sendmsg>(SendFrames);
    }
    ~CallCounter()
    {
        KovaReplaceCall<__real_poll>(nullptr);
        KovaReplaceCall<__real_recvfrom>(nullptr);
        KovaReplaceCall<__real_sendmmsg>(nullptr);
        KovaReplaceCall<__real_sendmsg>(nullptr);
    }
};

struct BatchServingTest : testing::Test {
    KovaFakeClock clock;
    KovaSocketFaults faults;
    KovaStdoutCapture capture;
    KovaDelivery delivery;
    KovaRtpSendGroup *pGroup = delivery.Group();
    KovaUdpEnds udp;
    KovaTcpEnds tcp;

    /// The first packet of all is served alone; it goes to nobody here.
    BatchServingTest()
    {
        clock.Fix(kStart);
        EXPECT_TRUE(delivery.Send({0, 0, 1000}));
        EXPECT_EQ(KovaRtpSendGroupStop(pGroup), 0);
    }

    ~BatchServingTest() override
    {
        RTSP_SetLogLevel(2);
    }

    /// Packets that are queued before the thread looks.
    void Begin(const std::vector<KovaPacketPlan> &plans, uint32_t nLevel = 3)
    {
        for (const KovaPacketPlan &plan : plans)
            delivery.Queue(plan);
        RTSP_SetLogLevel(nLevel);
        capture.Clear();
        ASSERT_EQ(KovaRtpSendGroupStart(pGroup), 0);
    }

    /// The same, and waits for the end; the lines about it.
    Texts Serve(const std::vector<KovaPacketPlan> &plans, uint32_t nLevel = 3)
    {
        Begin(plans, nLevel);
        EXPECT_TRUE(delivery.Drain());
        RTSP_SetLogLevel(2);
        EXPECT_EQ(KovaRtpSendGroupStop(pGroup), 0);
        Texts messages;
        for (const std::string &message : capture.Messages()) {
            if (message.find("thread") == std::string::npos)
                messages.push_back(message);
        }
        return messages;
    }

    static KovaPacketPlan Plan(uint16_t nSequence, uint32_t nType = kFrameKey, uint32_t nSize = 40)
    {
        return {nSequence, 1000U * nSequence, kPts, nType, nSize};
    }
    static std::vector<KovaPacketPlan> Plans(uint16_t nCount)
    {
        std::vector<KovaPacketPlan> plans;
        for (uint16_t n = 1; n <= nCount; n++)
            plans.push_back(Plan(n));
        return plans;
    }
    void ExpectDatagrams(const std::vector<uint16_t> &sequences)
    {
        for (const uint16_t nSequence : sequences)
            EXPECT_EQ(udp.Rtp(2000), KovaPacketBytes(Plan(nSequence)));
        EXPECT_EQ(udp.Rtp(20), std::nullopt);
    }
    /// A frame of channel 0.
    static KovaBytes Frame(uint16_t nSequence)
    {
        return KovaFrameOf(0, KovaPacketBytes(Plan(nSequence)));
    }
    static KovaBytes Frames(const std::vector<uint16_t> &sequences)
    {
        KovaBytes bytes;
        for (const uint16_t nSequence : sequences) {
            const KovaBytes frame = Frame(nSequence);
            bytes.insert(bytes.end(), frame.begin(), frame.end());
        }
        return bytes;
    }
    /// A client that has had its report.
    KovaRtpClient *Reported(KovaRtpClient *pClient)
    {
        pClient->nLastRtcpTime = static_cast<int32_t>(kStart / 1000000);
        return delivery.Add(pClient);
    }
};

TEST_F(BatchServingTest, EachClientGetsTheBatchWithOneCall)
{
    Reported(udp.Client("1"));
    Reported(tcp.Client("2"));
    const CallCounter calls;
    EXPECT_EQ(Serve(Plans(20)).size(), 40U);
    EXPECT_EQ(g_nDatagramCalls, 1);
    EXPECT_EQ(g_nFrameCalls, 1);
    std::vector<uint16_t> all;
    for (uint16_t n = 1; n <= 20; n++)
        all.push_back(n);
    ExpectDatagrams(all);
    EXPECT_EQ(tcp.Receive(10000, 50), Frames(all));
}

TEST_F(BatchServingTest, CountsAndLinesAreThoseOfEachPacket)
{
    KovaRtpClient *pUdp = Reported(udp.Client("1"));
    KovaRtpClient *pTcp = Reported(tcp.Client("2"));
    const Texts lines = Serve({Plan(1, kFrameKey, 40), Plan(2, kFrameVideo, 100), Plan(3)});
    const std::string sent = "pSenderProc, Send RTP Packet success ";
    EXPECT_EQ(lines, (Texts{kSent40, sent + "size=100 send=100", kSent40, kSent44,
                            sent + "size=104 send=104", kSent44}));
    delivery.WithClients([&] {
        for (const KovaRtpClient *pClient : {pUdp, pTcp}) {
            EXPECT_EQ(pClient->nPacketCount, 3U);
            EXPECT_EQ(pClient->nOctetCount, 180U);
            EXPECT_EQ(pClient->nMeasureBytes, 180U);
        }
    });
}

TEST_F(BatchServingTest, OtherTimestampsAreOtherBatches)
{
    Reported(tcp.Client("1"));
    const CallCounter calls;
    std::vector<KovaPacketPlan> plans = Plans(6);
    plans[2].nPts = plans[3].nPts = kPts - 1;
    Serve(plans);
    EXPECT_EQ(g_nFrameCalls, 3);
    EXPECT_EQ(tcp.Receive(10000, 50).size(), 6 * 44U);
}

TEST_F(BatchServingTest, BatchHasAtMost64PacketsAnd64KiB)
{
    Reported(tcp.Client("1"));
    for (const uint16_t nCount : {64, 65}) {
        const CallCounter calls;
        Serve(Plans(nCount));
        EXPECT_EQ(g_nFrameCalls, nCount - 63);
        EXPECT_EQ(tcp.Receive(100000, 50).size(), nCount * 44U);
    }
    std::vector<KovaPacketPlan> large(17, Plan(1, kFrameKey, 4096));
    {
        const CallCounter calls;
        Serve(std::vector<KovaPacketPlan>(large.begin(), large.end() - 1));
        EXPECT_EQ(g_nFrameCalls, 1);
    }
    {
        const CallCounter calls;
        Serve(large);
        EXPECT_EQ(g_nFrameCalls, 2);
    }
    EXPECT_EQ(tcp.Receive(200000, 50).size(), 33 * 4100U);
}

TEST_F(BatchServingTest, KeyFrameWithinTheBatchIsWaitedFor)
{
    KovaRtpClient *pClient = Reported(udp.Client("1"));
    const Texts lines = Serve({Plan(1, kFrameVideo), Plan(2, kFrameVideo), Plan(3, kFrameKey),
                               Plan(4, kFrameVideo), Plan(5, kFrameKey)},
                              4);
    ASSERT_GE(lines.size(), 6U);
    EXPECT_EQ(Texts(lines.end() - 6, lines.end()),
              (Texts{kWaits, kWaits, "pSenderProc, Find Key Frame, ID: 97, Now PTS: 500", kSent40,
                     kSent40, kSent40}));
    ExpectDatagrams({3, 4, 5});
    delivery.WithClients([&] { EXPECT_EQ(pClient->nPacketCount, 3U); });
}

TEST_F(BatchServingTest, WhatIsCountedIsWhatWasSentOfTheBatch)
{
    KovaRtpClient *pClient = Reported(udp.Client("1"));
    const Texts lines =
        Serve({Plan(1, kFrameVideo, 50), Plan(2, kFrameKey, 60), Plan(3, kFrameVideo, 70)});
    const std::string sent = "pSenderProc, Send RTP Packet success ";
    EXPECT_EQ(lines, (Texts{kWaits, sent + "size=60 send=60", sent + "size=70 send=70"}));
    delivery.WithClients([&] {
        EXPECT_EQ(pClient->nPacketCount, 2U);
        EXPECT_EQ(pClient->nOctetCount, 130U);
        EXPECT_EQ(pClient->nMeasureBytes, 130U);
    });
}

TEST_F(BatchServingTest, WaitingClientCostsAMillisecondForEachPacketOfTheBatch)
{
    for (int n = 0; n < 20; n++)
        delivery.Add(KovaRtpClientCreate("1", 0, 0, 0, 0, {}, 1, nullptr, 0, 1, 0, 0), 0);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(Serve(Plans(10)), Texts(200, kWaits));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(200));
}

TEST_F(BatchServingTest, ReportComesBeforeThePacketAndHasItsTimestamp)
{
    delivery.Add(tcp.Client("1"));
    Serve({Plan(1, kFrameVideo), Plan(2, kFrameVideo), Plan(3), Plan(4)});
    const KovaBytes bytes = tcp.Receive(10000, 50);
    const KovaBytes packets = Frames({3, 4});
    ASSERT_EQ(bytes.size(), 32 + packets.size());
    EXPECT_EQ(bytes[1], 1); // its channel
    uint32_t nTimestamp = 0;
    RtspReadMB(&bytes[4 + 16], &nTimestamp, 32);
    EXPECT_EQ(nTimestamp, 3000U);
    EXPECT_EQ(KovaBytes(bytes.begin() + 32, bytes.end()), packets);
}

TEST_F(BatchServingTest, OneDatagramIsTakenForEachPacket)
{
    delivery.AddSession(kId);
    Reported(udp.Client(kId));
    KovaRtspSession *pSession = KovaRtspServerGetSessionBySessionId(delivery.pServer, kId);
    for (int n = 0; n < 2; n++)
        udp.SendRtcp({0x81, 201, 0, 1});
    clock.Advance(4000000);
    const std::string update = std::string("pSenderProc, UpdateSession: ") + kId;
    const CallCounter calls;
    const Texts lines = Serve(Plans(4), 4);
    ASSERT_GE(lines.size(), 7U);
    EXPECT_EQ(Texts(lines.end() - 6, lines.end()),
              (Texts{update, kSent40, update, kSent40, kSent40, kSent40}));
    EXPECT_EQ(g_nPolls, 1);
    EXPECT_EQ(g_nReceives, 3);
    EXPECT_EQ(pSession->tExpire, kStart / 1000000 + 4 + 60 + 30);
    ExpectDatagrams({1, 2, 3, 4});
}

TEST_F(BatchServingTest, OneCallTellsThatNoRtcpHasCome)
{
    KovaUdpEnds other;
    Reported(udp.Client("1"));
    Reported(other.Client("2"));
    const CallCounter calls;
    Serve(Plans(30));
    EXPECT_EQ(g_nPolls, 1);
    EXPECT_EQ(g_nReceives, 0);
}

TEST_F(BatchServingTest, OnlyTheSocketThatHoldsSomethingIsLookedAt)
{
    KovaUdpEnds others[2];
    Reported(others[0].Client("1"));
    Reported(udp.Client("2"));
    Reported(others[1].Client("3"));
    udp.SendRtcp({0x81, 201, 0, 1});
    const CallCounter calls;
    Serve(Plans(3));
    EXPECT_EQ(g_nPolls, 1);
    EXPECT_EQ(g_nReceives, 2); // the datagram, and that there is no other
}

TEST_F(BatchServingTest, WhereTheSystemDoesNotTellEverySocketIsLookedAt)
{
    delivery.AddSession(kId);
    Reported(udp.Client(kId));
    Serve({Plan(1)});
    udp.SendRtcp({0x81, 201, 0, 1});
    const CallCounter calls;
    g_nPollError = EINTR;
    const Texts lines = Serve(Plans(3), 4);
    EXPECT_EQ(g_nReceives, 2);
    EXPECT_NE(
        std::find(lines.begin(), lines.end(), std::string("pSenderProc, UpdateSession: ") + kId),
        lines.end());
}

TEST_F(BatchServingTest, LostConnectionEndsWithTheNextPacket)
{
    delivery.AddSession(kId);
    Reported(tcp.Client(kId));
    faults.Script(tcp.Socket(), {{0, 44}, {ECONNRESET}});
    const Texts lines = Serve(Plans(4));
    EXPECT_EQ(lines, (Texts{kSent44,
                            "pSenderProc, Send RTP Packet fail, Error: " +
                                std::to_string(ECONNRESET) + "(Connection reset by peer)",
                            kWaits}));
    EXPECT_EQ(KovaRtpSendGroupClientCount(pGroup), 0U);
    EXPECT_FALSE(delivery.HasSession(kId));
}

TEST_F(BatchServingTest, OtherErrorCostsTheConnectionOnePacket)
{
    KovaRtpClient *pClient = Reported(tcp.Client("1"));
    faults.Script(tcp.Socket(), {{0, 44}, {ENOBUFS}});
    const Texts lines = Serve(Plans(4));
    EXPECT_EQ(lines, (Texts{kSent44,
                            "pSenderProc, Send RTP Packet fail, Error: " + std::to_string(ENOBUFS) +
                                "(No buffer space available)",
                            kSent44, kSent44}));
    EXPECT_EQ(tcp.Receive(10000, 50), Frames({1, 3, 4}));
    delivery.WithClients([&] { EXPECT_EQ(pClient->nPacketCount, 3U); });
}

TEST_F(BatchServingTest, DatagramThatIsRefusedForGoodIsLostSilently)
{
    KovaRtpClient *pClient = Reported(udp.Client("1"));
    // The batch is refused, each packet is tried by itself, and the second is lost.
    faults.Script(udp.nServerRtp,
                  {{EPERM}, {EPERM}, {0, 1000}, {ENETUNREACH}, {0, 1000}, {0, 1000}});
    EXPECT_EQ(Serve(Plans(4)), Texts(3, kSent40));
    EXPECT_EQ(faults.Left(), 0U);
    ExpectDatagrams({1, 3, 4});
    delivery.WithClients([&] { EXPECT_EQ(pClient->nPacketCount, 3U); });
}

TEST_F(BatchServingTest, FullSocketInTheMiddleLosesAndDoublesNothing)
{
    Reported(udp.Client("1"));
    Reported(tcp.Client("2"));
    std::vector<KovaPacketPlan> plans = Plans(4);
    for (size_t nCut = 1; nCut < 4 * 44; nCut += 7) {
        SCOPED_TRACE(nCut);
        faults.Script(tcp.Socket(), {{0, nCut}, {EAGAIN}, {EINTR}, {0, 1}, {EAGAIN}});
        EXPECT_EQ(Serve(plans).size(), 8U);
        ASSERT_EQ(tcp.Receive(10000, 20), Frames({1, 2, 3, 4}));
        for (uint16_t n = 1; n <= 4; n++)
            ASSERT_EQ(udp.Rtp(2000), KovaPacketBytes(Plan(n)));
    }
    faults.Script(udp.nServerRtp, {{EAGAIN}, {EINTR}, {EAGAIN}});
    EXPECT_EQ(Serve(plans).size(), 8U);
    ExpectDatagrams({1, 2, 3, 4});
}

TEST_F(BatchServingTest, ClientThatIsRemovedDuringTheWaitGetsNothingMore)
{
    KovaRtpClient *pClient = Reported(tcp.Client("1"));
    std::deque<KovaScriptedSend> sends(100000, {EAGAIN});
    sends.push_front({0, 44});
    faults.Script(tcp.Socket(), sends);
    Begin(Plans(3));
    ASSERT_TRUE(KovaWaitUntil([this] { return faults.Left() < 99998; }));
    KovaRtpSendGroupRemoveRtpClient(pGroup, pClient);
    ASSERT_TRUE(delivery.Drain());
    faults.Script(tcp.Socket(), {});
    EXPECT_EQ(tcp.Receive(10000, 50), Frame(1));
    KovaRtpClientDestroy(pClient);
}

TEST_F(BatchServingTest, StopEndsTheWaitForEachPacket)
{
    KovaRtpClient *pClient = Reported(tcp.Client("1"));
    faults.Script(tcp.Socket(), std::deque<KovaScriptedSend>(100000, {EAGAIN}));
    Begin(Plans(3));
    ASSERT_TRUE(KovaWaitUntil([this] { return faults.Left() < 99998; }));
    EXPECT_EQ(KovaRtpSendGroupStop(pGroup), 0);
    EXPECT_EQ(pGroup->pPacketList, nullptr);
    delivery.WithClients([&] { EXPECT_EQ(pClient->nPacketCount, 0U); });
}

TEST_F(BatchServingTest, LastPacketIsTheFirstOfTheBatchUntilItIsServed)
{
    Reported(tcp.Client("1"));
    faults.Script(tcp.Socket(), std::deque<KovaScriptedSend>(100000, {EAGAIN}));
    Begin(Plans(5));
    ASSERT_TRUE(KovaWaitUntil([this] { return faults.Left() < 99998; }));
    EXPECT_EQ(delivery.pSender->nLastSequence, 1);
    EXPECT_EQ(delivery.pSender->nLastTimestamp, 1000U);
    faults.Script(tcp.Socket(), {});
    ASSERT_TRUE(delivery.Drain());
    EXPECT_TRUE(KovaWaitUntil([this] { return delivery.pSender->nLastSequence == 5; }));
    EXPECT_EQ(delivery.pSender->nLastTimestamp, 5000U);
}

TEST_F(BatchServingTest, BatchOutlivesAFlushOfTheQueue)
{
    Reported(tcp.Client("1"));
    faults.Script(tcp.Socket(), std::deque<KovaScriptedSend>(100000, {EAGAIN}));
    KovaRtpPacket *pPacket = KovaMakePacket(Plan(0));
    KovaRtpPacketAddRef(pPacket);
    KovaRtpSenderAddRtpPacket(delivery.pSender, pPacket);
    Begin(Plans(5));
    ASSERT_TRUE(KovaWaitUntil([this] { return faults.Left() < 99998; }));
    EXPECT_EQ(KovaReferences(pPacket), 3);
    KovaRtpSendGroupRemoveAllRtpPacket(pGroup);
    EXPECT_EQ(KovaReferences(pPacket), 2);
    delivery.Queue(Plan(9));
    faults.Script(tcp.Socket(), {});
    ASSERT_TRUE(delivery.Drain());
    EXPECT_EQ(tcp.Receive(10000, 50), Frames({0, 1, 2, 3, 4, 5, 9}));
    EXPECT_EQ(KovaReferences(pPacket), 1);
    KovaRtpPacketReleaseRef(pPacket);
}

TEST_F(BatchServingTest, PacketThatIsTooLargeForAConnectionGoesByItself)
{
    Reported(udp.Client("1"));
    Reported(tcp.Client("2"));
    std::vector<KovaPacketPlan> plans = Plans(3);
    plans[1].nSize = 8189;
    const Texts lines = Serve(plans);
    EXPECT_EQ(std::count(lines.begin(), lines.end(),
                         "pSenderProc, Send RTP Packet fail, Error: " + std::to_string(EMSGSIZE) +
                             "(Message too long)"),
              1);
    EXPECT_EQ(tcp.Receive(10000, 50), Frames({1, 3}));
    for (const KovaPacketPlan &plan : plans)
        EXPECT_EQ(udp.Rtp(2000), KovaPacketBytes(plan));
    plans[1].nSize = 8188;
    Serve(plans);
    EXPECT_EQ(tcp.Receive(10000, 50).size(), 44U + 8192U + 44U);
}

TEST_F(BatchServingTest, ClientsOfOneConnectionKeepTheirChannels)
{
    Reported(tcp.Client("1", 0, 1));
    Reported(tcp.Client("2", 6, 7));
    Serve(Plans(2));
    KovaBytes expected = Frames({1, 2});
    for (uint16_t n = 1; n <= 2; n++) {
        const KovaBytes frame = KovaFrameOf(6, KovaPacketBytes(Plan(n)));
        expected.insert(expected.end(), frame.begin(), frame.end());
    }
    EXPECT_EQ(tcp.Receive(10000, 50), expected);
}

/// From the third one on they share a copy of the frames: each has its own channel in it.
TEST_F(BatchServingTest, ManyClientsInConnectionsGetTheirOwnFrames)
{
    const std::vector<uint16_t> channels = {0, 6, 0, 2, 8};
    for (size_t n = 0; n < channels.size(); n++)
        Reported(tcp.Client(std::to_string(n + 1).c_str(), channels[n],
                            static_cast<uint16_t>(channels[n] + 1)));
    KovaBytes expected;
    for (const uint16_t nChannel : channels) {
        for (uint16_t n = 1; n <= 3; n++) {
            const KovaBytes frame = KovaFrameOf(nChannel, KovaPacketBytes(Plan(n)));
            expected.insert(expected.end(), frame.begin(), frame.end());
        }
    }
    Serve(Plans(3));
    EXPECT_EQ(tcp.Receive(10000, 50), expected);
}

/// A stream whose first timestamp is 0 makes the schedule anew with each packet.
TEST_F(BatchServingTest, PacketThatMakesTheScheduleIsServedAlone)
{
    KovaRtspStreamer *pOther = delivery.pStream;
    pOther->nFirstRtpTimestamp = 0;
    std::vector<KovaPacketPlan> plans = Plans(3);
    for (KovaPacketPlan &plan : plans)
        plan.nPts = 0;
    Reported(tcp.Client("1"));
    const CallCounter calls;
    const Texts lines = Serve(plans, 4);
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const std::string &line) {
                                return line.find("First Send Packet") != std::string::npos;
                            }),
              3);
    EXPECT_EQ(g_nFrameCalls, 3);
}

TEST_F(BatchServingTest, WhoeverWaitsForTheClientsIsLetInBetweenMany)
{
    for (int n = 0; n < 300; n++)
        delivery.Add(KovaRtpClientCreate("1", 0, 0, 0, 0, {}, 1, nullptr, 0, 1, 0, 0), 2);
    pGroup->nClientWaiters = 1; // as if somebody came just now
    const KovaSleepCounter sleeps;
    EXPECT_EQ(Serve({Plan(1)}).size(), 300U);
    EXPECT_GE(sleeps.Count(), 3); // twice in between, and at the end
    pGroup->nClientWaiters = 0;
    EXPECT_EQ(KovaRtpSendGroupClientCount(pGroup), 0U);
}

} // namespace
