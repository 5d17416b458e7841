#include "tests/live/live_host.h"
#include "tests/support/c_calls.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

// A system that takes little, takes nothing for a while, or lacks an interface.

namespace {

std::atomic<unsigned> g_nCall{0};
std::atomic<bool> g_bFull{false};
std::atomic<bool> g_bThird{true}; ///< every third call meets a full socket
std::atomic<unsigned> g_nMediaCalls{0};
std::atomic<unsigned> g_nMediaBeforeAnswer{0};
std::atomic<int> g_nMediaUntilFull{0}; ///< calls; below 1: it does not become full by them
std::atomic<unsigned> g_nClockCalls{0};
std::atomic<unsigned> g_nRefused{0};
std::atomic<size_t> g_nMost{0};
thread_local bool t_bLoop = false;

/// Only what loops send is touched: they have their name.
bool IsLoop()
{
    if (t_bLoop)
        return true;
    char szName[16] = "";
    pthread_getname_np(pthread_self(), szName, sizeof(szName));
    t_bLoop = strncmp(szName, "kova-live", 9) == 0;
    return t_bLoop;
}

bool IsFull()
{
    if (!IsLoop() || (!g_bFull && (!g_bThird || ++g_nCall % 3 != 0)))
        return false;
    g_nRefused++;
    errno = EAGAIN;
    return true;
}

ssize_t SendPart(int nSocket, const void *pData, size_t nSize, int nFlags)
{
    if (!IsLoop())
        return __real_send(nSocket, pData, nSize, nFlags);
    if (IsFull())
        return -1;
    // Answers begin with their version, frames with '$'.
    if (*static_cast<const char *>(pData) == 'R')
        g_nMediaBeforeAnswer = g_nMediaCalls.load();
    return __real_send(nSocket, pData, std::min(nSize, g_nMost.load()), nFlags);
}

ssize_t SendMessagePart(int nSocket, const msghdr *pMessage, int nFlags)
{
    if (!IsLoop())
        return __real_sendmsg(nSocket, pMessage, nFlags);
    if (IsFull())
        return -1;
    g_nMediaCalls++;
    if (g_nMediaUntilFull > 0 && --g_nMediaUntilFull == 0)
        g_bFull = true;
    std::string bytes;
    for (size_t nPart = 0; nPart < pMessage->msg_iovlen; nPart++)
        bytes.append(static_cast<const char *>(pMessage->msg_iov[nPart].iov_base),
                     pMessage->msg_iov[nPart].iov_len);
    return __real_send(nSocket, bytes.data(), std::min(bytes.size(), g_nMost.load()), nFlags);
}

ssize_t SendToPart(int nSocket, const void *pData, size_t nSize, int nFlags,
                   const sockaddr *pAddress, socklen_t nAddressSize)
{
    return IsFull() ? -1 : __real_sendto(nSocket, pData, nSize, nFlags, pAddress, nAddressSize);
}

int SendManyPart(int nSocket, mmsghdr *pMessages, unsigned nCount, int nFlags)
{
    return IsFull() ? -1
                    : __real_sendmmsg(nSocket, pMessages, IsLoop() ? std::min(nCount, 1U) : nCount,
                                      nFlags);
}

int CountClock(clockid_t nClock, timespec *pTime)
{
    g_nClockCalls += IsLoop() ? 1 : 0;
    return __real_clock_gettime(nClock, pTime);
}

struct LiveSystem : testing::Test {
    void SetUp() override
    {
        g_bFull = false;
        g_bThird = true;
        g_nMost = SIZE_MAX;
        g_nMediaUntilFull = 0;
    }
    ~LiveSystem() override
    {
        KovaReplaceCall<__real_send>(nullptr);
        KovaReplaceCall<__real_sendmsg>(nullptr);
        KovaReplaceCall<__real_sendto>(nullptr);
        KovaReplaceCall<__real_sendmmsg>(nullptr);
        KovaReplaceCall<__real_epoll_create1>(nullptr);
        KovaReplaceCall<__real_eventfd>(nullptr);
        KovaReplaceCall<__real_clock_gettime>(nullptr);
    }
};

} // namespace

