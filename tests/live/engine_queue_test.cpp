#include "live/engine/connection.h"
#include "live/engine/notices.h"
#include "live/engine/picture_group.h"
#include "live/engine/player_queue.h"
#include "tests/live/media_track.h"
#include "tests/support/failing_heap.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

// What waits for a player, what is kept for newcomers, and what the host is told: the records by
// themselves, without a server.

namespace {

/// Units of so many packets, 100 bytes each.
struct Units {
    KovaUnitPool *pPool = KovaUnitPoolCreate();
    uint32_t nSerial = 0;

    ~Units()
    {
        KovaUnitPoolDestroy(pPool);
    }
    KovaUnit *Make(uint32_t nPackets, bool bKey = false)
    {
        constexpr uint32_t kSize = 100;
        KovaUnit *pUnit = KovaUnitPoolTake(pPool, nPackets, nPackets * kSize);
        for (uint32_t nPacket = 0; nPacket < nPackets; nPacket++)
            const_cast<KovaUnitPacket *>(pUnit->pPackets)[nPacket] = {nPacket * kSize, kSize};
        pUnit->nPackets = nPackets;
        pUnit->nBytes = nPackets * kSize;
        pUnit->bKey = bKey;
        pUnit->bEntry = bKey;
        pUnit->nSerial = ++nSerial;
        pUnit->nArrived = 1000000;
        return pUnit;
    }
};

/// Holds the loop's mutex: sessions are touched as its thread does.
struct LiveQueue : testing::Test {
    Units units;
    KovaLive live = {};
    KovaLiveLoop loop = {};
    KovaLiveStream stream = {};
    KovaLiveSetup setups[2] = {};
    KovaLiveSession session = {};

    void SetUp() override
    {
        live.settings.nPlayerMaxTime = 500000;
        live.settings.nPlayerMaxBytes = 3000;
        loop.pLive = &live;
        loop.nNow = 1200000;
        KovaMutexInit(&loop.mutex);
        KovaMutexTake(&loop.mutex, kRankLiveLoop);
        session.pLoop = &loop;
        session.pStream = &stream;
        session.pSetups = &setups[0];
        setups[0].pNext = &setups[1];
        setups[1].nTrack = 1;
    }
    void TearDown() override
    {
        KovaQueueClear(&session, nullptr);
        EXPECT_EQ(session.queue.pEntries, nullptr);
        EXPECT_EQ(session.queue.nBytes, 0U);
        KovaMutexGive(&loop.mutex, kRankLiveLoop);
        KovaMutexDestroy(&loop.mutex);
    }
    KovaUnit *Append(uint32_t nPackets, int nTrack = 0)
    {
        KovaUnit *pUnit = units.Make(nPackets);
        EXPECT_TRUE(KovaQueueAppend(&session, &setups[nTrack], pUnit, 0, nPackets));
        EXPECT_EQ(pUnit->nReferences, 2U);
        KovaUnitRelease(pUnit);
        return pUnit;
    }
};

} // namespace

TEST_F(LiveQueue, PacketsLeaveInTheirOrderAndAreCounted)
{
    for (int nUnit = 0; nUnit < 20; nUnit++)
        Append(2);
    EXPECT_EQ(session.queue.nBytes, 4000U);
    for (uint32_t nPacket = 0; nPacket < 40; nPacket++) {
        EXPECT_EQ(KovaQueueAt(&session, 0)->pUnit->nSerial, nPacket / 2 + 1);
        EXPECT_EQ(KovaQueueAt(&session, 0)->nNext, nPacket % 2);
        if (nPacket % 4 == 0)
            KovaQueueLost(&session);
        else
            KovaQueueSent(&session);
        if (nPacket == 20) // goes round
            for (int nUnit = 0; nUnit < 3; nUnit++)
                Append(1);
    }
    EXPECT_EQ(session.queue.nCount, 3U);
    EXPECT_EQ(session.sent.nPackets, 30U);
    EXPECT_EQ(session.sent.nBytes, 3000U);
    EXPECT_EQ(session.sent.nLatePackets, 10U);
    EXPECT_EQ(setups[0].nPackets, 30U);
    EXPECT_EQ(setups[0].nOctets, 30U * 88) << "without RTP headers";
    EXPECT_EQ(stream.sent[0].nPackets, 30U);
    EXPECT_EQ(stream.sent[0].nLatePackets, 10U);
}

