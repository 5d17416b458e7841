#include "classic/rtp/pacing.h"
#include "foundation/log.h"
#include "tests/support/delivery.h"
#include "tests/support/fake_clock.h"
#include "tests/support/net_ends.h"
#include "tests/support/stdout_capture.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Texts = std::vector<std::string>;

TEST(PacingWindow, HoldsFromThreeSecondsEarlyToOneSecondLate)
{
    EXPECT_FALSE(KovaPacingHolds(5000, 1999));
    EXPECT_FALSE(KovaPacingHolds(5000, 2000));
    EXPECT_TRUE(KovaPacingHolds(5000, 2001));
    EXPECT_TRUE(KovaPacingHolds(5000, 5999));
    EXPECT_FALSE(KovaPacingHolds(5000, 6000));
    EXPECT_FALSE(KovaPacingHolds(5000, 6001));
}

TEST(PacingWindow, IsSignedAtTheStart)
{
    EXPECT_TRUE(KovaPacingHolds(0, 0));
    EXPECT_TRUE(KovaPacingHolds(100, 0));
    EXPECT_TRUE(KovaPacingHolds(2999, 0));
    EXPECT_FALSE(KovaPacingHolds(3000, 0));
    EXPECT_TRUE(KovaPacingHolds(100, -1));
    EXPECT_FALSE(KovaPacingHolds(100, -2900));
}

TEST(PacingWindow, HoldEndsBehindOneSecond)
{
    EXPECT_TRUE(KovaPacingStillHolds(100, 1100));
    EXPECT_FALSE(KovaPacingStillHolds(100, 1101));
    EXPECT_EQ(KovaPacingRemaining(100, 1100), 1U);
    EXPECT_EQ(KovaPacingRemaining(100, 0), 1101U);
    EXPECT_EQ(KovaPacingRemaining(100, 5000), 1U);
}

/// The clock stands still, so what is held stays held until the test moves it.
struct PacingTest : testing::Test {
    static constexpr int64_t kStart = 1900000000LL * 1000000 + 250000;
    KovaFakeClock clock;
    KovaStdoutCapture capture;
    KovaDelivery delivery;
    KovaUdpEnds ends;
    KovaRtpClient *pClient = delivery.Add(ends.Client("12345678901"));
    uint16_t nNext = 1;

    PacingTest()
    {
        clock.Fix(kStart);
        Rtsp_DebugLevel = 4;
    }

    ~PacingTest() override
    {
        clock.Advance(10 * 1000000); // whatever is held goes out
    }

    static uint32_t Milliseconds(int64_t nMicroseconds)
    {
        // As the library's own clock counts.
        return static_cast<uint32_t>(
            static_cast<uint64_t>(static_cast<int64_t>(static_cast<int32_t>(
                static_cast<uint32_t>(static_cast<uint64_t>(nMicroseconds))))) /
            1000);
    }

    /// Queues a packet with this timestamp.
    void Queue(uint32_t nPts)
    {
        delivery.Queue({nNext++, 0, nPts});
        if (delivery.Group()->nState == 0)
            KovaRtpSendGroupStart(delivery.Group());
    }

    bool SentAtOnce(uint32_t nPts)
    {
        Queue(nPts);
        return ends.Rtp(3000) == KovaPacketBytes({static_cast<uint16_t>(nNext - 1), 0, nPts});
    }

    bool Held()
    {
        return !ends.Rtp(40).has_value();
    }

    /// The lines of the sending thread about timestamps.
    Texts Lines()
    {
        Texts lines;
        for (const std::string &line : capture.Messages()) {
            for (const char *szKind : {", First Send Packet,", ", GAP,", ", BACK,"})
                if (line.find(szKind) != std::string::npos)
                    lines.push_back(line);
        }
        return lines;
    }

    std::string FirstLine(uint32_t nPts, int64_t nTime) const
    {
        return "pSenderProc, First Send Packet, ID: 97, PTS: " + std::to_string(nPts) +
               ", Time: " + std::to_string(Milliseconds(nTime));
    }
};

