#include "rtp/interleaved_batch.h"
#include "tests/support/c_calls.h"
#include "tests/support/delivery.h"
#include "tests/support/net_ends.h"
#include "tests/support/socket_faults.h"

#include <gtest/gtest.h>

#include <sys/socket.h>

#include <cerrno>

namespace {

/// Frames with these sizes of packets, and the bytes that they are.
struct Frames {
    explicit Frames(const std::vector<uint32_t> &sizes)
    {
        packets.reserve(sizes.size());
        for (const uint32_t nSize : sizes) {
            const uint8_t nChannel = static_cast<uint8_t>(packets.size() * 3);
            packets.emplace_back(nSize, static_cast<uint8_t>(0x80 + packets.size()));
            frames.push_back({packets.back().data(), nSize, nChannel});
            const KovaBytes frame = KovaFrameOf(nChannel, packets.back());
            bytes.insert(bytes.end(), frame.begin(), frame.end());
        }
    }

    uint32_t Count() const
    {
        return static_cast<uint32_t>(frames.size());
    }

    std::vector<KovaBytes> packets;
    std::vector<KovaInterleavedFrame> frames;
    KovaBytes bytes;
};

/// The same frames laid one behind the other, with their headers in front.
struct LaidOut {
    explicit LaidOut(const Frames &plain) : bytes(plain.bytes), frames(plain.frames)
    {
        size_t nAt = 0;
        for (KovaInterleavedFrame &frame : frames) {
            frame.pPacket = bytes.data() + nAt + kInterleavedHeaderSize;
            frame.bHeaderInFront = true;
            nAt += kInterleavedHeaderSize + frame.nSize;
        }
    }

    KovaBytes bytes;
    std::vector<KovaInterleavedFrame> frames;
};

size_t g_nPieces = 0;

ssize_t NotePieces(int nSocket, const msghdr *pMessage, int nFlags)
{
    g_nPieces = pMessage->msg_iovlen;
    return __real_sendmsg(nSocket, pMessage, nFlags);
}

struct InterleavedBatchTest : testing::Test {
    KovaSocketFaults faults;
    KovaTcpEnds ends;

    KovaInterleavedProgress Send(const Frames &frames, uint32_t nFirst = 0, uint32_t nBegun = 0)
    {
        return KovaInterleavedSend(ends.Socket(), frames.frames.data() + nFirst,
                                   frames.Count() - nFirst, nBegun);
    }

