#include "classic/rtp/sending_thread.h"

#include "classic/rtp/send_group.h"
#include "classic/server/session_registry.h"
#include "foundation/byte_order.h"
#include "foundation/clock.h"
#include "foundation/log.h"
#include "tests/support/delivery.h"
#include "tests/support/fake_clock.h"
#include "tests/support/net_ends.h"
#include "tests/support/socket_faults.h"
#include "tests/support/stdout_capture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

namespace {

using Texts = std::vector<std::string>;

constexpr int64_t kMillion = 1000000;
constexpr int64_t kStart = 1900000000 * kMillion;
const char *const kId = "12345678901";

struct SendingThreadTest : testing::Test {
    KovaFakeClock clock;
    KovaSocketFaults faults;
    KovaStdoutCapture capture;
    const bool bLoud = LogEverything();
    KovaDelivery delivery;
    KovaUdpEnds ends;

    SendingThreadTest()
    {
        clock.Fix(kStart);
        // The stream's own threads: two packers, two senders. Their lines would
        // stand between those that the tests compare.
        EXPECT_TRUE(KovaWaitUntil([this] { return Ended(", Enter thread") == 4; }));
        capture.Clear();
    }

    static bool LogEverything()
    {
        RTSP_SetLogLevel(4);
        return true;
    }

    /// Messages with this end.
    size_t Ended(const std::string &end)
    {
        const Texts messages = capture.Messages();
        return static_cast<size_t>(
            std::count_if(messages.begin(), messages.end(), [&end](const std::string &message) {
                return message.size() > end.size() &&
                       message.compare(message.size() - end.size(), end.size(), end) == 0;
            }));
    }

    size_t Count(const std::string &message)
    {
        const Texts messages = capture.Messages();
        return static_cast<size_t>(std::count(messages.begin(), messages.end(), message));
    }

    /// Runs the thread's body in this thread; it must end by itself.
    Texts Run(KovaRtpSendGroup *pGroup)
    {
        capture.Clear();
        EXPECT_EQ(pSenderProc(pGroup), nullptr);
        return capture.Messages();
    }

