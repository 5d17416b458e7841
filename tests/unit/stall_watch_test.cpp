#include "classic/rtp/stall_watch.h"

#include "classic/rtp/tcp_channel.h"
#include "foundation/log.h"
#include "tests/support/delivery.h"
#include "tests/support/fake_clock.h"
#include "tests/support/net_ends.h"
#include "tests/support/socket_faults.h"
#include "tests/support/stdout_capture.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <deque>
#include <string>
#include <vector>

/// Connections that take nothing, on systems that do not notice.
namespace {

using Texts = std::vector<std::string>;

const char *const kId = "12345678901";

struct StallWatchTest : testing::Test {
    KovaFakeClock clock;
    KovaSocketFaults faults;
    KovaTcpEnds tcp;
    KovaFrameProgress progress = {};

    /// Tries a frame; the next send ends so.
    KovaSendOutcome Try(const KovaScriptedSend &send)
    {
        faults.Script(tcp.Socket(), {send});
        const KovaBytes frame = {0x24, 0, 0, 2, 1, 2};
        errno = 0;
        return KovaTcpChannelSendFrame(tcp.Channel(), frame.data(), frame.size(), &progress);
    }
};

TEST_F(StallWatchTest, ConnectionThatTakesNothingForTenSecondsIsReset)
{
    EXPECT_EQ(Try({EAGAIN}), kSendAgain);
    clock.AdvanceMonotonic(5);
    EXPECT_EQ(Try({EAGAIN}), kSendAgain);
    clock.AdvanceMonotonic(5);
    EXPECT_EQ(Try({EAGAIN}), kSendFailed);
    EXPECT_EQ(errno, ECONNRESET);
    EXPECT_EQ(Try({EAGAIN}), kSendFailed) << "whoever tries";
    EXPECT_EQ(errno, ECONNRESET);
}

TEST_F(StallWatchTest, WallClockDoesNotCount)
{
    EXPECT_EQ(Try({EAGAIN}), kSendAgain);
    clock.Advance(60000000);
    EXPECT_EQ(Try({EAGAIN}), kSendAgain);
}

TEST_F(StallWatchTest, TimeInWhichNothingWasRefusedDoesNotCount)
{
    clock.AdvanceMonotonic(60);
    EXPECT_EQ(Try({EAGAIN}), kSendAgain);
    EXPECT_EQ(Try({}), kSendAgain); // a send of nothing
    EXPECT_EQ(Try({0, 6}), kSendDone);
    clock.AdvanceMonotonic(60);
    EXPECT_EQ(Try({EAGAIN}), kSendAgain);
}

TEST_F(StallWatchTest, ByteThatIsTakenBeginsItAnew)
{
    EXPECT_EQ(Try({EAGAIN}), kSendAgain);
    clock.AdvanceMonotonic(9);
    EXPECT_EQ(Try({0, 1}), kSendDone); // and the rest, unscripted
    progress = {};
    EXPECT_EQ(Try({EAGAIN}), kSendAgain);
    clock.AdvanceMonotonic(9);
    EXPECT_EQ(Try({EAGAIN}), kSendAgain);
    clock.AdvanceMonotonic(1);
    EXPECT_EQ(Try({EAGAIN}), kSendFailed);
}

TEST_F(StallWatchTest, ByteOfAResponseBeginsItAnew)
{
    EXPECT_EQ(Try({EAGAIN}), kSendAgain);
    clock.AdvanceMonotonic(9);
    const uint8_t nByte = 'R';
    EXPECT_EQ(KovaTcpChannelSendResponse(tcp.Channel(), &nByte, 1).nLeft, 0U);
    clock.AdvanceMonotonic(9);
    EXPECT_EQ(Try({EAGAIN}), kSendAgain);
}

TEST_F(StallWatchTest, ResponseThatIsRefusedBeginsNothing)
{
    faults.Script(tcp.Socket(), {{EAGAIN}});
    const uint8_t nByte = 'R';
    EXPECT_EQ(KovaTcpChannelSendResponse(tcp.Channel(), &nByte, 1).nError, EAGAIN);
    clock.AdvanceMonotonic(60);
    EXPECT_EQ(Try({EAGAIN}), kSendAgain);
}

TEST_F(StallWatchTest, FrameThatWasBegunEndsSoToo)
{
    faults.Script(tcp.Socket(), {{0, 1}, {EAGAIN}});
    const KovaBytes frame = {0x24, 0, 0, 2, 1, 2};
    EXPECT_EQ(KovaTcpChannelSendFrame(tcp.Channel(), frame.data(), frame.size(), &progress),
              kSendAgain);
    EXPECT_TRUE(progress.bBegun);
    clock.AdvanceMonotonic(10);
    EXPECT_EQ(Try({EAGAIN}), kSendFailed);
    EXPECT_EQ(errno, ECONNRESET);
}

TEST_F(StallWatchTest, PeerThatTakesLittleByLittleStays)
{
    KovaStallWatch watch = {};
    EXPECT_FALSE(KovaStallWatchRefused(&watch, tcp.Socket()));
    // Full for good: what was on its way has arrived, and some of it has not been taken.
    int nSame = 0;
    for (int nTurn = 0; nTurn < 200 && nSame < 10; nTurn++) {
        const size_t nFilled = tcp.Fill();
        const int nLast = watch.nUnsent;
        watch = {};
        EXPECT_FALSE(KovaStallWatchRefused(&watch, tcp.Socket()));
        nSame = nFilled == 0 && watch.nUnsent > 0 && watch.nUnsent == nLast ? nSame + 1 : 0;
    }
    ASSERT_EQ(nSame, 10);
    clock.AdvanceMonotonic(10);
    EXPECT_TRUE(KovaStallWatchRefused(&watch, tcp.Socket()));
    // The window opens a little: less waits for the peer, though there may be no
    // room for more of ours yet.
    const int nBefore = watch.nUnsent;
    EXPECT_GT(nBefore, 0);
    EXPECT_TRUE(KovaWaitUntil([&] {
        tcp.Receive(65536, 10);
        return !KovaStallWatchRefused(&watch, tcp.Socket());
    }));
    EXPECT_LT(watch.nUnsent, nBefore);
    clock.AdvanceMonotonic(9);
    EXPECT_FALSE(KovaStallWatchRefused(&watch, tcp.Socket()));
}

TEST_F(StallWatchTest, KeepsTheErrorOfTheSendWhereTheSystemTellsNothing)
{
    KovaStallWatch watch = {};
    errno = EAGAIN;
    EXPECT_FALSE(KovaStallWatchRefused(&watch, -1));
    EXPECT_EQ(errno, EAGAIN);
    clock.AdvanceMonotonic(10);
    EXPECT_TRUE(KovaStallWatchRefused(&watch, -1));
}

TEST_F(StallWatchTest, PlayerGoesWithItsSessionAndCount)
{
    KovaStdoutCapture capture;
    KovaDelivery delivery;
    delivery.AddSession(kId);
    delivery.pStream->nClientCount = 1;
    KovaRtpClient *pClient = delivery.Add(tcp.Client(kId));
    ASSERT_TRUE(delivery.Send({1}));
    const int nSocket = tcp.Socket();
    faults.Script(nSocket, std::deque<KovaScriptedSend>(100000, {EAGAIN}));
    RTSP_SetLogLevel(1);
    capture.Clear();
    delivery.Queue({2});
    EXPECT_TRUE(KovaWaitUntil([this] { return faults.Left() < 99998; }));
    clock.AdvanceMonotonic(10);
    ASSERT_TRUE(delivery.Drain());
    EXPECT_EQ(capture.Messages(), Texts{"pSenderProc, Send RTP Packet fail, Error: " +
                                        std::to_string(ECONNRESET) + "(Connection reset by peer)"});
    EXPECT_EQ(tcp.Socket(), -1);
    EXPECT_FALSE(KovaIsOpen(nSocket));
    ASSERT_TRUE(delivery.Send({3}));
    EXPECT_FALSE(delivery.Has(pClient));
    EXPECT_FALSE(delivery.HasSession(kId));
    EXPECT_EQ(delivery.pStream->nClientCount, 0);
}

} // namespace
