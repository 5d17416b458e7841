#include "tests/clock/clock_model.h"
#include "tests/soak/short_sleeps.h"
#include "tests/support/fake_clock.h"
#include "tests/support/player.h"
#include "tests/support/stdout_capture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>

/// Players of a real stream while something happens to the clock. None of it may
/// stop their media for longer than the second that packets wait anyway.
namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr int kBefore = 1800; ///< ms until it happens
constexpr int kAfter = 1700;
constexpr std::chrono::milliseconds kInterval(40);
constexpr std::chrono::milliseconds kLongestPause(6000);
constexpr uint32_t kFirstPts = 1000;

/// Pushes both tracks in real time until it is destroyed.
class Feed {
public:
    Feed(KovaRtspStreamer *pStream, uint32_t nFirstPts)
    {
        const SteadyClock::time_point begin = SteadyClock::now();
        m_feed.Start([=, n = uint32_t{0}]() mutable {
            const uint32_t nPts = nFirstPts + n * static_cast<uint32_t>(kInterval.count());
            KovaPush(pStream, 96, KovaTestAacFrame(100), nPts);
            KovaPush(pStream, 97, n % 5 == 0 ? KovaTestKeyFrame(3000) : KovaTestInterFrame(500),
                     nPts);
            return begin + ++n * kInterval;
        });
    }

private:
    KovaFeed m_feed;
};

struct ClockTest : testing::Test {
    KovaStdoutCapture capture;
    KovaFakeClock clock;
    KovaShortSleeps sleeps{20}; // the monitor looks twenty times a second
    std::unique_ptr<KovaTestServer> server;
    std::unique_ptr<Feed> feed;
    KovaPlayer udp{true};
    KovaPlayer tcp{false};

    void Begin(int64_t nClock, uint32_t nFirstPts = kFirstPts)
    {
        clock.StartAt(nClock);
        server = std::make_unique<KovaTestServer>();
        ASSERT_TRUE(server->IsUp());
        feed = std::make_unique<Feed>(server->Stream(), nFirstPts);
        ASSERT_TRUE(KovaWaitUntil(
            5000, [this] { return KovaRtspStreamerSdpIsReady(server->Stream()) == 1; }));
        Join(&udp);
        Join(&tcp);
    }

    void Join(KovaPlayer *pPlayer)
    {
        ASSERT_TRUE(pPlayer->SetUp(server.get()));
        ASSERT_TRUE(pPlayer->Play());
    }

    void Watch(int nMilliseconds)
    {
        KovaCollect({&udp, &tcp}, nMilliseconds);
    }

    /// Every packet of each track came, and none of them late.
    static void ExpectAll(const KovaPlayer &player, const char *szName, size_t nLeast = 40)
    {
        for (int nTrack = 96; nTrack <= 97; nTrack++) {
            SCOPED_TRACE(std::string(szName) + ", track " + std::to_string(nTrack));
            const KovaArrival *pLast = nullptr;
            KovaRtpHeaderFields last;
            for (const KovaArrival &arrival : player.Arrivals()) {
                KovaRtpHeaderFields header;
                if (arrival.nTrack != nTrack || arrival.bRtcp)
                    continue;
                ASSERT_TRUE(KovaReadRtpHeader(arrival.packet, &header));
                if (pLast != nullptr) {
                    ASSERT_EQ(header.nSequence, static_cast<uint16_t>(last.nSequence + 1));
                    ASSERT_LT(arrival.when - pLast->when, kLongestPause);
                }
                pLast = &arrival;
                last = header;
            }
            ASSERT_NE(pLast, nullptr);
            EXPECT_GE(player.RtpCount(nTrack), nLeast);
        }
    }

    /// The stream is alive: its figures, its players, and whoever comes next.
    void ExpectAlive()
    {
        const size_t nBefore[] = {udp.RtpCount(97), tcp.RtpCount(97)};
        EXPECT_TRUE(KovaWaitUntil(15000, [&] {
            Watch(20);
            return udp.RtpCount(97) >= nBefore[0] + 20 && tcp.RtpCount(97) >= nBefore[1] + 20;
        }));
        EXPECT_TRUE(KovaWaitUntil(15000, [&] {
            Watch(20);
            KovaRtspStatus status = {KOVA_STATUS_STREAM, {}};
            KovaRtspServerGetStatus(server->Stream(), &status);
            return status.value.nStreamStatus == KOVA_STREAM_FLOWING;
        }));
        ExpectAll(udp, "udp");
        ExpectAll(tcp, "tcp");
    }

    void TearDown() override
    {
        feed.reset();
        server.reset();
    }
};

TEST_F(ClockTest, MicrosecondsTurnNegative)
{
    Begin(kTurn - kBefore * 1000);
    Watch(kBefore + kAfter);
    ASSERT_GT(clock.Now(), kTurn);
    ExpectAlive();
    EXPECT_EQ(server->SessionCount(), 2U);
}

TEST_F(ClockTest, MicrosecondsBeginAnew)
{
    Begin(kWrap - kBefore * 1000);
    Watch(kBefore + kAfter);
    ASSERT_GT(clock.Now(), kWrap);
    ExpectAlive();
    EXPECT_EQ(server->SessionCount(), 2U);
}

TEST_F(ClockTest, TimestampsBeginAnew)
{
    Begin(kToday, 0U - kBefore);
    Watch(kBefore + kAfter);
    ExpectAlive();
    EXPECT_EQ(server->SessionCount(), 2U);
}

TEST_F(ClockTest, SetBackByAnHour)
{
    Begin(kToday);
    Watch(kBefore);
    clock.Advance(-kHour);
    Watch(kAfter);
    ExpectAlive();
    EXPECT_EQ(server->SessionCount(), 2U);
}

/// All sessions are over after such a step, and their players come again.
struct SessionsEndTest : ClockTest {
    void StepAhead(int64_t nFrom, int64_t nStep)
    {
        Begin(nFrom);
        Watch(kBefore);
        ASSERT_EQ(server->SessionCount(), 2U);
        clock.Advance(nStep);
        ASSERT_TRUE(KovaWaitUntil(10000, [this] { return server->SessionCount() == 0; }));
        EXPECT_TRUE(server->Clients(96).empty());
        EXPECT_TRUE(server->Clients(97).empty());
        EXPECT_EQ(server->Stream()->nClientCount, 0);
        Watch(100);
        ExpectAll(udp, "udp", 10);
        ExpectAll(tcp, "tcp", 10);
    }

    void ExpectOthersPlay()
    {
        KovaPlayer again[] = {KovaPlayer(true), KovaPlayer(false)};
        for (KovaPlayer &player : again)
            Join(&player);
        EXPECT_TRUE(KovaWaitUntil(15000, [&] {
            KovaCollect({&again[0], &again[1]}, 20);
            return std::min({again[0].RtpCount(96), again[0].RtpCount(97), again[1].RtpCount(96),
                             again[1].RtpCount(97)}) >= 40;
        }));
        EXPECT_EQ(server->SessionCount(), 2U);
        ExpectAll(again[0], "udp again");
        ExpectAll(again[1], "tcp again");
    }
};

TEST_F(SessionsEndTest, SetFiftyYearsAhead)
{
    StepAhead(kToday, kFiftyYears);
    ExpectOthersPlay();
}

/// The seconds turn negative in 2038; an instant just ahead of that already is.
TEST_F(SessionsEndTest, SetOverTheEndOfTheSeconds)
{
    StepAhead(kEpochEnd - 70 * kSecond, 70 * kSecond);
    ASSERT_GT(clock.Now(), kEpochEnd);
    ExpectOthersPlay();
}

} // namespace
