#include "live/engine/live.h"
#include "live/engine/poller.h"
#include "live/engine/timers.h"
#include "live/engine/wake.h"
#include "tests/support/sockets.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <random>
#include <vector>

namespace {

/// A timer that notes when it was called, and may be set again by its handler.
struct Alarm {
    KovaTimer timer;
    std::vector<uint64_t> *pCalls;
    KovaTimers *pTimers;
    bool bAgain;

    static void Handle(KovaTimer *pTimer, uint64_t nNow)
    {
        auto *pAlarm = reinterpret_cast<Alarm *>(pTimer);
        pAlarm->pCalls->push_back(pTimer->nDue);
        if (pAlarm->bAgain)
            KovaTimersSet(pAlarm->pTimers, pTimer, nNow);
    }
};

struct LiveTimers : testing::Test {
    KovaTimers timers = {};
    std::vector<uint64_t> calls;

    ~LiveTimers() override
    {
        KovaTimersClear(&timers);
    }
    Alarm Make(bool bAgain = false)
    {
        EXPECT_TRUE(KovaTimersJoin(&timers));
        return {{0, Alarm::Handle, 0}, &calls, &timers, bAgain};
    }
};

} // namespace

TEST_F(LiveTimers, AreCalledInTheOrderOfTheirTimes)
{
    std::mt19937 random(7);
    std::vector<Alarm> alarms;
    std::vector<uint64_t> due;
    for (int nAlarm = 0; nAlarm < 300; nAlarm++)
        alarms.push_back(Make());
    for (Alarm &alarm : alarms) {
        KovaTimersSet(&timers, &alarm.timer, random() % 1000);
        KovaTimersSet(&timers, &alarm.timer, random() % 1000);
    }
    for (size_t nAlarm = 0; nAlarm < alarms.size(); nAlarm++) {
        if (nAlarm % 3 == 0)
            KovaTimersStop(&timers, &alarms[nAlarm].timer);
        else
            due.push_back(alarms[nAlarm].timer.nDue);
    }
    std::sort(due.begin(), due.end());
    for (uint64_t nNow = 0; nNow < 1000; nNow += 37)
        KovaTimersHandle(&timers, nNow);
    KovaTimersHandle(&timers, 999);
    EXPECT_EQ(calls, due);
    EXPECT_EQ(KovaTimersWait(&timers, 0), -1);
}

TEST_F(LiveTimers, OneThatIsNotDueWaits)
{
    Alarm alarm = Make();
    KovaTimersSet(&timers, &alarm.timer, 5000);
    KovaTimersHandle(&timers, 4999);
    EXPECT_TRUE(calls.empty());
    KovaTimersHandle(&timers, 5000);
    EXPECT_EQ(calls.size(), 1U);
    KovaTimersHandle(&timers, 6000);
    EXPECT_EQ(calls.size(), 1U);
}

TEST_F(LiveTimers, OneThatIsSetAgainByItsHandlerWaitsForTheNextCall)
{
    Alarm alarm = Make(true);
    KovaTimersSet(&timers, &alarm.timer, 10);
    KovaTimersHandle(&timers, 10);
    EXPECT_EQ(calls.size(), 1U);
    KovaTimersHandle(&timers, 10);
    EXPECT_EQ(calls.size(), 2U);
}

TEST_F(LiveTimers, WaitIsRoundedUpAndBounded)
{
    Alarm alarm = Make();
    KovaTimersSet(&timers, &alarm.timer, 10001);
    EXPECT_EQ(KovaTimersWait(&timers, 10000), 1);
    EXPECT_EQ(KovaTimersWait(&timers, 9001), 1);
    EXPECT_EQ(KovaTimersWait(&timers, 9000), 2);
    EXPECT_EQ(KovaTimersWait(&timers, 10001), 0);
    EXPECT_EQ(KovaTimersWait(&timers, 20000), 0);
    KovaTimersSet(&timers, &alarm.timer, UINT64_MAX);
    EXPECT_EQ(KovaTimersWait(&timers, 0), 3600000);
}

TEST_F(LiveTimers, OneThatLeavesIsNotCalled)
{
    Alarm alarm = Make();
    Alarm other = Make();
    KovaTimersSet(&timers, &alarm.timer, 1);
    KovaTimersSet(&timers, &other.timer, 2);
    KovaTimersLeave(&timers, &alarm.timer);
    KovaTimersHandle(&timers, 5);
    EXPECT_EQ(calls, std::vector<uint64_t>{2});
}

namespace {

/// One end of a pair of connected sockets that notes its events.
struct Watched {
    KovaPollItem item;
    KovaPoller *pPoller;
    Watched *pForgets; ///< the item that it forgets when it is called
    int nOther;
    int nCalls;
    uint32_t nEvents;

    static void Handle(KovaPollItem *pItem, uint32_t nEvents)
    {
        auto *pWatched = reinterpret_cast<Watched *>(pItem);
        pWatched->nCalls++;
        pWatched->nEvents = nEvents;
        if (pWatched->pForgets != nullptr)
            KovaPollerRemove(pWatched->pPoller, &pWatched->pForgets->item);
        pWatched->pForgets = nullptr;
    }
};

struct LivePoller : testing::TestWithParam<bool> {
    KovaPoller *pPoller = KovaPollerCreate(GetParam());
    std::vector<std::unique_ptr<Watched>> items;