TEST_F(PacingTest, FirstPacketGoesOutAtOnceAndSetsTheSchedule)
{
    EXPECT_TRUE(SentAtOnce(5000));
    ASSERT_TRUE(delivery.Drain());
    EXPECT_EQ(delivery.pStream->nFirstRtpTimestamp, 5000U);
    EXPECT_EQ(static_cast<uint32_t>(delivery.pStream->nFirstSendTime), Milliseconds(kStart));
    EXPECT_EQ(delivery.Group()->nLastPts, 0U);
    EXPECT_EQ(Lines(), Texts{FirstLine(5000, kStart)});
}

TEST_F(PacingTest, ScheduleIsNotSetAgain)
{
    EXPECT_TRUE(SentAtOnce(5000));
    clock.Advance(3000000);
    EXPECT_TRUE(SentAtOnce(5000));
    ASSERT_TRUE(delivery.Drain());
    EXPECT_EQ(static_cast<uint32_t>(delivery.pStream->nFirstSendTime), Milliseconds(kStart));
    EXPECT_EQ(Lines(), Texts{FirstLine(5000, kStart)});
}

TEST_F(PacingTest, ScheduleIsMadeAnewAsLongAsItStartsAtZero)
{
    EXPECT_TRUE(SentAtOnce(0));
    clock.Advance(40000);
    EXPECT_TRUE(SentAtOnce(40));
    clock.Advance(40000);
    EXPECT_TRUE(SentAtOnce(40));
    EXPECT_EQ(Lines(), (Texts{FirstLine(0, kStart), FirstLine(40, kStart + 40000)}));
    ASSERT_TRUE(delivery.Drain());
    delivery.pStream->nFirstSendTime = 0;
    clock.Advance(40000);
    EXPECT_TRUE(SentAtOnce(90));
    EXPECT_EQ(Lines().back(), FirstLine(90, kStart + 120000));
}

TEST_F(PacingTest, PacketIsHeldForOneSecondBehindItsTime)
{
    EXPECT_TRUE(SentAtOnce(500));
    EXPECT_TRUE(SentAtOnce(500));
    Queue(540);
    EXPECT_TRUE(Held());
    clock.Advance(1039000);
    EXPECT_TRUE(Held());
    clock.Advance(1000); // exactly one second late is still held
    EXPECT_TRUE(Held());
    clock.Advance(1000);
    EXPECT_EQ(ends.Rtp(3000), KovaPacketBytes({3, 0, 540}));
    ASSERT_TRUE(delivery.Drain());
    EXPECT_EQ(delivery.Group()->nLastPts, 540U);
    EXPECT_EQ(Lines(), Texts{FirstLine(500, kStart)});
}

TEST_F(PacingTest, SecondPacketIsHeldWhenTheStreamBeginsNearZero)
{
    EXPECT_TRUE(SentAtOnce(1));
    Queue(41); // 41 ms behind 0: no gap
    EXPECT_TRUE(Held());
    clock.Advance(1041000);
    EXPECT_EQ(ends.Rtp(3000), KovaPacketBytes({2, 0, 41}));
    EXPECT_EQ(Lines(), Texts{FirstLine(1, kStart)});
}

TEST_F(PacingTest, SecondPacketIsAGapWhenTheStreamBeginsHigh)
{
    EXPECT_TRUE(SentAtOnce(5000));
    EXPECT_TRUE(SentAtOnce(5040)); // the first one did not count
    EXPECT_EQ(Lines(), (Texts{FirstLine(5000, kStart),
                              "pSenderProc, GAP, ID: 97, Now PTS: 5040, Last PTS: 0"}));
    Queue(5080);
    EXPECT_TRUE(Held());
}

TEST_F(PacingTest, PacketThatIsOneSecondLateGoesOutAtOnce)
{
    EXPECT_TRUE(SentAtOnce(500));
    EXPECT_TRUE(SentAtOnce(500));
    clock.Advance(1040000);
    EXPECT_TRUE(SentAtOnce(540));
    Queue(541); // 999 ms late
    EXPECT_TRUE(Held());
}

TEST_F(PacingTest, PacketThatIsThreeSecondsEarlyGoesOutAtOnce)
{
    EXPECT_TRUE(SentAtOnce(500));
    ASSERT_TRUE(delivery.Drain());
    delivery.Group()->nLastPts = 3400;
    EXPECT_TRUE(SentAtOnce(3500));
    EXPECT_TRUE(SentAtOnce(4499));
    EXPECT_EQ(Lines(), Texts{FirstLine(500, kStart)});
}

