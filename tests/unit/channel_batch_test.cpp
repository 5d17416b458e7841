#include "classic/rtp/tcp_channel.h"
#include "rtp/tcp_options.h"
#include "tests/support/delivery.h"
#include "tests/support/failing_heap.h"
#include "tests/support/net_ends.h"
#include "tests/support/socket_faults.h"

#include <gtest/gtest.h>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cerrno>

/// Several frames at once on an RTSP connection.
namespace {

const KovaBytes kOther = {'$', 9, 0, 3, 1, 2, 3};
const KovaBytes kResponse = {'R', 'T', 'S', 'P'};

KovaBytes operator+(KovaBytes left, const KovaBytes &right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

struct ChannelBatchTest : testing::Test {
    KovaSocketFaults faults;
    KovaTcpEnds ends;
    const KovaBytes packets[3] = {KovaBytes(10, 0xA1), KovaBytes(1, 0xA2), KovaBytes(20, 0xA3)};
    const KovaInterleavedFrame frames[3] = {
        {packets[0].data(), 10, 4}, {packets[1].data(), 1, 4}, {packets[2].data(), 20, 4}};
    const KovaBytes bytes =
        KovaFrameOf(4, packets[0]) + KovaFrameOf(4, packets[1]) + KovaFrameOf(4, packets[2]);
    KovaFrameProgress progress = {};
    uint32_t nNext = 0; ///< frames that are out

    /// Goes on with the batch, or with one frame of it.
    KovaSendOutcome Send(uint32_t nCount = 3)
    {
        uint32_t nSent = 100;
        errno = 0;
        const KovaSendOutcome outcome = KovaTcpChannelSendFrames(
            ends.Channel(), frames + nNext, std::min(nCount, 3 - nNext), &nSent, &progress);
        nNext += nSent;
        return outcome;
    }
    KovaSendOutcome SendOther()
    {
        KovaFrameProgress other = {};
        return KovaTcpChannelSendFrame(ends.Channel(), kOther.data(), kOther.size(), &other);
    }
    void Script(std::deque<KovaScriptedSend> sends)
    {
        faults.Script(ends.Socket(), std::move(sends));
    }
    KovaBytes Arrived()
    {
        return ends.Receive(10000, 20);
    }
    /// Frames that are whole in the first nCut bytes.
    static uint32_t Whole(uint32_t nCut)
    {
        return (nCut >= 14 ? 1 : 0) + (nCut >= 19 ? 1 : 0);
    }
    /// The whole frames, and the one that is begun, after a cut.
    KovaBytes Finished(uint32_t nCut) const
    {
        const ptrdiff_t nEnds[] = {14, 19, 43};
        const bool bBegun = nCut != 14 && nCut != 19;
        return KovaBytes(bytes.begin(), bytes.begin() + (bBegun ? nEnds[Whole(nCut)]
                                                                : static_cast<ptrdiff_t>(nCut)));
    }
};

TEST_F(ChannelBatchTest, GoesOutWithOneCall)
{
    Script({{0, 1000}, {ECONNRESET}});
    EXPECT_EQ(Send(), kSendDone);
    EXPECT_EQ(nNext, 3U);
    EXPECT_EQ(faults.Left(), 1U);
    EXPECT_EQ(faults.Flags(), MSG_DONTWAIT | MSG_NOSIGNAL);
    EXPECT_EQ(Arrived(), bytes);
}

TEST_F(ChannelBatchTest, CutAtAnyByteGoesOnThere)
{
    for (uint32_t nCut = 1; nCut < bytes.size(); nCut++) {
        SCOPED_TRACE(nCut);
        progress = {};
        nNext = 0;
        Script({{0, nCut}, {EAGAIN}});
        ASSERT_EQ(Send(), kSendAgain);
        EXPECT_EQ(errno, EAGAIN);
        ASSERT_EQ(nNext, Whole(nCut));
        EXPECT_EQ(progress.bBegun, nCut != 14 && nCut != 19);
        ASSERT_EQ(Send(1), kSendDone); // as the sending thread does after a wait
        ASSERT_EQ(nNext, Whole(nCut) + 1);
        ASSERT_EQ(Send(), kSendDone);
        ASSERT_EQ(nNext, 3U);
        ASSERT_EQ(Arrived(), bytes);
    }
}

TEST_F(ChannelBatchTest, ShortWriteIsGoneOnWithAtOnce)
{
    for (uint32_t nCut = 1; nCut < bytes.size(); nCut++) {
        SCOPED_TRACE(nCut);
        progress = {};
        nNext = 0;
        Script({{0, nCut}, {0, 1}, {0, 2}});
        ASSERT_EQ(Send(), kSendDone);
        ASSERT_EQ(nNext, 3U);
        ASSERT_FALSE(progress.bBegun);
        ASSERT_EQ(Arrived(), bytes);
    }
}

TEST_F(ChannelBatchTest, OthersFinishTheFrameThatWasBegunFirst)
{
    for (const bool bResponse : {false, true}) {
        for (uint32_t nCut = 1; nCut < bytes.size(); nCut++) {
            SCOPED_TRACE(nCut);
            progress = {};
            nNext = 0;
            Script({{0, nCut}, {EAGAIN}});
            ASSERT_EQ(Send(), kSendAgain);
            if (bResponse)
                EXPECT_EQ(KovaTcpChannelSendResponse(ends.Channel(), kResponse.data(), 4).nLeft,
                          0U);
            else
                EXPECT_EQ(SendOther(), kSendDone);
            ASSERT_EQ(Send(1), kSendDone); // what was begun has gone out already
            ASSERT_EQ(Send(), kSendDone);
            ASSERT_EQ(nNext, 3U);
            const KovaBytes begun = Finished(nCut);
            const KovaBytes rest(bytes.begin() + static_cast<ptrdiff_t>(begun.size()), bytes.end());
            ASSERT_EQ(Arrived(), begun + (bResponse ? kResponse : kOther) + rest);
        }
    }
}

TEST_F(ChannelBatchTest, WaitsForTheRestOfAnotherFrame)
{
    Script({{0, 3}, {EAGAIN}, {EAGAIN}});
    EXPECT_EQ(SendOther(), kSendAgain);
    EXPECT_EQ(Send(), kSendAgain);
    EXPECT_EQ(nNext, 0U);
    EXPECT_FALSE(progress.bBegun);
    EXPECT_EQ(Send(), kSendDone);
    EXPECT_EQ(Arrived(), kOther + bytes);
}

TEST_F(ChannelBatchTest, GivenUpFrameIsFinishedByTheNextOne)
{
    Script({{0, 20}, {EAGAIN}});
    EXPECT_EQ(Send(), kSendAgain);
    EXPECT_EQ(nNext, 2U);
    nNext = 0; // the thread stops waiting, and sends other packets
    progress = {};
    EXPECT_EQ(Send(), kSendDone);
    EXPECT_EQ(Arrived(), bytes + bytes);
}

TEST_F(ChannelBatchTest, ErrorBetweenFramesFailsTheNextOne)
{
    Script({{0, 14}, {ENOBUFS}});
    EXPECT_EQ(Send(), kSendFailed);
    EXPECT_EQ(errno, ENOBUFS);
    EXPECT_EQ(nNext, 1U);
    nNext++; // it is lost
    EXPECT_EQ(Send(), kSendDone);
    EXPECT_EQ(Arrived(), KovaFrameOf(4, packets[0]) + KovaFrameOf(4, packets[2]));
}

TEST_F(ChannelBatchTest, ErrorWithinAFrameEndsTheConnection)
{
    Script({{0, 16}, {ENOBUFS}});
    EXPECT_EQ(Send(), kSendFailed);
    EXPECT_EQ(errno, ENOBUFS);
    EXPECT_EQ(nNext, 1U);
    EXPECT_EQ(SendOther(), kSendFailed);
    EXPECT_EQ(Arrived(), KovaBytes(bytes.begin(), bytes.begin() + 16));
    uint8_t nByte;
    EXPECT_EQ(recv(ends.nPlayer, &nByte, 1, MSG_DONTWAIT), 0); // the end of the stream
}

TEST_F(ChannelBatchTest, FrameThatCannotBeKeptEndsTheConnection)
{
    Script({{0, 16}});
    {
        const KovaFailingHeap heap;
        EXPECT_EQ(Send(), kSendFailed);
        EXPECT_EQ(errno, ENOMEM);
    }
    EXPECT_EQ(nNext, 1U);
    EXPECT_EQ(SendOther(), kSendFailed);
    EXPECT_EQ(Arrived(), KovaBytes(bytes.begin(), bytes.begin() + 16));
}

TEST_F(ChannelBatchTest, ClosedConnectionFails)
{
    KovaTcpChannelClose(ends.Channel());
    EXPECT_EQ(Send(), kSendFailed);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(nNext, 0U);
}

TEST_F(ChannelBatchTest, ConnectionsSendAtOnce)
{
    int nValue = -1;
    socklen_t nSize = sizeof(nValue);
    KovaTcpPrepare(ends.Socket());
    ASSERT_EQ(getsockopt(ends.Socket(), IPPROTO_TCP, TCP_NODELAY, &nValue, &nSize), 0);
    EXPECT_NE(nValue, 0);
}

} // namespace