TEST_F(LiveQueue, GrowsInItsOrderWhereverItsBeginningIs)
{
    for (int nUnit = 0; nUnit < 8; nUnit++)
        Append(1);
    for (int nUnit = 0; nUnit < 3; nUnit++)
        KovaQueueSent(&session);
    for (int nUnit = 0; nUnit < 20; nUnit++)
        Append(1);
    for (uint32_t nEntry = 0; nEntry < 25; nEntry++)
        EXPECT_EQ(KovaQueueAt(&session, nEntry)->pUnit->nSerial, nEntry + 4);
}

TEST_F(LiveQueue, IsTooOldOrTooLarge)
{
    EXPECT_FALSE(KovaQueueOverfull(&session, 1000000)) << "an empty one takes anything";
    session.nSerial = 0;
    Append(10);
    EXPECT_FALSE(KovaQueueOverfull(&session, 2000));
    EXPECT_TRUE(KovaQueueOverfull(&session, 2001));
    loop.nNow = 1500000;
    EXPECT_FALSE(KovaQueueOverfull(&session, 0));
    loop.nNow = 1500001;
    EXPECT_TRUE(KovaQueueOverfull(&session, 0));
    live.settings.nDelay = 1;
    EXPECT_FALSE(KovaQueueOverfull(&session, 0)) << "the host's own delay does not count";
}

TEST_F(LiveQueue, WhatWasKeptCountsFromItsPlayersBeginning)
{
    Append(10);
    session.nSerial = 1;
    session.nJoined = 5000000;
    stream.nKeepBytes = 7000;
    loop.nNow = 5500000;
    EXPECT_FALSE(KovaQueueOverfull(&session, 9000));
    EXPECT_TRUE(KovaQueueOverfull(&session, 9001));
    loop.nNow = 5500001;
    EXPECT_TRUE(KovaQueueOverfull(&session, 0));
}

TEST_F(LiveQueue, WhatCameLaterThanItsPlayerHasItsOwnTime)
{
    Append(10);
    // Units have come and gone since.
    session.nSerial = 1000;
    session.nJoined = 999999;
    stream.nKeepBytes = 7000;
    EXPECT_FALSE(KovaQueueOverfull(&session, 2000));
    EXPECT_TRUE(KovaQueueOverfull(&session, 2001)) << "nothing is kept for it any more";
    loop.nNow = 1500000;
    EXPECT_FALSE(KovaQueueOverfull(&session, 0));
    loop.nNow = 1500001;
    EXPECT_TRUE(KovaQueueOverfull(&session, 0));
}

TEST_F(LiveQueue, CutLeavesOnlyWhatIsBegun)
{
    for (const bool bBegun : {false, true}) {
        Append(3);
        Append(4);
        Append(5, 1);
        setups[0].bTakes = true;
        setups[0].bWantsEntry = setups[1].bWantsEntry = false;
        session.sent.nLatePackets = 0;
        if (bBegun)
            KovaQueueSent(&session);
        KovaQueueCut(&session);
        EXPECT_EQ(session.queue.nCount, bBegun ? 1U : 0U);
        EXPECT_EQ(session.queue.nBytes, bBegun ? 200U : 0U);
        EXPECT_EQ(session.sent.nLatePackets, bBegun ? 9U : 12U);
        EXPECT_TRUE(setups[0].bWantsEntry && setups[1].bWantsEntry);
        EXPECT_FALSE(setups[0].bTakes);
        KovaQueueClear(&session, nullptr);
    }
    Append(3);
    session.queue.nBegunOut = 7; // bytes of the first frame
    KovaQueueCut(&session);
    EXPECT_EQ(session.queue.nCount, 1U);
    EXPECT_EQ(session.queue.nBegunOut, 7U);
}

