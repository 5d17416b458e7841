#include "classic/rtp/tcp_channel.h"
#include "rtp/tcp_options.h"
#include "tests/support/delivery.h"
#include "tests/support/failing_heap.h"
#include "tests/support/net_ends.h"
#include "tests/support/socket_faults.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <deque>
#include <string>
#include <thread>
#include <vector>

namespace {

KovaBytes Bytes(const std::string &text)
{
    return KovaBytes(text.begin(), text.end());
}

const KovaBytes kFirst = Bytes("$0first-frame");
const KovaBytes kSecond = Bytes("$1second");
const KovaBytes kResponse = Bytes("RTSP/1.0 200 OK\r\n\r\n");

KovaBytes operator+(KovaBytes left, const KovaBytes &right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

struct TcpChannelTest : testing::Test {
    KovaSocketFaults faults;
    KovaTcpEnds ends;
    KovaFrameProgress first = {};
    KovaFrameProgress second = {};

    KovaSendOutcome Send(const KovaBytes &frame, KovaFrameProgress *pProgress)
    {
        errno = 0;
        return KovaTcpChannelSendFrame(ends.Channel(), frame.data(), frame.size(), pProgress);
    }

    KovaResponseProgress Respond()
    {
        return KovaTcpChannelSendResponse(ends.Channel(), kResponse.data(), kResponse.size());
    }

    void Script(std::deque<KovaScriptedSend> sends)
    {
        faults.Script(ends.Socket(), std::move(sends));
    }

    /// What the player has got when nothing more comes.
    KovaBytes Arrived()
    {
        return ends.Receive(10000, 50);
    }
};

TEST_F(TcpChannelTest, IsSharedByAllUsersOfOneSocketField)
{
    KovaTcpChannel *pSame = KovaTcpChannelJoin(ends.Field());
    EXPECT_EQ(pSame, ends.Channel());
    int nOther = -1;
    KovaTcpChannel *pOther = KovaTcpChannelJoin(&nOther);
    EXPECT_NE(pOther, ends.Channel());
    KovaTcpChannelLeave(pOther);
    KovaTcpChannelLeave(pSame);
    EXPECT_EQ(Send(kFirst, &first), kSendDone);
}

TEST_F(TcpChannelTest, DescriptorZeroIsNeverClosed)
{
    const bool bOpened = !KovaIsOpen(0) && open("/dev/null", O_RDONLY) == 0;
    ASSERT_TRUE(KovaIsOpen(0));
    int nField = 0;
    KovaTcpChannel *pChannel = KovaTcpChannelJoin(&nField);
    KovaTcpChannelClose(pChannel);
    KovaTcpChannelLeave(pChannel);
    EXPECT_EQ(nField, -1);
    EXPECT_TRUE(KovaIsOpen(0));
    if (bOpened)
        close(0);
}

TEST_F(TcpChannelTest, NeedsAFieldAndMemory)
{
    EXPECT_EQ(KovaTcpChannelJoin(nullptr), nullptr);
    KovaTcpChannelLeave(nullptr);
    int nField = -1;
    for (int nGood = 0; nGood < 2; nGood++) {
        const KovaFailingHeap heap(nGood);
        EXPECT_EQ(KovaTcpChannelJoin(&nField), nullptr) << nGood;
    }
}

TEST_F(TcpChannelTest, SendsFramesWithoutWaitingOrSignalling)
{
    Script({});
    EXPECT_EQ(Send(kFirst, &first), kSendDone);
    EXPECT_EQ(faults.Flags(), MSG_DONTWAIT | MSG_NOSIGNAL);
    EXPECT_EQ(Send(kSecond, &second), kSendDone);
    EXPECT_EQ(Respond().nLeft, 0U);
    EXPECT_EQ(faults.Flags(), MSG_DONTWAIT | MSG_NOSIGNAL);
    EXPECT_EQ(Arrived(), kFirst + kSecond + kResponse);
}

TEST_F(TcpChannelTest, RefusedFrameIsSentWholeTheNextTime)
{
    Script({{EAGAIN}, {EINTR}});
    EXPECT_EQ(Send(kFirst, &first), kSendAgain);
    EXPECT_FALSE(first.bBegun);
    EXPECT_EQ(Send(kFirst, &first), kSendAgain);
    EXPECT_EQ(Send(kFirst, &first), kSendDone);
    EXPECT_EQ(Arrived(), kFirst);
}

TEST_F(TcpChannelTest, ShortSendGoesOnWithTheRest)
{
    Script({{0, 3}, {EAGAIN}, {0, 2}, {EINTR}});
    EXPECT_EQ(Send(kFirst, &first), kSendAgain);
    EXPECT_TRUE(first.bBegun);
    EXPECT_EQ(Send(kFirst, &first), kSendAgain);
    EXPECT_EQ(Send(kFirst, &first), kSendDone);
    EXPECT_EQ(faults.Left(), 0U);
    EXPECT_EQ(Arrived(), kFirst);
}

TEST_F(TcpChannelTest, AnotherFrameWaitsForTheRestOfTheOneThatWasBegun)
{
    Script({{0, 3}, {EAGAIN}, {EAGAIN}});
    EXPECT_EQ(Send(kFirst, &first), kSendAgain);
    EXPECT_EQ(Send(kSecond, &second), kSendAgain);
    EXPECT_FALSE(second.bBegun);
    EXPECT_EQ(Send(kSecond, &second), kSendDone);
    // The other track has finished it meanwhile.
    EXPECT_EQ(Send(kFirst, &first), kSendDone);
    EXPECT_EQ(Arrived(), kFirst + kSecond);
}

TEST_F(TcpChannelTest, FinishedFrameIsNotTakenForALaterOne)
{
    Script({{0, 3}, {EAGAIN}, {0, 100}, {0, 4}, {EAGAIN}});
    EXPECT_EQ(Send(kFirst, &first), kSendAgain);
    EXPECT_EQ(Send(kSecond, &second), kSendAgain); // the rest of the first, 4 bytes of the second
    EXPECT_TRUE(second.bBegun);
    EXPECT_EQ(Send(kFirst, &first), kSendDone); // and leaves the second alone
    EXPECT_EQ(Arrived(), kFirst + Bytes("$1se"));
    EXPECT_EQ(Send(kSecond, &second), kSendDone);
    EXPECT_EQ(Arrived(), Bytes("cond"));
}

TEST_F(TcpChannelTest, ResponseGoesBehindTheRestOfAFrame)
{
    Script({{0, 5}, {EAGAIN}});
    EXPECT_EQ(Send(kFirst, &first), kSendAgain);
    EXPECT_EQ(Respond().nLeft, 0U);
    EXPECT_EQ(Arrived(), kFirst + kResponse);
}

TEST_F(TcpChannelTest, ResponseIsCutAtAFullSocket)
{
    Script({{0, 6}, {EAGAIN}});
    const KovaResponseProgress cut = Respond();
    EXPECT_EQ(cut.nLeft, kResponse.size() - 6);
    EXPECT_EQ(cut.nError, EAGAIN);
    EXPECT_EQ(Send(kFirst, &first), kSendDone); // the rest of it is gone for good
    EXPECT_EQ(Arrived(), Bytes("RTSP/1") + kFirst);
}

TEST_F(TcpChannelTest, ResponseIsDroppedWhileAFrameIsStuck)
{
    Script({{0, 5}, {EAGAIN}, {EAGAIN}});
    EXPECT_EQ(Send(kFirst, &first), kSendAgain);
    const KovaResponseProgress dropped = Respond();
    EXPECT_EQ(dropped.nLeft, kResponse.size());
    EXPECT_EQ(dropped.nError, EAGAIN);
    EXPECT_EQ(Send(kFirst, &first), kSendDone);
    EXPECT_EQ(Arrived(), kFirst);
}

TEST_F(TcpChannelTest, ResponseGoesOnAfterAShortSend)
{
    Script({{0, 6}, {0, 4}});
    EXPECT_EQ(Respond().nLeft, 0U);
    EXPECT_EQ(Arrived(), kResponse);
}

TEST_F(TcpChannelTest, OtherErrorEndsTheFrame)
{
    Script({{ECONNRESET}, {0, 3}, {EPIPE}});
    EXPECT_EQ(Send(kFirst, &first), kSendFailed);
    EXPECT_EQ(errno, ECONNRESET);
    EXPECT_EQ(Send(kFirst, &first), kSendFailed);
    EXPECT_EQ(errno, EPIPE);
}

TEST_F(TcpChannelTest, FrameThatCannotBeKeptEndsTheConnection)
{
    Script({{0, 3}});
    {
        const KovaFailingHeap heap;
        EXPECT_EQ(Send(kFirst, &first), kSendFailed);
        EXPECT_EQ(errno, ENOMEM);
    }
    EXPECT_EQ(Send(kSecond, &second), kSendFailed);
    EXPECT_EQ(Arrived(), Bytes("$0f"));
    uint8_t nByte;
    EXPECT_EQ(recv(ends.nPlayer, &nByte, 1, MSG_DONTWAIT), 0); // the end of the stream
}

TEST_F(TcpChannelTest, FrameThatCannotBeFinishedEndsTheConnection)
{
    Script({{0, 3}, {ENOBUFS}});
    EXPECT_EQ(Send(kFirst, &first), kSendFailed);
    EXPECT_EQ(errno, ENOBUFS);
    EXPECT_EQ(Send(kSecond, &second), kSendFailed);
    EXPECT_EQ(Arrived(), Bytes("$0f"));
    uint8_t nByte;
    EXPECT_EQ(recv(ends.nPlayer, &nByte, 1, MSG_DONTWAIT), 0); // the end of the stream
}

TEST_F(TcpChannelTest, FullSocketKeepsFramesWhole)
{
    const size_t nFilled = ends.Fill();
    const KovaBytes frame = KovaFrameOf(0, KovaPacketBytes({1, 0, 0, 0, 1400}));
    EXPECT_EQ(Send(frame, &first), kSendAgain);
    std::thread reader([this, nFilled, &frame] {
        KovaBytes all = ends.Receive(nFilled + frame.size() + kSecond.size(), 5000);
        ASSERT_EQ(all.size(), nFilled + frame.size() + kSecond.size());
        all.erase(all.begin(), all.begin() + static_cast<ptrdiff_t>(nFilled));
        EXPECT_EQ(all, frame + kSecond);
    });
    EXPECT_TRUE(KovaWaitUntil([&] { return Send(frame, &first) == kSendDone; }));
    EXPECT_TRUE(KovaWaitUntil([&] { return Send(kSecond, &second) == kSendDone; }));
    reader.join();
}

TEST_F(TcpChannelTest, WritesMinusOneBeforeItCloses)
{
    const int nSocket = ends.Socket();
    int nSeen = 0;
    faults.OnClose(nSocket, [&] { nSeen = ends.Socket(); });
    KovaTcpChannelClose(ends.Channel());
    EXPECT_EQ(nSeen, -1);
    EXPECT_FALSE(KovaIsOpen(nSocket));
    EXPECT_EQ(Send(kFirst, &first), kSendFailed);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(Respond().nError, EBADF);
    uint8_t nByte;
    EXPECT_EQ(KovaTcpChannelReceive(ends.Channel(), &nByte, 1), -1);
    EXPECT_EQ(errno, EBADF);
    KovaTcpChannelClose(ends.Channel()); // once more does nothing
}

TEST_F(TcpChannelTest, NeverTouchesANumberThatHasBeenReused)
{
    // Two threads send while a third closes; whoever gets the number afterwards
    // must get no byte, and must not be closed.
    for (int nTurn = 0; nTurn < 100; nTurn++) {
        KovaTcpEnds turn;
        const int nOld = turn.Socket();
        std::atomic<bool> bStop{false};
        std::vector<std::thread> threads;
        for (int n = 0; n < 2; n++)
            threads.emplace_back([&turn, &bStop] {
                while (!bStop) {
                    KovaFrameProgress progress = {};
                    KovaTcpChannelSendFrame(turn.Channel(), kFirst.data(), kFirst.size(),
                                            &progress);
                    KovaTcpChannelSendResponse(turn.Channel(), kResponse.data(), kResponse.size());
                }
            });
        usleep(300);
        std::thread closer([&turn] { KovaTcpChannelClose(turn.Channel()); });
        std::thread other([&turn] { KovaTcpChannelClose(turn.Channel()); });
        int pair[2];
        ASSERT_TRUE(KovaWaitUntil([nOld] { return !KovaIsOpen(nOld); }));
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
        if (pair[0] != nOld && pair[1] != nOld)
            dup2(pair[0], nOld);
        usleep(300);
        uint8_t nByte;
        EXPECT_EQ(recv(pair[0], &nByte, 1, MSG_DONTWAIT), -1);
        EXPECT_EQ(recv(pair[1], &nByte, 1, MSG_DONTWAIT), -1);
        bStop = true;
        for (std::thread &thread : threads)
            thread.join();
        closer.join();
        other.join();
        ASSERT_TRUE(KovaIsOpen(nOld));
        close(pair[0]);
        close(pair[1]);
        close(nOld);
    }
}

TEST_F(TcpChannelTest, ReferencesSeeMinusOneWhenTheFieldIsGone)
{
    std::atomic<int *> pReference{nullptr};
    KovaTcpChannel *pChannel = KovaTcpChannelJoin(ends.Field());
    ASSERT_TRUE(KovaTcpChannelFollow(pChannel, &pReference));
    EXPECT_EQ(pReference.load(), ends.Field());
    const int nSocket = ends.Socket();
    ends.EndHandler(); // frees the field
    EXPECT_EQ(*pReference.load(), -1);
    EXPECT_FALSE(KovaIsOpen(nSocket));
    EXPECT_EQ(KovaTcpChannelSendFrame(pChannel, kFirst.data(), kFirst.size(), &first), kSendFailed);
    EXPECT_EQ(errno, EBADF);
    KovaTcpChannelUnfollow(pChannel, &pReference);
    KovaTcpChannelLeave(pChannel);
}

TEST_F(TcpChannelTest, ReaderWakesForDataForTheEndAndForACall)
{
    std::atomic<int> nReturned{0};
    std::thread reader([this, &nReturned] {
        KovaTcpChannelWaitReadable(ends.Channel(), 5000);
        nReturned = 1;
        uint8_t bytes[4];
        EXPECT_EQ(KovaTcpChannelReceive(ends.Channel(), bytes, sizeof(bytes)), 2);
        KovaTcpChannelWaitReadable(ends.Channel(), 5000);
        nReturned = 2;
    });
    ASSERT_EQ(send(ends.nPlayer, "ab", 2, 0), 2);
    EXPECT_TRUE(KovaWaitUntil(3000, [&] { return nReturned == 1; }));
    const int nSocket = ends.Socket();
    usleep(10000);
    KovaTcpChannelClose(ends.Channel());
    EXPECT_EQ(ends.Socket(), -1);
    EXPECT_TRUE(KovaWaitUntil(3000, [&] { return nReturned == 2; }));
    reader.join();
    EXPECT_FALSE(KovaIsOpen(nSocket));

    KovaTcpEnds woken;
    std::thread waiter([&] { KovaTcpChannelWaitReadable(woken.Channel(), 5000); });
    usleep(10000);
    const auto before = std::chrono::steady_clock::now();
    KovaTcpChannelWakeReader(woken.Channel(), kWakeForGood);
    waiter.join();
    KovaTcpChannelWaitReadable(woken.Channel(), 5000); // for good
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(3));
}

TEST_F(TcpChannelTest, WakeOfTheReaderLeavesTheSendingSideOpen)
{
    std::thread reader([this] { KovaTcpChannelWaitReadable(ends.Channel(), 300000); });
    usleep(50000); // it polls by now
    KovaTcpChannelWakeReader(ends.Channel(), kWakeForGood);
    reader.join();
    EXPECT_EQ(Send(kFirst, &first), kSendDone);
    EXPECT_EQ(Respond().nError, 0);
    EXPECT_EQ(Arrived(), kFirst + kResponse);
}

TEST_F(TcpChannelTest, WakeBeforeTheWaitEndsItAtOnce)
{
    // A stop request may come between the reader's look at its state and its wait.
    KovaTcpChannelWakeReader(ends.Channel(), kWakeForGood);
    std::atomic<bool> bReturned{false};
    std::thread reader([&] {
        KovaTcpChannelWaitReadable(ends.Channel(), 300000);
        bReturned = true;
    });
    EXPECT_TRUE(KovaWaitUntil(20000, [&] { return bReturned.load(); }));
    KovaTcpChannelClose(ends.Channel());
    reader.join();
}

TEST_F(TcpChannelTest, WakeFromAWaitEndsThatOneAlone)
{
    KovaTcpChannelWakeReader(ends.Channel(), kWakeFromWait); // nobody waits
    ASSERT_EQ(send(ends.nPlayer, "ab", 2, 0), 2);
    KovaTcpChannelWaitReadable(ends.Channel(), 20000);
    uint8_t bytes[4];
    EXPECT_EQ(KovaTcpChannelReceive(ends.Channel(), bytes, sizeof(bytes)), 2);

    std::atomic<bool> bReturned{false};
    std::thread reader([&] {
        KovaTcpChannelWaitReadable(ends.Channel(), -1);
        bReturned = true;
    });
    EXPECT_TRUE(KovaWaitUntil(20000, [&] {
        KovaTcpChannelWakeReader(ends.Channel(), kWakeFromWait);
        return bReturned.load();
    }));
    KovaTcpChannelClose(ends.Channel());
    reader.join();
}

int Option(int nSocket, int nLevel, int nName)
{
    int nValue = -1;
    socklen_t nSize = sizeof(nValue);
    EXPECT_EQ(getsockopt(nSocket, nLevel, nName, &nValue, &nSize), 0);
    return nValue;
}

TEST_F(TcpChannelTest, AcceptedConnectionsAskForTheirPeer)
{
    EXPECT_EQ(Option(ends.Socket(), SOL_SOCKET, SO_KEEPALIVE), 0);
    KovaTcpPrepare(ends.Socket());
    EXPECT_EQ(Option(ends.Socket(), SOL_SOCKET, SO_KEEPALIVE), 1);
    EXPECT_EQ(Option(ends.Socket(), IPPROTO_TCP, TCP_KEEPIDLE), 30);
    EXPECT_EQ(Option(ends.Socket(), IPPROTO_TCP, TCP_KEEPINTVL), 10);
    EXPECT_EQ(Option(ends.Socket(), IPPROTO_TCP, TCP_KEEPCNT), 3);
    EXPECT_EQ(Option(ends.Socket(), IPPROTO_TCP, TCP_USER_TIMEOUT), 0);
}

TEST_F(TcpChannelTest, ConnectionsWithMediaGiveUpAfterTenSeconds)
{
    KovaTcpChannelLimitSending(ends.Channel());
    EXPECT_EQ(Option(ends.Socket(), IPPROTO_TCP, TCP_USER_TIMEOUT), 10000);
    KovaTcpChannelLimitSending(ends.Channel());
    EXPECT_EQ(Option(ends.Socket(), IPPROTO_TCP, TCP_USER_TIMEOUT), 10000);
    KovaTcpChannelClose(ends.Channel());
    KovaTcpChannelLimitSending(ends.Channel()); // nobody else's descriptor
}

} // namespace