TEST_F(LiveSystem, FramesAndAnswersStayWholeHoweverLittleAConnectionTakes)
{
    KovaReplaceCall<__real_send>(SendPart);
    KovaReplaceCall<__real_sendmsg>(SendMessagePart);
    for (const size_t nMost : {1U, 3U, 5U, 701U, 1404U, 5000U}) {
        g_nMost = nMost;
        KovaLiveHost host;
        KovaLiveStream *pStream = host.AddStream("cam");
        KovaLiveTrack *pVideo = KovaLiveHost::AddVideo(pStream);
        KovaLiveClient client;
        ASSERT_TRUE(KovaLivePlayTcp(&client, host)) << nMost;
        const size_t nSize = nMost < 10 ? 3000 : 30000;
        for (unsigned nPicture = 0; nPicture < 8; nPicture++) {
            ASSERT_EQ(KovaLivePushText(pVideo, KovaLiveKey(nSize, nPicture), 40000 * nPicture),
                      KOVA_LIVE_OK);
            if (nPicture % 2 == 0) {
                ASSERT_EQ(client.Request("GET_PARAMETER", "cam").nStatus, 200) << nMost;
            }
        }
        for (unsigned nPicture = 0; nPicture < 8; nPicture++)
            ASSERT_EQ(KovaLiveSlice(KovaLiveNextUnit(&client, 1)),
                      KovaMediaNal(0x65, nSize, nPicture))
                << nMost;
        std::string report;
        EXPECT_TRUE(client.NextRtcp(1, &report))
            << nMost << " " << KovaLiveFiguresOf(pStream).packets;
        EXPECT_EQ(KovaRtcpParts(report).size(), 2U);
        // Gone in the middle of whatever is going on, the connection is good for more.
        ASSERT_EQ(KovaLivePushText(pVideo, KovaLiveKey(nSize, 9), 400000), KOVA_LIVE_OK);
        ASSERT_EQ(client.Pause("cam").nStatus, 200) << nMost;
        ASSERT_EQ(client.Play("cam").nStatus, 200);
        ASSERT_EQ(KovaLivePushText(pVideo, KovaLiveKey(nSize, 10), 440000), KOVA_LIVE_OK);
        ASSERT_EQ(client.Teardown("cam").nStatus, 200) << nMost;
        client.SetSession("");
        EXPECT_EQ(client.Describe("cam").nStatus, 200);
        EXPECT_EQ(host.Events(KOVA_LIVE_EVENT_OVERFLOW).size(), 0U);
    }
    EXPECT_GT(g_nRefused, 0U);
}

namespace {

/// A player over a connection that is full when the test says so, and only then.
struct LiveFullConnection : LiveSystem {
    KovaLiveHost host{[](KovaLiveConfig *pConfig) { pConfig->player_max_ms = 150; }};
    KovaLiveTrack *pVideo = KovaLiveHost::AddVideo(host.AddStream("cam"));
    KovaLiveClient client;

    void SetUp() override
    {
        LiveSystem::SetUp();
        KovaReplaceCall<__real_send>(SendPart);
        KovaReplaceCall<__real_sendmsg>(SendMessagePart);
        g_bThird = false;
        ASSERT_TRUE(KovaLivePlayTcp(&client, host));
    }
    static void Settle()
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
};

} // namespace

TEST_F(LiveFullConnection, ReportThatFindsItFullIsNotTheEndOfMedia)
{
    g_bFull = true;
    ASSERT_EQ(KovaLivePushText(pVideo, KovaLiveKey(), 0), KOVA_LIVE_OK);
    Settle();
    g_bFull = false;
    EXPECT_EQ(KovaLiveSlice(KovaLiveNextUnit(&client, 1)), KovaMediaNal(0x65, 500));
}