    void Script(std::deque<KovaScriptedSend> sends)
    {
        faults.Script(ends.Socket(), std::move(sends));
    }
};

TEST_F(InterleavedBatchTest, HeaderIsDollarChannelAndSize)
{
    uint8_t header[kInterleavedHeaderSize];
    KovaInterleavedHeaderWrite(header, 0xFE, 0x1234);
    EXPECT_EQ(KovaBytes(header, header + 4), (KovaBytes{'$', 0xFE, 0x12, 0x34}));
}

TEST_F(InterleavedBatchTest, WritesAllFramesWithOneCall)
{
    const Frames frames({1400, 1, 0, 300, 65535});
    Script({{0, 1000000}, {ECONNRESET}});
    const KovaInterleavedProgress progress = Send(frames);
    EXPECT_EQ(progress.outcome, kSendDone);
    EXPECT_EQ(progress.nFrames, 5U);
    EXPECT_EQ(progress.nBytes, 0U);
    EXPECT_EQ(progress.nError, 0);
    EXPECT_EQ(faults.Left(), 1U);
    EXPECT_EQ(faults.Flags(), MSG_DONTWAIT | MSG_NOSIGNAL);
    EXPECT_EQ(ends.Receive(frames.bytes.size()), frames.bytes);
}

TEST_F(InterleavedBatchTest, Writes64FramesWithACall)
{
    const Frames frames(std::vector<uint32_t>(130, 10));
    Script({{0, 1000000}, {0, 1000000}, {0, 1000000}, {ECONNRESET}});
    EXPECT_EQ(Send(frames).outcome, kSendDone);
    EXPECT_EQ(faults.Left(), 1U);
    EXPECT_EQ(ends.Receive(frames.bytes.size()), frames.bytes);
}

TEST_F(InterleavedBatchTest, FramesThatLieBehindEachOtherAreOnePiece)
{
    const Frames plain({12, 1, 30, 0, 7});
    const LaidOut laid(plain);
    KovaReplaceCall<__real_sendmsg>(NotePieces);
    KovaInterleavedSend(ends.Socket(), laid.frames.data(), 5, 0);
    EXPECT_EQ(g_nPieces, 1U);
    // An empty packet is no piece, and parts the headers beside it no more.
    KovaInterleavedSend(ends.Socket(), plain.frames.data(), 5, 0);
    EXPECT_EQ(g_nPieces, 8U);
    KovaReplaceCall<__real_sendmsg>(nullptr);
    KovaBytes twice = plain.bytes;
    twice.insert(twice.end(), plain.bytes.begin(), plain.bytes.end());
    EXPECT_EQ(ends.Receive(twice.size()), twice);
}

TEST_F(InterleavedBatchTest, HeaderInFrontIsGoneOnWithAtEachByte)
{
    const Frames plain({12, 1, 30});
    const LaidOut laid(plain);
    for (uint32_t nBegun = 0; nBegun < 16; nBegun++) {
        EXPECT_EQ(KovaInterleavedSend(ends.Socket(), laid.frames.data(), 3, nBegun).outcome,
                  kSendDone);
        const KovaBytes rest(plain.bytes.begin() + nBegun, plain.bytes.end());
        ASSERT_EQ(ends.Receive(rest.size()), rest);
    }
}

TEST_F(InterleavedBatchTest, NothingToWriteNeedsNoCall)
{
    Script({{ECONNRESET}});
    EXPECT_EQ(Send(Frames({})).outcome, kSendDone);
    EXPECT_EQ(faults.Left(), 1U);
}

/// Cut at each byte of the batch, told where, and gone on with there.
TEST_F(InterleavedBatchTest, GoesOnInTheMiddleOfAFrame)
{
    const Frames frames({12, 1, 30, 0, 7});
    for (uint32_t nCut = 1; nCut < frames.bytes.size(); nCut++) {
        SCOPED_TRACE(nCut);
        Script({{0, nCut}, {EAGAIN}});
        const KovaInterleavedProgress progress = Send(frames);
        ASSERT_EQ(progress.outcome, kSendAgain);
        EXPECT_EQ(progress.nError, EAGAIN);
        uint32_t nOut = progress.nBytes;
        for (uint32_t n = 0; n < progress.nFrames; n++)
            nOut += kInterleavedHeaderSize + frames.frames[n].nSize;
        ASSERT_EQ(nOut, nCut);
        ASSERT_LT(progress.nBytes, kInterleavedHeaderSize + frames.frames[progress.nFrames].nSize);
        Script({});
        const KovaInterleavedProgress rest = Send(frames, progress.nFrames, progress.nBytes);
        EXPECT_EQ(rest.outcome, kSendDone);
        EXPECT_EQ(rest.nFrames, frames.Count() - progress.nFrames);
        ASSERT_EQ(ends.Receive(frames.bytes.size()), frames.bytes);
    }
}

/// A byte at a time: what is out of the first frame counts for the next call, too.
TEST_F(InterleavedBatchTest, GoesOnAgainAndAgain)
{
    const Frames frames({12, 1, 30, 0, 7});
    uint32_t nFirst = 0, nBegun = 0, nCalls = 0;
    while (nFirst < frames.Count() && nCalls++ < 1000) {
        Script({{0, 1}, {EINTR}});
        const KovaInterleavedProgress progress = Send(frames, nFirst, nBegun);
        nFirst += progress.nFrames;
        nBegun = progress.nBytes;
    }
    Script({});
    EXPECT_EQ(ends.Receive(frames.bytes.size()), frames.bytes);
}

TEST_F(InterleavedBatchTest, ErrorInTheMiddleTellsHowFarItCame)
{
    const Frames frames({10, 20, 30});
    for (const int nError : {ECONNRESET, EPIPE, ENOBUFS}) {
        Script({{0, 14 + 24}, {nError}});
        const KovaInterleavedProgress progress = Send(frames);
        EXPECT_EQ(progress.outcome, kSendFailed);
        EXPECT_EQ(progress.nFrames, 2U);
        EXPECT_EQ(progress.nBytes, 0U);
        EXPECT_EQ(progress.nError, nError);
        Script({});
        EXPECT_EQ(Send(frames, 2).outcome, kSendDone);
        EXPECT_EQ(ends.Receive(frames.bytes.size()), frames.bytes);
    }
}

TEST_F(InterleavedBatchTest, RefusalsLeaveEverythingUnwritten)
{
    const Frames frames({10, 20});
    const struct {
        KovaScriptedSend send;
        KovaSendOutcome outcome;
        int nError;
    } cases[] = {{{EAGAIN}, kSendAgain, EAGAIN},
                 {{EINTR}, kSendAgain, EINTR},
                 {{0, 0}, kSendAgain, EAGAIN},
                 {{ECONNRESET}, kSendFailed, ECONNRESET}};
    for (const auto &expected : cases) {
        Script({expected.send});
        const KovaInterleavedProgress progress = Send(frames);
        EXPECT_EQ(progress.outcome, expected.outcome);
        EXPECT_EQ(progress.nFrames, 0U);
        EXPECT_EQ(progress.nBytes, 0U);
        EXPECT_EQ(progress.nError, expected.nError);
    }
    EXPECT_EQ(ends.Receive(1, 50), KovaBytes{});
}

TEST_F(InterleavedBatchTest, ClosedDescriptorFails)
{
    const KovaInterleavedProgress progress =
        KovaInterleavedSend(-1, Frames({10}).frames.data(), 1, 0);
    EXPECT_EQ(progress.outcome, kSendFailed);
    EXPECT_EQ(progress.nError, EBADF);
}

TEST_F(InterleavedBatchTest, ConnectionThatIsFullTakesWhatFits)
{
    const size_t nFilled = ends.Fill();
    const Frames frames(std::vector<uint32_t>(60, 1400));
    const KovaInterleavedProgress begun = Send(frames); // whatever there is room for
    EXPECT_EQ(begun.outcome, kSendAgain);
    KovaBytes all;
    uint32_t nFirst = begun.nFrames, nBegun = begun.nBytes;
    for (int nTurn = 0; nTurn < 10000 && nFirst < frames.Count(); nTurn++) {
        const KovaBytes some = ends.Receive(20000, 1);
        all.insert(all.end(), some.begin(), some.end());
        const KovaInterleavedProgress progress = Send(frames, nFirst, nBegun);
        nFirst += progress.nFrames;
        nBegun = progress.nBytes;
    }
    const size_t nMissing = nFilled + frames.bytes.size() - all.size();
    const KovaBytes rest = ends.Receive(nMissing);
    all.insert(all.end(), rest.begin(), rest.end());
    ASSERT_EQ(all.size(), nFilled + frames.bytes.size());
    all.erase(all.begin(), all.begin() + static_cast<ptrdiff_t>(nFilled));
    EXPECT_TRUE(all == frames.bytes);
}

} // namespace