TEST_F(PacingTest, PacketLessThanThreeSecondsEarlyIsHeld)
{
    EXPECT_TRUE(SentAtOnce(500));
    ASSERT_TRUE(delivery.Drain());
    delivery.Group()->nLastPts = 3400;
    Queue(3499);
    EXPECT_TRUE(Held());
    clock.Advance(2000000);
    EXPECT_TRUE(Held());
    clock.Advance(2000000);
    EXPECT_EQ(ends.Rtp(3000), KovaPacketBytes({2, 0, 3499}));
}

TEST_F(PacingTest, JumpOfOneSecondIsAGap)
{
    EXPECT_TRUE(SentAtOnce(500));
    EXPECT_TRUE(SentAtOnce(500));
    EXPECT_TRUE(SentAtOnce(1500));
    EXPECT_EQ(Lines(), (Texts{FirstLine(500, kStart),
                              "pSenderProc, GAP, ID: 97, Now PTS: 1500, Last PTS: 500"}));
    Queue(2499); // 999 is none
    EXPECT_TRUE(Held());
    EXPECT_EQ(Lines().size(), 2U);
}

TEST_F(PacingTest, StepBackIsReportedAndNotHeld)
{
    EXPECT_TRUE(SentAtOnce(500));
    EXPECT_TRUE(SentAtOnce(4000000000U)); // gap
    EXPECT_TRUE(SentAtOnce(3999999999U));
    EXPECT_TRUE(SentAtOnce(499));
    EXPECT_EQ(
        Lines(),
        (Texts{FirstLine(500, kStart), "pSenderProc, GAP, ID: 97, Now PTS: 4000000000, Last PTS: 0",
               "pSenderProc, BACK, ID: 97, Now PTS: 3999999999, Last PTS: 4000000000",
               "pSenderProc, BACK, ID: 97, Now PTS: 499, Last PTS: 3999999999"}));
    ASSERT_TRUE(delivery.Drain());
    EXPECT_EQ(delivery.Group()->nLastPts, 499U);
    // Below the first one nothing is held, however it moves.
    EXPECT_TRUE(SentAtOnce(500));
    EXPECT_EQ(Lines().size(), 4U);
}

TEST_F(PacingTest, EqualTimestampPassesSilently)
{
    EXPECT_TRUE(SentAtOnce(500));
    EXPECT_TRUE(SentAtOnce(1600));
    EXPECT_TRUE(SentAtOnce(1600));
    EXPECT_EQ(Lines().size(), 2U);
}

TEST_F(PacingTest, LinesAreNotPrintedBelowTheirLevel)
{
    Rtsp_DebugLevel = 3;
    EXPECT_TRUE(SentAtOnce(500));
    EXPECT_TRUE(SentAtOnce(4000));
    EXPECT_TRUE(SentAtOnce(300));
    EXPECT_EQ(Lines(), Texts{});
}

TEST_F(PacingTest, AllPayloadsOfAStreamShareTheSchedule)
{
    EXPECT_TRUE(SentAtOnce(500));
    ASSERT_TRUE(delivery.Drain());
    clock.Advance(200000);
    KovaRtpSender *pAudio = KovaRtpSenderCreate(delivery.pStream, 96);
    KovaRtpSenderStart(pAudio);
    KovaRtpPacket *pPacket = KovaMakePacket({1, 0, 500, kFrameAudio});
    KovaRtpPacketAddRef(pPacket);
    KovaRtpSenderAddRtpPacket(pAudio, pPacket);
    EXPECT_TRUE(KovaWaitUntil([&] { return KovaReferences(pPacket) == 1; }));
    KovaRtpSenderDestory(pAudio);
    KovaRtpPacketReleaseRef(pPacket);
    EXPECT_EQ(Lines(), Texts{FirstLine(500, kStart)});
    EXPECT_EQ(static_cast<uint32_t>(delivery.pStream->nFirstSendTime), Milliseconds(kStart));
}

} // namespace
