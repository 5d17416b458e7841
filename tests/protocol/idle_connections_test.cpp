#include "classic/rtp/tcp_channel.h"
#include "classic/server/handler_registry.h"
#include "tests/protocol/handler_pair.h"
#include "tests/protocol/protocol_fixture.h"

#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <list>
#include <map>
#include <set>
#include <string>
#include <thread>

/// Connections whose players ask for nothing.
namespace {

constexpr unsigned kConnections = 100;

using Threads = std::set<std::string>;

Threads ThreadsNow()
{
    Threads threads;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/task"))
        threads.insert(entry.path());
    return threads;
}

/// How often a thread of this process has gone to sleep so far; -1 when it is gone.
long Sleeps(const std::string &thread)
{
    std::ifstream status(thread + "/status");
    for (std::string word; status >> word;) {
        long nSleeps = 0;
        if (word == "voluntary_ctxt_switches:" && status >> nSleeps)
            return nSleeps;
    }
    return -1;
}

struct IdleConnections : testing::Test {
    KovaStdoutCapture capture;
    KovaTestServer server{{"live", static_cast<int>(kConnections), true}};
    std::list<KovaRtspTestClient> players;
    Threads threads; ///< of the connections

    /// Connects players who are answered one OPTIONS each.
    void Connect(unsigned nPlayers)
    {
        const Threads before = ThreadsNow();
        for (unsigned nPlayer = 0; nPlayer < nPlayers; nPlayer++) {
            players.emplace_back();
            ASSERT_TRUE(server.Connect(&players.back()));
            ASSERT_TRUE(Answers(&players.back()));
        }
        for (const std::string &thread : ThreadsNow())
            if (before.count(thread) == 0)
                threads.insert(thread);
    }

    static bool Answers(KovaRtspTestClient *pPlayer)
    {
        return pPlayer->Exchange("OPTIONS rtsp://h/live RTSP/1.0\r\nCSeq: 1\r\n\r\n").text ==
               kOptionsAnswer;
    }

    /// How often the connections' threads have slept and been woken in five seconds.
    long WakeUps() const
    {
        std::map<std::string, long> before;
        for (const std::string &thread : threads)
            before[thread] = Sleeps(thread);
        std::this_thread::sleep_for(std::chrono::seconds(5));
        long nWakeUps = 0;
        for (const auto &[thread, nSleeps] : before)
            nWakeUps += Sleeps(thread) - nSleeps;
        return nWakeUps;
    }
};

TEST_F(IdleConnections, AreNeverWoken)
{
    Connect(kConnections);
    ASSERT_EQ(threads.size(), kConnections);
    // On a busy machine a thread may be on its way to its wait for a while.
    long nWakeUps = WakeUps();
    for (int nTry = 0; nTry < 4 && nWakeUps != 0; nTry++)
        nWakeUps = WakeUps();
    EXPECT_EQ(nWakeUps, 0);
    for (const std::string &thread : threads)
        EXPECT_GT(Sleeps(thread), 0) << thread;
    EXPECT_TRUE(Answers(&players.front()));
    EXPECT_TRUE(Answers(&players.back()));
}

TEST_F(IdleConnections, AllEndWhenTheServerLetsThemGo)
{
    Connect(kConnections);
    KovaRtspServerRemoveAllServerHandler(server.Server());
    EXPECT_EQ(server.HandlerCount(), 0U);
    for (KovaRtspTestClient &player : players)
        EXPECT_TRUE(player.WaitClosed(10000));
}

TEST_F(IdleConnections, StateWordThatSomebodyWritesIsNoticedAllTheSame)
{
    Connect(2);
    KovaRtspServerHandler *pHandler = server.Handler(players.front());
    ASSERT_NE(pHandler, nullptr);
    pHandler->nState = kThreadStopRequested;
    EXPECT_TRUE(KovaWaitUntil([pHandler] { return pHandler->nState == kThreadStopped; }));
    EXPECT_TRUE(players.front().WaitClosed(10000));
    EXPECT_TRUE(Answers(&players.back()));
}

TEST_F(IdleConnections, HandlerThatIsRegisteredBeforeItIsStartedIsLeftAlone)
{
    KovaHandlerPair pair(server.Server());
    ASSERT_EQ(KovaRtspServerAddServerHandler(server.Server(), pair.pHandler), 0);
    KovaServerWakeStopped(server.Server());
    ASSERT_EQ(KovaRtspServerHandlerStart(pair.pHandler), 0);
    EXPECT_TRUE(Answers(&pair.player));
    const clock_t before = std::clock(); // of the whole process
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_LT(std::clock() - before, CLOCKS_PER_SEC / 20) << "of the processor's half second";
    EXPECT_EQ(KovaRtspServerRemoveServerHandler(server.Server(), pair.pHandler), 0);
    EXPECT_EQ(KovaRtspServerHandlerStop(pair.pHandler), 0);
}

/// Outsiders read and write the record's bytes as they like; the thread sanitizer need not mind.
__attribute__((no_sanitize("thread"))) void Write(uint8_t *pByte)
{
    *static_cast<volatile uint8_t *>(pByte) = 1;
}
__attribute__((no_sanitize("thread"))) bool AreZero(const uint8_t *pBytes, size_t nSize)
{
    size_t n = 0;
    while (n < nSize && static_cast<const volatile uint8_t *>(pBytes)[n] == 0)
        n++;
    return n == nSize;
}

/// Nobody reads the second buffer, and outsiders find it cleared after each request.
TEST_F(IdleConnections, BuffersAreClearedAfterARequest)
{
    Connect(1);
    KovaRtspServerHandler *pHandler = server.Handler(players.front());
    ASSERT_NE(pHandler, nullptr);
    for (const size_t nAt : {size_t{0}, size_t{1}, sizeof(pHandler->spareBuf) - 1}) {
        Write(&pHandler->spareBuf[nAt]);
        ASSERT_TRUE(Answers(&players.front()));
        EXPECT_TRUE(
            KovaWaitUntil([pHandler, nAt] { return AreZero(&pHandler->spareBuf[nAt], 1); }));
    }
    EXPECT_TRUE(KovaWaitUntil(
        [pHandler] { return AreZero(pHandler->recvBuf, sizeof(pHandler->recvBuf)); }));
}

} // namespace