    ~LivePoller() override
    {
        KovaPollerDestroy(pPoller);
        for (const auto &pItem : items) {
            close(pItem->item.nDescriptor);
            if (pItem->nOther >= 0)
                close(pItem->nOther);
        }
    }
    Watched *Make(uint32_t nWanted = kPollRead)
    {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        items.push_back(std::make_unique<Watched>(
            Watched{{ends[0], nWanted, Watched::Handle, 0}, pPoller, nullptr, ends[1], 0, 0}));
        EXPECT_TRUE(KovaPollerAdd(pPoller, &items.back()->item));
        return items.back().get();
    }
    static void Signal(const Watched *pItem)
    {
        EXPECT_EQ(send(pItem->nOther, "x", 1, 0), 1);
    }
    void Round(int nMilliseconds = 0)
    {
        KovaPollerWait(pPoller, nMilliseconds);
        KovaPollerHandle(pPoller);
    }
};

INSTANTIATE_TEST_SUITE_P(Way, LivePoller, testing::Bool(),
                         [](const auto &way) { return way.param ? "Poll" : "Epoll"; });

} // namespace

TEST_P(LivePoller, TellsWhatIsWantedAndNothingElse)
{
    Watched *pReader = Make();
    Watched *pWriter = Make(kPollWrite);
    Watched *pDeaf = Make(0);
    Signal(pReader);
    Signal(pWriter);
    Signal(pDeaf);
    Round(1000);
    EXPECT_EQ(pReader->nEvents, kPollRead);
    EXPECT_EQ(pWriter->nEvents, kPollWrite);
    EXPECT_EQ(pDeaf->nCalls, 0);
    KovaPollerWant(pPoller, &pDeaf->item, kPollRead | kPollWrite);
    KovaPollerWant(pPoller, &pReader->item, 0);
    Round(1000);
    EXPECT_EQ(pReader->nCalls, 1);
    EXPECT_EQ(pDeaf->nEvents, kPollRead | kPollWrite);
}

TEST_P(LivePoller, TellsTheEndOfAPeerThoughNothingIsWanted)
{
    Watched *pItem = Make(0);
    close(pItem->nOther);
    pItem->nOther = -1;
    Round(1000);
    EXPECT_EQ(pItem->nEvents & kPollEnd, kPollEnd);
}

TEST_P(LivePoller, ForgottenItemsAreNotCalledInTheSameRound)
{
    Watched *pOne = Make();
    Watched *pTwo = Make();
    pOne->pForgets = pTwo;
    pTwo->pForgets = pOne;
    Signal(pOne);
    Signal(pTwo);
    Round(1000);
    EXPECT_EQ(pOne->nCalls + pTwo->nCalls, 1);
    Round();
    EXPECT_EQ(pOne->nCalls + pTwo->nCalls, 2) << "the one that is left is told again";
}

TEST_P(LivePoller, OneMayForgetItself)
{
    Watched *pOne = Make();
    Watched *pTwo = Make();
    pOne->pForgets = pOne;
    Signal(pOne);
    Signal(pTwo);
    Round(1000);
    Round(1000);
    EXPECT_EQ(pOne->nCalls, 1);
    EXPECT_EQ(pTwo->nCalls, 2);
}

TEST_P(LivePoller, ManyItemsGetTheirTurnThoughARoundIsBounded)
{
    constexpr size_t kMany = 200;
    for (size_t nItem = 0; nItem < kMany; nItem++)
        Signal(Make());
    // Some places change hands.
    for (size_t nItem = 0; nItem < kMany; nItem += 10)
        KovaPollerRemove(pPoller, &items[nItem]->item);
    for (int nRound = 0; nRound < 12; nRound++)
        Round(1000);
    for (size_t nItem = 0; nItem < kMany; nItem++)
        EXPECT_EQ(items[nItem]->nCalls > 0, nItem % 10 != 0) << nItem;
}

TEST_P(LivePoller, WaitEndsByTime)
{
    Make();
    Round(10);
    Round(0);
    EXPECT_EQ(items[0]->nCalls, 0);
}

TEST(LiveWake, SignalsEndAWaitUntilTheyAreTaken)
{
    KovaWake wake = {};
    ASSERT_TRUE(KovaWakeOpen(&wake));
    EXPECT_FALSE(KovaWaitReadable(wake.nReadEnd, 0));
    for (int nSignal = 0; nSignal < 3; nSignal++)
        KovaWakeSignal(&wake);
    EXPECT_TRUE(KovaWaitReadable(wake.nReadEnd, 0));
    KovaWakeTake(&wake);
    EXPECT_FALSE(KovaWaitReadable(wake.nReadEnd, 0));
    KovaWakeClose(&wake);
}