    /// The sender report that is due at this state of affairs.
    KovaBytes Report(uint32_t nSeconds, uint32_t nFraction, uint32_t nTimestamp, uint32_t nPackets,
                     uint32_t nOctets) const
    {
        KovaBytes report = {0x80, 200, 0, 6};
        report.resize(28);
        RtspWriteMB(&report[4], delivery.nSsrc, 32);
        RtspWriteMB(&report[8], delivery.pStream->tCreated + 2208988800U + nSeconds, 32);
        RtspWriteMB(&report[12], nFraction, 32);
        RtspWriteMB(&report[16], nTimestamp, 32);
        RtspWriteMB(&report[20], nPackets, 32);
        RtspWriteMB(&report[24], nOctets, 32);
        return report;
    }
};

TEST_F(SendingThreadTest, LeavesWithoutAGroup)
{
    EXPECT_EQ(Run(nullptr),
              (Texts{"pSenderProc, Enter thread", "pSenderProc, Leave thread(pSendGroup)"}));
}

TEST_F(SendingThreadTest, LeavesWithoutASender)
{
    KovaRtpSendGroup *pGroup = delivery.Group();
    pGroup->pSender = nullptr;
    pGroup->nState = 2;
    EXPECT_EQ(Run(pGroup),
              (Texts{"pSenderProc, Enter thread", "pSenderProc, Leave thread(pSender)"}));
    EXPECT_EQ(pGroup->nState, 4U);
}

TEST_F(SendingThreadTest, LeavesWithoutAStream)
{
    delivery.pSender->pStreamer = nullptr;
    delivery.Group()->nState = 2;
    EXPECT_EQ(Run(delivery.Group()),
              (Texts{"pSenderProc, Enter thread", "pSenderProc, Leave thread(pStreamer)"}));
    EXPECT_EQ(delivery.Group()->nState, 4U);
}

TEST_F(SendingThreadTest, LeavesWithoutAPacker)
{
    delivery.pSender->nPayloadId = 98;
    delivery.Group()->nState = 2;
    EXPECT_EQ(Run(delivery.Group()),
              (Texts{"pSenderProc, Enter thread", "pSenderProc, Leave thread(pPacker)"}));
    EXPECT_EQ(delivery.Group()->nState, 4U);
}

TEST_F(SendingThreadTest, LeavesWhenItsStateIsNotRunning)
{
    delivery.Group()->nState = 3;
    EXPECT_EQ(Run(delivery.Group()),
              (Texts{"pSenderProc, Enter thread", "pSenderProc, Leave thread"}));
    EXPECT_EQ(delivery.Group()->nState, 4U);
    RTSP_SetLogLevel(3);
    delivery.Group()->nState = 3;
    EXPECT_EQ(Run(delivery.Group()), Texts{});
}

TEST_F(SendingThreadTest, SendsToEveryPlayingClientAndReleasesThePacket)
{
    KovaUdpEnds other;
    KovaRtpClient *pClient = delivery.Add(ends.Client(kId));
    delivery.Add(other.Client("2"));
    KovaRtpPacket *pPacket = KovaMakePacket({0xABCD, 0x12345678});
    KovaRtpPacketAddRef(pPacket);
    KovaRtpSenderAddRtpPacket(delivery.pSender, pPacket);
    KovaRtpSendGroupStart(delivery.Group());
    ASSERT_TRUE(KovaWaitUntil([&] { return KovaReferences(pPacket) == 1; }));
    KovaRtpPacketReleaseRef(pPacket);
    EXPECT_EQ(ends.Rtp(), KovaPacketBytes({0xABCD, 0x12345678}));
    EXPECT_EQ(other.Rtp(), KovaPacketBytes({0xABCD, 0x12345678}));
    EXPECT_EQ(delivery.pSender->nLastSequence, 0xABCD);
    EXPECT_EQ(delivery.pSender->nLastTimestamp, 0x12345678U);
    ASSERT_TRUE(delivery.Send({2, 0, 1000, kFrameVideo, 100}));
    delivery.WithClients([&] {
        EXPECT_EQ(pClient->nPacketCount, 2U);
        EXPECT_EQ(pClient->nOctetCount, 140U);
        EXPECT_EQ(pClient->nMeasureBytes, 140U);
    });
}

TEST_F(SendingThreadTest, LineForEachPacketIsOfLevelThree)
{
    const std::string line = "pSenderProc, Send RTP Packet success size=40 send=40";
    KovaTcpEnds tcp;
    delivery.Add(ends.Client(kId));
    RTSP_SetLogLevel(2);
    ASSERT_TRUE(delivery.Send({}));
    EXPECT_EQ(Count(line), 0U);
    RTSP_SetLogLevel(3);
    delivery.Add(tcp.Client("2", 4, 5));
    ASSERT_TRUE(delivery.Send({}));
    EXPECT_EQ(Count(line), 1U);
    EXPECT_EQ(Count("pSenderProc, Send RTP Packet success size=44 send=44"), 1U);
}

TEST_F(SendingThreadTest, InterleavedClientGetsReportAndPacketAsFrames)
{
    KovaTcpEnds tcp;
    // Channels are cut to their low byte.
    KovaRtpClient *pClient = delivery.Add(tcp.Client(kId, 0x104, 0x105));
    ASSERT_TRUE(delivery.Send({7, 0x11223344, 2500, kFrameKey, 1412}));
    KovaBytes expected = KovaFrameOf(5, Report(2, 2147483648U, 0x11223344, 0, 0));
    const KovaBytes packet = KovaFrameOf(4, KovaPacketBytes({7, 0x11223344, 2500, 0, 1412}));
    expected.insert(expected.end(), packet.begin(), packet.end());
    EXPECT_EQ(tcp.Receive(10000, 50), expected);
    delivery.WithClients([&] {
        EXPECT_EQ(pClient->nOctetCount, 1412U);
        EXPECT_EQ(pClient->nPacketCount, 1U);
        EXPECT_EQ(pClient->nMeasureBytes, 1412U);
    });
}

TEST_F(SendingThreadTest, ClientWaitsForAKeyFrame)
{
    KovaRtpClient *pClient = delivery.Add(ends.Client(kId));
    ASSERT_TRUE(delivery.Send({1, 0, 1000, kFrameVideo}));
    ASSERT_TRUE(delivery.Send({2, 0, 1000, kFrameVideo}));
    EXPECT_EQ(ends.Rtp(), std::nullopt);
    EXPECT_EQ(ends.Rtcp(), std::nullopt);
    EXPECT_EQ(Count("Client Waiting !!!"), 2U);
    ASSERT_TRUE(delivery.Send({3, 0, 1000, kFrameKey}));
    ASSERT_TRUE(delivery.Send({4, 0, 1000, kFrameVideo}));
    EXPECT_EQ(ends.Rtp(), KovaPacketBytes({3, 0}));
    EXPECT_EQ(ends.Rtp(), KovaPacketBytes({4, 0}));
    EXPECT_EQ(Count("Client Waiting !!!"), 2U);
    EXPECT_EQ(Count("pSenderProc, Find Key Frame, ID: 97, Now PTS: 1000"), 1U);
    uint64_t nNow = 0;
    ASSERT_EQ(RtspGetTime(&nNow), 1);
    delivery.WithClients([&] { EXPECT_EQ(pClient->nMeasureStartTime, nNow / 1000); });
}

TEST_F(SendingThreadTest, AudioNeedsNoKeyFrame)
{
    delivery.Add(ends.Client(kId));
    ASSERT_TRUE(delivery.Send({1, 0, 1000, kFrameAudio}));
    EXPECT_EQ(ends.Rtp(), KovaPacketBytes({1, 0}));
    EXPECT_EQ(Count("pSenderProc, Find Key Frame, ID: 97, Now PTS: 1000"), 1U);
}

TEST_F(SendingThreadTest, KeyFrameCountsBeforeTheClientPlays)
{
    KovaRtpClient *pClient = delivery.Add(ends.Client(kId), 0);
    RTSP_SetLogLevel(3); // the line about it is of level 4
    ASSERT_TRUE(delivery.Send({1, 0, 1000, kFrameKey}));
    EXPECT_EQ(Count("pSenderProc, Find Key Frame, ID: 97, Now PTS: 1000"), 0U);
    EXPECT_EQ(Count("Client Waiting !!!"), 1U);
    EXPECT_EQ(ends.Rtp(), std::nullopt);
    delivery.WithClients([&] {
        EXPECT_EQ(pClient->bKeyFrameFound, 1);
        pClient->nState = 1;
    });
    ASSERT_TRUE(delivery.Send({2, 0, 1000, kFrameVideo}));
    EXPECT_EQ(ends.Rtp(), KovaPacketBytes({2, 0}));
}

TEST_F(SendingThreadTest, ReportsAtTheFirstPacketAndThenEverySixSeconds)
{
    KovaRtpClient *pClient = delivery.Add(ends.Client(kId));
    ASSERT_TRUE(delivery.Send({1, 90000, 1000}));
    EXPECT_EQ(ends.Rtcp(), Report(1, 0, 90000, 0, 0));
    delivery.WithClients([&] { EXPECT_EQ(pClient->nLastRtcpTime, kStart / kMillion); });
    clock.Advance(5 * kMillion + kMillion - 1); // 5.999999 s: still 5 whole seconds
    ASSERT_TRUE(delivery.Send({2, 180000, 1000}));
    EXPECT_EQ(ends.Rtcp(), std::nullopt);
    clock.Advance(1);
    ASSERT_TRUE(delivery.Send({3, 0xFFFFFFFF, 999, kFrameVideo, 60}));
    EXPECT_EQ(ends.Rtcp(), Report(0, 4290672328U, 0xFFFFFFFF, 2, 80));
    ASSERT_TRUE(delivery.Send({4, 1, 999}));
    EXPECT_EQ(ends.Rtcp(), std::nullopt);
}

TEST_F(SendingThreadTest, FailedReportIsLoggedAndNothingElse)
{
    KovaRtpClient *pClient = delivery.Add(ends.Client(kId));
    faults.Script(ends.nServerRtcp, {{ENETUNREACH}});
    RTSP_SetLogLevel(1);
    ASSERT_TRUE(delivery.Send({}));
    EXPECT_EQ(Count("pSenderProc, Send RTCP Packet fail, Error: " + std::to_string(ENETUNREACH) +
                    "(Network is unreachable)"),
              1U);
    EXPECT_EQ(ends.Rtcp(), std::nullopt);
    EXPECT_EQ(ends.Rtp(), KovaPacketBytes({}));
    delivery.WithClients([&] {
        EXPECT_EQ(pClient->nLastRtcpTime, kStart / kMillion); // not tried again at once
        EXPECT_EQ(pClient->nState, 1);
    });
}

TEST_F(SendingThreadTest, PlayersRtcpKeepsItsSessionAlive)
{
    delivery.AddSession(kId);
    delivery.Add(ends.Client(kId));
    KovaRtspSession *pSession = KovaRtspServerGetSessionBySessionId(delivery.pServer, kId);
    EXPECT_EQ(pSession->tExpire, kStart / kMillion + 60);
    ends.SendRtcp({0x81, 201, 0, 1});
    ends.SendRtcp({0x81, 201, 0, 1});
    clock.Advance(7 * kMillion);
    const std::string line = std::string("pSenderProc, UpdateSession: ") + kId;
    ASSERT_TRUE(delivery.Send({}));
    EXPECT_EQ(pSession->tExpire, kStart / kMillion + 7 + 60 + 30);
    EXPECT_EQ(Count(line), 1U);
    RTSP_SetLogLevel(3);
    ASSERT_TRUE(delivery.Send({}));
    EXPECT_EQ(Count(line), 1U);
    RTSP_SetLogLevel(4);
    clock.Advance(kMillion);
    ASSERT_TRUE(delivery.Send({})); // nothing has come any more
    EXPECT_EQ(Count(line), 1U);
    EXPECT_EQ(pSession->tExpire, kStart / kMillion + 7 + 60 + 30);
    EXPECT_EQ(ends.Rtp(), KovaPacketBytes({}));
}

TEST_F(SendingThreadTest, ControlBytesOfAnIdArePrintedAsQuestionMarksAndKept)
{
    constexpr char kForged[] = "1\n2\x1b[m\x7f";
    delivery.AddSession(kForged);
    delivery.Add(ends.Client(kForged));
    KovaRtspSession *pSession = KovaRtspServerGetSessionBySessionId(delivery.pServer, kForged);
    RTSP_SetLogLevel(4);
    ends.SendRtcp({0x81, 201, 0, 1});
    clock.Advance(7 * kMillion);
    ASSERT_TRUE(delivery.Send({}));
    EXPECT_EQ(pSession->tExpire, kStart / kMillion + 7 + 60 + 30);
    EXPECT_EQ(Count("pSenderProc, UpdateSession: 1?2?[m?"), 1U);
}

TEST_F(SendingThreadTest, FullUdpSocketIsTriedAgain)
{
    KovaRtpClient *pClient = delivery.Add(ends.Client(kId));
    faults.Script(ends.nServerRtp, {{EAGAIN}, {EINTR}, {EAGAIN}});
    ASSERT_TRUE(delivery.Send({}));
    EXPECT_EQ(faults.Left(), 0U);
    EXPECT_EQ(ends.Rtp(), KovaPacketBytes({}));
    EXPECT_EQ(ends.Rtp(), std::nullopt);
    delivery.WithClients([&] { EXPECT_EQ(pClient->nPacketCount, 1U); });
}

TEST_F(SendingThreadTest, OtherUdpErrorDropsThePacketSilently)
{
    KovaRtpClient *pClient = delivery.Add(ends.Client(kId));
    ASSERT_TRUE(delivery.Send({1}));
    capture.Clear();
    faults.Script(ends.nServerRtp, {{ECONNREFUSED}, {EBADF}});
    ASSERT_TRUE(delivery.Send({2}));
    ASSERT_TRUE(delivery.Send({3}));
    EXPECT_EQ(capture.Text(), "");
    ASSERT_TRUE(delivery.Send({4}));
    EXPECT_EQ(ends.Rtp(), KovaPacketBytes({1}));
    EXPECT_EQ(ends.Rtp(), KovaPacketBytes({4}));
    delivery.WithClients([&] {
        EXPECT_EQ(pClient->nPacketCount, 2U);
        EXPECT_EQ(pClient->nOctetCount, 80U);
        EXPECT_EQ(pClient->nState, 1);
    });
}

} // namespace
