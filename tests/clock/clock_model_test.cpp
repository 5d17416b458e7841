#include "foundation/log.h"
#include "foundation/scope_guard.h"
#include "rtsp/server_calls.h"
#include "rtsp/session.h"
#include "tests/clock/clock_model.h"
#include "tests/soak/short_sleeps.h"
#include "tests/support/delivery.h"
#include "tests/support/fake_clock.h"
#include "tests/support/net_ends.h"
#include "tests/support/stdout_capture.h"
#include "tests/support/test_server.h"

#include <gtest/gtest.h>

#include <random>

/// The library against the models, at every odd time of the clock.
namespace {

using Random = std::mt19937;

unsigned Draw(Random *pRandom, unsigned nCount)
{
    return std::uniform_int_distribution<unsigned>(0, nCount - 1)(*pRandom);
}

/// Where a clock may be next: a little on, or set to somewhere else.
int64_t NextClock(Random *pRandom, int64_t nClock)
{
    constexpr int64_t kSteps[] = {
        0,        1000,   40000, 990000,       kSecond,      3900000,      -40000,
        -2900000, -kHour, kHour, 59 * kSecond, 60 * kSecond, 61 * kSecond, 90 * kSecond};
    constexpr int64_t kPlaces[] = {kTurn, kWrap, kEpochEnd, kToday, kToday + kFiftyYears};
    if (Draw(pRandom, 6) == 0)
        return kPlaces[Draw(pRandom, 5)] + (static_cast<int64_t>(Draw(pRandom, 5)) - 2) * 1000;
    const int64_t nNext = nClock + kSteps[Draw(pRandom, 14)];
    return nNext > 0 ? nNext : kToday;
}

uint32_t NextPts(Random *pRandom, uint32_t nPts)
{
    constexpr uint32_t kSteps[] = {40, 40, 40, 1, 23, 900, 999, 1000, 5000, 0, 0xffffffd8};
    if (Draw(pRandom, 12) == 0)
        return 0xffffffffU - Draw(pRandom, 60);
    return nPts + kSteps[Draw(pRandom, 11)];
}

TEST(ClockModel, PacingFollowsItWhereverTheClockIs)
{
    Random random(1);
    const KovaStdoutCapture capture;
    KovaFakeClock clock;
    unsigned nHeld = 0;
    unsigned nSent = 0;
    for (unsigned nStream = 0; nStream < 12 && !HasFailure(); nStream++) {
        int64_t nClock = nStream % 2 == 0 ? kTurn - 50000 : kWrap - 50000;
        clock.Fix(nClock);
        KovaDelivery delivery;
        KovaUdpEnds ends;
        delivery.Add(ends.Client("12345678901"));
        KovaPacingModel model;
        uint32_t nPts = nStream % 3 == 0 ? 0xffffff00 : 1000;
        for (uint16_t nSequence = 1; nSequence <= 12 && !HasFailure(); nSequence++) {
            const bool bHeld = model.Take(nPts, nClock);
            SCOPED_TRACE("stream " + std::to_string(nStream) + ", packet " +
                         std::to_string(nSequence) + ", PTS " + std::to_string(nPts) + ", clock " +
                         std::to_string(nClock) + (bHeld ? ", held" : ", at once"));
            delivery.Queue({nSequence, 0, nPts});
            KovaRtpSendGroupStart(delivery.Group());
            if (bHeld) {
                nHeld++;
                EXPECT_EQ(ends.Rtp(15), std::nullopt);
                while (model.Holds(nPts, nClock + 1000))
                    nClock += 1000;
                clock.Fix(nClock);
                EXPECT_EQ(ends.Rtp(25), std::nullopt) << "the last ms of " << nClock;
                nClock += 1000;
                clock.Fix(nClock);
            }
            nSent++;
            EXPECT_EQ(ends.Rtp(10000), KovaPacketBytes({nSequence, 0, nPts}));
            ASSERT_TRUE(delivery.Drain());
            nClock = NextClock(&random, nClock);
            clock.Fix(nClock);
            nPts = NextPts(&random, nPts);
        }
        clock.Fix(nClock + 10 * kSecond); // whatever is still held goes out
    }
    EXPECT_GE(nHeld, 20U);
    EXPECT_GE(nSent - nHeld, 50U);
}

/// A running server whose monitor makes a pass every few milliseconds.
struct MonitorTest : testing::Test {
    KovaStdoutCapture capture;
    KovaFakeClock clock;
    KovaShortSleeps sleeps{200};
    KovaTestServer server;
    Random random{2};
    int64_t nClock = kTurn - kSecond;