TEST_F(LiveFullConnection, AnswerGoesBehindTheFrameThatIsBegun)
{
    g_nMost = 2000; // a frame and a half with each call
    ASSERT_EQ(KovaLivePushText(pVideo, KovaLiveKey(3000), 0), KOVA_LIVE_OK);
    EXPECT_EQ(KovaLiveSlice(KovaLiveNextUnit(&client, 1)), KovaMediaNal(0x65, 3000));
    // Full from the first part of a frame on.
    g_nMediaUntilFull = 1;
    ASSERT_EQ(KovaLivePushText(pVideo, KovaLiveOther(60000), 40000), KOVA_LIVE_OK);
    EXPECT_TRUE(KovaWaitUntil([] { return g_bFull.load(); }));
    ASSERT_TRUE(client.Send(client.Text("GET_PARAMETER", "cam")));
    Settle();
    g_nMediaCalls = 0;
    g_bFull = false;
    EXPECT_EQ(client.Receive().nStatus, 200);
    EXPECT_LE(g_nMediaBeforeAnswer, 3U);
    EXPECT_EQ(KovaLiveSlice(KovaLiveNextUnit(&client, 1)), KovaMediaNal(0x41, 60000));
    EXPECT_GT(g_nMediaCalls, 10U);
}

TEST_F(LiveFullConnection, EachFallBackIsToldThoughNothingWasBegun)
{
    const auto pushUntilOverflow = [this](size_t nNumber, int64_t nPts) {
        g_bFull = true;
        EXPECT_TRUE(KovaWaitUntil([&] {
            KovaLivePushText(pVideo, KovaLiveOther(), nPts += 1000);
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            return host.Events(KOVA_LIVE_EVENT_OVERFLOW).size() == nNumber;
        })) << nNumber;
        g_bFull = false;
    };
    for (unsigned nTime = 1; nTime <= 3; nTime++) {
        ASSERT_EQ(KovaLivePushText(pVideo, KovaLiveKey(500, nTime), 10000000 * nTime),
                  KOVA_LIVE_OK);
        EXPECT_EQ(KovaLiveSlice(KovaLiveNextUnit(&client, 1)), KovaMediaNal(0x65, 500, nTime));
        pushUntilOverflow(nTime, 10000000 * nTime);
    }
}

TEST_F(LiveFullConnection, LastAnswerWithMediaBehindItKeepsNoLoopBusy)
{
    ASSERT_EQ(KovaLivePushText(pVideo, KovaLiveKey(), 0), KOVA_LIVE_OK);
    EXPECT_EQ(KovaLiveNextUnit(&client, 1).size(), 1U);
    g_bFull = true;
    ASSERT_EQ(KovaLivePushText(pVideo, KovaLiveKey(), 40000), KOVA_LIVE_OK);
    ASSERT_TRUE(client.Send("OPTIONS rtsp://h/" + std::string(20000, 'x')));
    Settle();
    g_bFull = false;
    EXPECT_EQ(client.Receive().nStatus, 414);
    g_nClockCalls = 0;
    KovaReplaceCall<__real_clock_gettime>(CountClock);
    Settle();
    Settle();
    EXPECT_LT(g_nClockCalls, 100U) << "it waits for the player's end";
    EXPECT_EQ(host.Figures().connections, 1U);
    client.Close();
    EXPECT_EQ(host.WaitEvent(KOVA_LIVE_EVENT_PLAYER_WENT).nReason, KOVA_LIVE_WENT_CONNECTION);
}

TEST_F(LiveSystem, FullUdpSocketIsWaitedForAndNothingIsLost)
{
    KovaReplaceCall<__real_sendto>(SendToPart);
    KovaReplaceCall<__real_sendmmsg>(SendManyPart);
    KovaLiveHost host;
    KovaLiveStream *pStream = host.AddStream("cam");
    KovaLiveTrack *pVideo = KovaLiveHost::AddVideo(pStream);
    KovaLiveClient clients[3];
    for (KovaLiveClient &client : clients)
        ASSERT_TRUE(KovaLivePlayUdp(&client, host));
    for (unsigned nPicture = 0; nPicture < 20; nPicture++) {
        g_bFull = nPicture % 4 == 1;
        ASSERT_EQ(KovaLivePushText(pVideo, KovaLiveKey(9000, nPicture), 40000 * nPicture),
                  KOVA_LIVE_OK);
        if (g_bFull) {
            const unsigned nBefore = g_nRefused;
            EXPECT_TRUE(KovaWaitUntil([&] { return g_nRefused > nBefore; }));
        }
        g_bFull = false;
        for (KovaLiveClient &client : clients)
            ASSERT_EQ(KovaLiveSlice(KovaLiveNextUnit(&client, 1)),
                      KovaMediaNal(0x65, 9000, nPicture));
    }
    EXPECT_EQ(KovaLiveFiguresOf(pStream).late_packets, 0U);
}