TEST_F(LiveQueue, OneTrackIsTakenOut)
{
    for (int nUnit = 0; nUnit < 10; nUnit++)
        Append(1, nUnit % 2);
    KovaQueueSent(&session);
    KovaQueueClear(&session, &setups[0]);
    ASSERT_EQ(session.queue.nCount, 5U);
    for (uint32_t nEntry = 0; nEntry < 5; nEntry++)
        EXPECT_EQ(KovaQueueAt(&session, nEntry)->pUnit->nSerial, 2 * nEntry + 2);
    EXPECT_EQ(session.queue.nBytes, 500U);
}

TEST_F(LiveQueue, WithoutMemoryNothingIsKeptAndNothingIsLost)
{
    for (int nUnit = 0; nUnit < 8; nUnit++)
        Append(1);
    KovaUnit *pUnit = units.Make(1);
    {
        KovaFailingHeap failing;
        EXPECT_FALSE(KovaQueueAppend(&session, &setups[0], pUnit, 0, 1));
    }
    EXPECT_EQ(pUnit->nReferences, 1U);
    EXPECT_EQ(session.queue.nCount, 8U);
    EXPECT_TRUE(KovaQueueAppend(&session, &setups[0], pUnit, 0, 1));
    KovaUnitRelease(pUnit);
}

namespace {

struct LiveGroup : testing::Test {
    Units units;
    KovaPictureGroup group = {};

    ~LiveGroup() override
    {
        KovaPictureGroupClear(&group);
    }
    void Add(uint32_t nPackets, bool bKey, uint32_t nMost = 100000)
    {
        KovaUnit *pUnit = units.Make(nPackets, bKey);
        KovaPictureGroupAdd(&group, pUnit, nMost);
        KovaUnitRelease(pUnit);
    }
    std::vector<uint32_t> Kept() const
    {
        KovaUnit **ppUnits = nullptr;
        uint32_t nUnits = 0;
        KovaPictureGroupCopy(&group, &ppUnits, &nUnits);
        std::vector<uint32_t> serials;
        for (uint32_t nUnit = 0; nUnit < nUnits; nUnit++) {
            serials.push_back(ppUnits[nUnit]->nSerial);
            KovaUnitRelease(ppUnits[nUnit]);
        }
        free(ppUnits);
        return serials;
    }
};

using Serials = std::vector<uint32_t>;

} // namespace

TEST_F(LiveGroup, BeginsWithAKeyPictureAndAnewWithTheNext)
{
    Add(1, false);
    EXPECT_EQ(Kept(), Serials{});
    Add(1, true);
    Add(1, false);
    EXPECT_EQ(Kept(), (Serials{2, 3}));
    Add(1, true);
    EXPECT_EQ(Kept(), Serials{4});
}

TEST_F(LiveGroup, TooLargeAGroupIsNotKeptAtAll)
{
    Add(5, true, 1000);
    Add(5, false, 1000);
    EXPECT_EQ(Kept(), (Serials{1, 2}));
    Add(1, false, 1000);
    EXPECT_EQ(Kept(), Serials{});
    Add(1, false, 1000);
    EXPECT_EQ(Kept(), Serials{}) << "it would lack what went";
    Add(11, true, 1000);
    EXPECT_EQ(Kept(), Serials{});
    Add(1, false, 1000);
    EXPECT_EQ(Kept(), Serials{});
}

TEST_F(LiveGroup, EachHasItsWholeRoom)
{
    for (int nGroup = 0; nGroup < 3; nGroup++) {
        Add(5, true, 1000);
        Add(5, false, 1000);
        EXPECT_EQ(Kept().size(), 2U) << nGroup;
    }
    Add(1, false, 1000);
    EXPECT_EQ(Kept(), Serials{});
    Add(5, true, 1000);
    Add(5, false, 1000);
    EXPECT_EQ(Kept().size(), 2U) << "behind one that was too large";
}

TEST_F(LiveGroup, ManyUnitsAreKept)
{
    Serials all;
    for (uint32_t nUnit = 1; nUnit <= 300; nUnit++) {
        Add(1, nUnit == 1);
        all.push_back(nUnit);
    }
    EXPECT_EQ(Kept(), all);
}

namespace {

struct LiveNotices : testing::Test {
    std::vector<std::string> told;
    KovaLive live = {};
    KovaLiveLoop loop = {};
    KovaLiveStream stream = {};

