#include "classic/rtsp/server_calls.h"
#include "classic/rtsp/session.h"
#include "classic/streamer/registries.h"
#include "foundation/log.h"
#include "foundation/mutex.h"
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
    if (Draw(pRandom, 30) == 0)
        return 0xffffffffU - Draw(pRandom, 60);
    return nPts + kSteps[Draw(pRandom, 11)];
}

/// One group's packets, the clock standing still at any time for each of them.
struct PacingTest : testing::Test {
    KovaStdoutCapture capture;
    KovaFakeClock clock;
    Random random{1};
    KovaPacingModel model;
    int64_t nClock = 0;
    unsigned nHeld = 0;
    unsigned nSent = 0;

    void SetClock(int64_t nTime)
    {
        nClock = nTime;
        clock.Fix(nTime);
    }

    /// Sees a held packet out: up to its last millisecond, and then one more.
    void Release(KovaUdpEnds *pEnds, uint32_t nPts)
    {
        nHeld++;
        EXPECT_EQ(pEnds->Rtp(15), std::nullopt);
        int64_t nLast = nClock;
        while (model.Holds(nPts, nLast + 1000))
            nLast += 1000;
        SetClock(nLast);
        EXPECT_EQ(pEnds->Rtp(25), std::nullopt) << "at " << nLast;
        SetClock(nLast + 1000);
    }

    void Send(KovaDelivery *pDelivery, KovaUdpEnds *pEnds, uint16_t nSequence, uint32_t nPts)
    {
        const bool bHeld = model.Take(nPts, nClock);
        SCOPED_TRACE("packet " + std::to_string(nSequence) + ", PTS " + std::to_string(nPts) +
                     ", clock " + std::to_string(nClock) + (bHeld ? ", held" : ", at once"));
        pDelivery->Queue({nSequence, 0, nPts});
        if (nSequence == 1)
            KovaRtpSendGroupStart(pDelivery->Group());
        if (bHeld)
            Release(pEnds, nPts);
        nSent++;
        EXPECT_EQ(pEnds->Rtp(10000), KovaPacketBytes({nSequence, 0, nPts}));
        EXPECT_TRUE(pDelivery->Drain());
    }

    /// A stream that begins at this time; its packets come about when they are
    /// due, or at any other time.
    void RunStream(int64_t nBegin, uint32_t nFirstPts)
    {
        SetClock(nBegin);
        model = {};
        KovaDelivery delivery;
        KovaUdpEnds ends;
        delivery.Add(ends.Client("12345678901"));
        uint32_t nPts = nFirstPts;
        for (uint16_t nSequence = 1; nSequence <= 16 && !HasFailure(); nSequence++) {
            Send(&delivery, &ends, nSequence, nPts);
            nPts = NextPts(&random, nPts);
            if (Draw(&random, 5) == 0)
                SetClock(NextClock(&random, nClock));
            else
                SetClock(nBegin + (int64_t{nPts} - nFirstPts + Draw(&random, 5000) - 3500) * 1000);
        }
        SetClock(nBegin + 1000 * kSecond); // whatever is still held goes out
    }
};

TEST_F(PacingTest, FollowsTheModelWhereverTheClockIs)
{
    for (const int64_t nPlace : {kTurn, kWrap, kToday, kEpochEnd}) {
        for (const int nEarlier : {50, 2500, 4000, 60000}) {
            SCOPED_TRACE("a stream from " + std::to_string(nEarlier) + " ms before " +
                         std::to_string(nPlace));
            RunStream(nPlace - nEarlier * 1000, nEarlier == 2500 ? 0xfffff000 : 1000);
        }
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
    for (int i = 0; i < 50 && !HasFailure(); i++) {
        SCOPED_TRACE("step " + std::to_string(i) + ", clock " + std::to_string(nClock));
        nClock = NextClock(&random, nClock);
        const uint32_t nBytes = Draw(&random, 4000000);
        {
            // The clock is moved with the bytes, so that no pass comes between.
            const KovaMutexLock lock(&pGroup->clientMutex, kRankClients);
            // A pass between adding the client and here has begun a measurement.
            if (i == 0) {
                pClient->nMeasureStartTime = model.nStart;
                pClient->nMeasureBytes = model.nBytes;
                pClient->nSendBitrate = model.nBitrate;
            }
            pClient->nMeasureBytes += nBytes;
            clock.Fix(nClock);
        }
        model.nBytes += nBytes;
        PassAt(nClock);
        model.Pass(nClock);
        const KovaMutexLock lock(&pGroup->clientMutex, kRankClients);
        EXPECT_EQ(pClient->nSendBitrate, model.nBitrate);
        EXPECT_EQ(pClient->nMeasureStartTime, model.nStart);
        EXPECT_EQ(pClient->nMeasureBytes, model.nBytes);
        nMeasured += model.nBitrate > 0;
    }
    EXPECT_GE(nMeasured, 8U);
}

TEST_F(MonitorTest, ExpiryFollowsTheModelWhereverTheClockIs)
{
    unsigned nExpired = 0;
    unsigned nKept = 0;
    std::vector<std::pair<std::string, KovaExpiryModel>> sessions;
    for (int i = 0; i < 50 && !HasFailure(); i++) {
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