    void SetUp() override
    {
        ASSERT_TRUE(server.IsUp());
        RTSP_SetLogLevel(kLogFigures);
        clock.Fix(nClock);
    }
    ~MonitorTest() override
    {
        RTSP_SetLogLevel(2);
    }

    /// Sets the clock and lets the monitor make a whole pass; a further one at
    /// the same time changes nothing.
    void PassAt(int64_t nTime)
    {
        clock.Fix(nTime);
        for (int i = 0; i < 2; i++) {
            capture.Clear();
            ASSERT_TRUE(capture.WaitFor("Audio Ring Buffer Avail", 10000));
        }
    }
};

TEST_F(MonitorTest, BitrateFollowsTheModelWhereverTheClockIs)
{
    KovaRtpSender *pSender = KovaRtspStreamerGetRtpSenderByPayloadId(server.Stream(), 97);
    KovaRtpSenderAddRtpClient(pSender, "12345678901", 0, 0, 0, 0, {}, 1, nullptr, 0, 1, 0, 0);
    auto *pGroup = static_cast<KovaRtpSendGroup *>(pSender->pSendGroupList->data);
    auto *pClient = static_cast<KovaRtpClient *>(pGroup->pClientList->data);
    KovaBitrateModel model;
    unsigned nMeasured = 0;
    for (int i = 0; i < 80 && !HasFailure(); i++) {
        SCOPED_TRACE("step " + std::to_string(i) + ", clock " + std::to_string(nClock));
        nClock = NextClock(&random, nClock);
        const uint32_t nBytes = Draw(&random, 4000000);
        {
            // The clock is moved with the bytes, so that no pass comes between.
            const KovaMutexLock lock(&pGroup->clientMutex);
            pClient->nMeasureBytes += nBytes;
            clock.Fix(nClock);
        }
        model.nBytes += nBytes;
        PassAt(nClock);
        model.Pass(nClock);
        const KovaMutexLock lock(&pGroup->clientMutex);
        EXPECT_EQ(pClient->nSendBitrate, model.nBitrate);
        EXPECT_EQ(pClient->nMeasureStartTime, model.nStart);
        EXPECT_EQ(pClient->nMeasureBytes, model.nBytes);
        nMeasured += model.nBitrate > 0;
    }
    EXPECT_GE(nMeasured, 10U);
}

TEST_F(MonitorTest, ExpiryFollowsTheModelWhereverTheClockIs)
{
    unsigned nExpired = 0;
    unsigned nKept = 0;
    std::vector<std::pair<std::string, KovaExpiryModel>> sessions;
    for (int i = 0; i < 80 && !HasFailure(); i++) {
        char szId[kSessionIdSize] = {};
        ASSERT_EQ(AddNewRtspSession(server.Server(), szId, 60), KOVA_OK);
        KovaExpiryModel model;
        model.Begin(nClock, 60);
        sessions.emplace_back(szId, model);
        if (Draw(&random, 2) == 0) {
            auto &[id, refreshed] = sessions[Draw(&random, static_cast<unsigned>(sessions.size()))];
            ASSERT_EQ(KovaRtspServerUpdateSession(server.Server(), id.c_str()), KOVA_OK);
            refreshed.Refresh(nClock, 60);
        }
        nClock = NextClock(&random, nClock);
        SCOPED_TRACE("step " + std::to_string(i) + ", clock " + std::to_string(nClock));
        PassAt(nClock);
        for (size_t n = sessions.size(); n-- > 0;) {
            const bool bOver = sessions[n].second.IsOver(nClock);
            EXPECT_EQ(KovaRtspServerIsSessionExist(server.Server(), sessions[n].first.c_str()),
                      bOver ? 0 : 1)
                << "expiry " << sessions[n].second.tExpire;
            (bOver ? nExpired : nKept)++;
            if (bOver)
                sessions.erase(sessions.begin() + static_cast<std::ptrdiff_t>(n));
        }
    }
    EXPECT_GE(nExpired, 20U);
    EXPECT_GE(nKept, 50U);
}

} // namespace