    void SetUp() override
    {
        live.settings.pfnLog = [](void *pContext, int32_t nLevel, const char *szText) {
            static_cast<LiveNotices *>(pContext)->told.push_back(std::to_string(nLevel) + szText);
        };
        live.settings.pfnEvent = [](void *pContext, const KovaLiveEvent *pEvent) {
            static_cast<LiveNotices *>(pContext)->told.push_back("event " +
                                                                 std::to_string(pEvent->type));
        };
        live.settings.pContext = this;
        live.settings.nLogLevel = KOVA_LIVE_LOG_INFO;
        loop.pLive = &live;
        stream.nReferences = 1;
        KovaMutexInit(&stream.mutex);
    }
    void TearDown() override
    {
        EXPECT_EQ(stream.nReferences, 1U);
        KovaMutexDestroy(&stream.mutex);
    }
    void Tell()
    {
        KovaNotices *pNotices = loop.pNotices;
        loop.pNotices = nullptr;
        if (pNotices != nullptr)
            KovaNoticesTell(&live, pNotices);
    }
};

} // namespace

TEST_F(LiveNotices, AreToldInTheirOrder)
{
    KovaNoticeLog(&loop, KOVA_LIVE_LOG_WARNING, "one %d", 1);
    KovaNoticeStream(&loop, KOVA_LIVE_EVENT_STREAM_READY, &stream, nullptr);
    KovaNoticeLog(&loop, KOVA_LIVE_LOG_INFO, "two");
    EXPECT_EQ(stream.nReferences, 2U);
    EXPECT_TRUE(told.empty());
    Tell();
    EXPECT_EQ(told, (std::vector<std::string>{"2one 1", "event 4", "3two"}));
}

TEST_F(LiveNotices, LinesBeyondTheHostsLevelAreNotMade)
{
    KovaNoticeLog(&loop, KOVA_LIVE_LOG_DEBUG, "no");
    EXPECT_EQ(loop.pNotices, nullptr);
    live.settings.pfnLog = nullptr;
    live.settings.pfnEvent = nullptr;
    KovaNoticeLog(&loop, KOVA_LIVE_LOG_ERROR, "no");
    KovaNoticeStream(&loop, KOVA_LIVE_EVENT_STREAM_READY, &stream, nullptr);
    EXPECT_EQ(loop.pNotices, nullptr);
}

TEST_F(LiveNotices, LinesAreOneLineAndCut)
{
    KovaNoticeLog(&loop, KOVA_LIVE_LOG_ERROR, "a\r\nb\x1b[2J%s", std::string(1000, 'x').c_str());
    Tell();
    ASSERT_EQ(told.size(), 1U);
    EXPECT_EQ(told[0].substr(0, 10), "1a??b?[2Jx");
    EXPECT_EQ(told[0].size(), 256U);
}

TEST_F(LiveNotices, TooManyAreCountedAndEventsHaveRoomBehindLines)
{
    for (int nLine = 0; nLine < 600; nLine++)
        KovaNoticeLog(&loop, KOVA_LIVE_LOG_INFO, "line");
    KovaNoticeStream(&loop, KOVA_LIVE_EVENT_STREAM_READY, &stream, nullptr);
    Tell();
    ASSERT_EQ(told.size(), 514U);
    EXPECT_EQ(told[512], "event 4");
    EXPECT_EQ(told[513], "288 events and lines were lost");
}

TEST_F(LiveNotices, WithoutMemoryTheyAreLostAndCounted)
{
    KovaNoticeLog(&loop, KOVA_LIVE_LOG_INFO, "one");
    {
        KovaFailingHeap failing;
        KovaNoticeStream(&loop, KOVA_LIVE_EVENT_STREAM_READY, &stream, nullptr);
    }
    Tell();
    EXPECT_EQ(told, (std::vector<std::string>{"3one", "21 events and lines were lost"}));
}

TEST_F(LiveNotices, OnesThatAreNeverToldAreGivenBack)
{
    KovaNoticeStream(&loop, KOVA_LIVE_EVENT_STREAM_READY, &stream, nullptr);
    KovaNoticeLog(&loop, KOVA_LIVE_LOG_INFO, "one");
    KovaNoticesDestroy(loop.pNotices);
    EXPECT_TRUE(told.empty());
}