TEST_F(LiveSystem, UdpSocketThatStaysFullCostsOldUnitsWhole)
{
    KovaReplaceCall<__real_sendto>(SendToPart);
    KovaReplaceCall<__real_sendmmsg>(SendManyPart);
    KovaLiveHost host([](KovaLiveConfig *pConfig) { pConfig->player_max_ms = 200; });
    KovaLiveStream *pStream = host.AddStream("cam");
    KovaLiveTrack *pVideo = KovaLiveHost::AddVideo(pStream);
    KovaLiveClient client;
    ASSERT_TRUE(KovaLivePlayUdp(&client, host));
    g_bFull = true;
    unsigned nPicture = 0;
    EXPECT_TRUE(KovaWaitUntil([&] {
        KovaLivePushText(
            pVideo, nPicture % 5 == 0 ? KovaLiveKey(5000, nPicture) : KovaLiveOther(5000, nPicture),
            40000 * nPicture);
        nPicture++;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        return !host.Events(KOVA_LIVE_EVENT_OVERFLOW).empty();
    }));
    EXPECT_GT(KovaLiveFiguresOf(pStream).late_packets, 0U);
    while (nPicture % 5 != 0)
        nPicture++;
    EXPECT_EQ(KovaLivePushText(pVideo, KovaLiveKey(5000, nPicture), 40000 * nPicture),
              KOVA_LIVE_OK);
    g_bFull = false;
    // Whole units only, up to the last key frame.
    std::string slice;
    do {
        slice = KovaLiveSlice(KovaLiveNextUnit(&client, 1));
        ASSERT_EQ(slice.size(), 5000U);
    } while (slice != KovaMediaNal(0x65, 5000, nPicture));
}

TEST_F(LiveSystem, WithoutEpollAndEventsPollAndAPipeServe)
{
    KovaReplaceCall<__real_epoll_create1>([](int) {
        errno = ENOSYS;
        return -1;
    });
    KovaReplaceCall<__real_eventfd>([](unsigned, int) {
        errno = ENOSYS;
        return -1;
    });
    KovaLiveHost host([](KovaLiveConfig *pConfig) { pConfig->threads = 2; });
    KovaLiveStream *pStream = host.AddStream("cam");
    KovaLiveTrack *pVideo = KovaLiveHost::AddVideo(pStream);
    KovaLiveClient clients[6];
    for (int nClient = 0; nClient < 6; nClient++)
        ASSERT_TRUE(nClient % 2 == 0 ? KovaLivePlayTcp(&clients[nClient], host)
                                     : KovaLivePlayUdp(&clients[nClient], host));
    for (unsigned nPicture = 0; nPicture < 6; nPicture++) {
        ASSERT_EQ(KovaLivePushText(pVideo, KovaLiveKey(20000, nPicture), 40000 * nPicture),
                  KOVA_LIVE_OK);
        for (unsigned nClient = nPicture; nClient < 6; nClient++)
            EXPECT_EQ(KovaLiveSlice(KovaLiveNextUnit(&clients[nClient], 1)),
                      KovaMediaNal(0x65, 20000, nPicture));
        clients[nPicture].Close(); // they go one after the other
    }
    KovaLiveClient newcomer;
    ASSERT_TRUE(newcomer.Connect(host.Port()));
    EXPECT_EQ(newcomer.Describe("cam").nStatus, 200);
    EXPECT_LT(host.Close(), 1000);
}