TEST(LiveWake, PipeTakesAnyNumberOfSignals)
{
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_NONBLOCK | O_CLOEXEC), 0);
    KovaWake wake = {ends[0], ends[1]};
    for (int nSignal = 0; nSignal < 20000; nSignal++)
        KovaWakeSignal(&wake);
    EXPECT_TRUE(KovaWaitReadable(wake.nReadEnd, 0));
    KovaWakeTake(&wake);
    EXPECT_FALSE(KovaWaitReadable(wake.nReadEnd, 0));
    KovaWakeClose(&wake);
}

TEST(LiveSettings, DefaultsAreFilledIn)
{
    KovaLiveSettings settings = {};
    ASSERT_EQ(KovaLiveSettingsFrom(nullptr, &settings), KOVA_LIVE_OK);
    EXPECT_EQ(settings.nAddress, INADDR_ANY);
    EXPECT_EQ(settings.nPort, 0);
    EXPECT_EQ(settings.nMaxPacket, 1400);
    EXPECT_EQ(settings.nThreads, 1U);
    EXPECT_EQ(settings.nMaxConnections, 1024U);
    EXPECT_EQ(settings.nMaxPerAddress, 0U);
    EXPECT_EQ(settings.nMaxSessions, 1024U);
    EXPECT_EQ(settings.nRequestTime, 10000000U);
    EXPECT_EQ(settings.nIdleTime, 120000000U);
    EXPECT_EQ(settings.nSessionTime, 60000000U);
    EXPECT_EQ(settings.nDelay, 0U);
    EXPECT_EQ(settings.nPlayerMaxTime, 2000000U);
    EXPECT_EQ(settings.nPlayerMaxBytes, 2U * 1024 * 1024);
    EXPECT_EQ(settings.nPlayerStallTime, 10000000U);
}

TEST(LiveSettings, TimesBeyondAnHourAreKept)
{
    KovaLiveConfig config;
    KovaLiveConfigInit(&config, sizeof(config));
    config.session_ms = UINT32_MAX;
    config.delay_ms = UINT32_MAX;
    KovaLiveSettings settings = {};
    ASSERT_EQ(KovaLiveSettingsFrom(&config, &settings), KOVA_LIVE_OK);
    EXPECT_EQ(settings.nSessionTime, uint64_t{UINT32_MAX} * 1000);
    EXPECT_EQ(settings.nDelay, uint64_t{UINT32_MAX} * 1000);
}

TEST(LiveSettings, WhatIsOutOfRangeIsRefused)
{
    struct Case {
        uint16_t nMaxPacket;
        uint32_t nThreads;
        uint16_t nUdpFirst;
        uint16_t nUdpLast;
        int32_t nResult;
    };
    for (const Case &one : {Case{199, 0, 0, 0, KOVA_LIVE_ERROR_ARGUMENT},
                            {200, 0, 0, 0, KOVA_LIVE_OK},
                            {65000, 0, 0, 0, KOVA_LIVE_OK},
                            {65001, 0, 0, 0, KOVA_LIVE_ERROR_ARGUMENT},
                            {0, 16, 0, 0, KOVA_LIVE_OK},
                            {0, 17, 0, 0, KOVA_LIVE_ERROR_ARGUMENT},
                            {0, 0, 6000, 6001, KOVA_LIVE_OK},
                            {0, 0, 6001, 6002, KOVA_LIVE_ERROR_ARGUMENT},
                            {0, 0, 6001, 6003, KOVA_LIVE_OK},
                            {0, 0, 6000, 6000, KOVA_LIVE_ERROR_ARGUMENT},
                            {0, 0, 6000, 0, KOVA_LIVE_ERROR_ARGUMENT},
                            {0, 0, 0, 6000, KOVA_LIVE_ERROR_ARGUMENT},
                            {0, 0, 65535, 65535, KOVA_LIVE_ERROR_ARGUMENT}}) {
        KovaLiveConfig config;
        KovaLiveConfigInit(&config, sizeof(config));
        config.max_packet = one.nMaxPacket;
        config.threads = one.nThreads;
        config.udp_first = one.nUdpFirst;
        config.udp_last = one.nUdpLast;
        KovaLiveSettings settings = {};
        EXPECT_EQ(KovaLiveSettingsFrom(&config, &settings), one.nResult)
            << one.nMaxPacket << " " << one.nThreads << " " << one.nUdpFirst;
    }
}

TEST(LiveSettings, AddressIsIpv4InText)
{
    KovaLiveConfig config;
    KovaLiveConfigInit(&config, sizeof(config));
    KovaLiveSettings settings = {};
    for (const char *szAddress : {"localhost", "::1", "127.0.0.1 ", "1.2.3", "256.0.0.1"}) {
        config.address = szAddress;
        EXPECT_EQ(KovaLiveSettingsFrom(&config, &settings), KOVA_LIVE_ERROR_ADDRESS) << szAddress;
    }
    for (const char *szAddress : {"", "127.0.0.1", "0.0.0.0"}) {
        config.address = szAddress;
        EXPECT_EQ(KovaLiveSettingsFrom(&config, &settings), KOVA_LIVE_OK) << szAddress;
    }
}
