#include "foundation/clock.h"
#include "tests/live/stepped_server.h"
#include "tests/support/failing_heap.h"
#include "tests/support/socket_faults.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <deque>
#include <string>
#include <vector>

// Which packets leave at which time, and in which order.

namespace {

constexpr uint64_t kMilli = 1000;

/// Slices above 64 KiB are spread; this one in three pieces.
constexpr size_t kLarge = 150000;

struct SteppedMedia : testing::Test {
    KovaSteppedServer server;
    KovaLiveStream *pStream = server.AddStream("cam");
    KovaLiveTrack *pVideo = KovaLiveHost::AddVideo(pStream);
    KovaLiveClient client;

    /// How many packets of track 1 have come.
    int Packets()
    {
        KovaLiveRtp packet;
        int nPackets = 0;
        while (client.NextRtp(1, &packet, 10))
            nPackets++;
        return nPackets;
    }
    int PacketsAfter(uint64_t nMicroseconds)
    {
        KovaSteppedServer::Advance(nMicroseconds);
        server.Run(1);
        return Packets();
    }
};

} // namespace

TEST_F(SteppedMedia, ALargeUnitIsSpreadOverHalfTheDistanceOfTwo)
{
    ASSERT_TRUE(server.Play(&client, true));
    KovaLivePushKey(pVideo, 500, 0, 0);
    KovaLivePushKey(pVideo, kLarge, 1, 300000);
    server.Run(1);
    const int nAll = static_cast<int>(KovaLiveFiguresOf(pStream).packets);
    EXPECT_GT(nAll, 30);
    EXPECT_EQ(Packets(), nAll) << "the small one and a piece";
    // 150 ms for three pieces.
    EXPECT_EQ(PacketsAfter(50 * kMilli - 1), 0);
    EXPECT_GT(PacketsAfter(1), 30);
    EXPECT_EQ(PacketsAfter(50 * kMilli - 1), 0);
    EXPECT_GT(PacketsAfter(1), 30);
    EXPECT_EQ(PacketsAfter(1000 * kMilli), 0);
}

TEST_F(SteppedMedia, TheClockOfATrackDoesNotStandBeforeItsLastUnit)
{
    KovaLivePushKey(pVideo, 500, 0, 7000000);
    int64_t nPts = 0;
    int64_t nWall = 0;
    const uint64_t nNow = KovaClockMonotonic();
    // A loop may have taken its time before the push.
    EXPECT_TRUE(KovaStreamClock(pStream, 0, nNow - 1000, &nPts, &nWall));
    EXPECT_EQ(nPts, 7000000);
    EXPECT_TRUE(KovaStreamClock(pStream, 0, nNow + 1000, &nPts, &nWall));
    EXPECT_EQ(nPts, 7001000);
}

TEST_F(SteppedMedia, TimesThatJumpAreNoDistance)
{
    ASSERT_TRUE(server.Play(&client, false));
    // Back, and by a second or more.
    KovaLivePushKey(pVideo, 500, 0, 400000);
    KovaLivePushKey(pVideo, kLarge, 1, 0);
    KovaLivePushKey(pVideo, kLarge, 2, 1000000);
    server.Run();
    EXPECT_TRUE(KovaLiveTakesKey(&client, 500, 0));
    EXPECT_TRUE(KovaLiveTakesKey(&client, kLarge, 1)) << "at once, for no distance is known";
    EXPECT_TRUE(KovaLiveTakesKey(&client, kLarge, 2));
}

TEST_F(SteppedMedia, EachStreamsOwnRestGoesBeforeItsNextUnit)
{
    KovaLiveTrack *pDoor = KovaLiveHost::AddVideo(server.AddStream("door"));
    KovaLiveClient door;
    ASSERT_TRUE(server.Play(&client, false));
    ASSERT_TRUE(server.Play(&door, false, "door"));
    for (KovaLiveTrack *pTrack : {pVideo, pDoor}) {
        KovaLivePushKey(pTrack, 500, 0, 0);
        KovaLivePushKey(pTrack, kLarge, 1, 300000);
        server.Run(1);
    }
    KovaLivePushKey(pVideo, 500, 2, 600000);
    server.Run(1);
    EXPECT_TRUE(KovaLiveTakesKey(&client, 500, 0));
    EXPECT_TRUE(KovaLiveTakesKey(&client, kLarge, 1));
    EXPECT_TRUE(KovaLiveTakesKey(&client, 500, 2));
    EXPECT_TRUE(KovaLiveTakesKey(&door, 500, 0));
    // The other stream's rest keeps its own time.
    const uint64_t nAll = KovaLiveFiguresOf(pStream).packets - 1;
    EXPECT_LT(KovaLiveFiguresOf(pDoor->pStream).packets, nAll);
    for (int nPiece = 0; nPiece < 2; nPiece++) {
        KovaSteppedServer::Advance(50 * kMilli);
        server.Run(1);
    }
    EXPECT_EQ(KovaLiveFiguresOf(pDoor->pStream).packets, nAll);
    EXPECT_TRUE(KovaLiveTakesKey(&door, kLarge, 1));
}

TEST_F(SteppedMedia, UnitsThatAreSpreadAtTheSameTimeAreAllFinished)
{
    KovaLiveTrack *pDoor = KovaLiveHost::AddVideo(server.AddStream("door"));
    KovaLiveClient door;
    ASSERT_TRUE(server.Play(&client, false));
    ASSERT_TRUE(server.Play(&door, false, "door"));
    for (KovaLiveTrack *pTrack : {pVideo, pDoor}) {
        KovaLivePushKey(pTrack, 500, 0, 0);
        KovaLivePushKey(pTrack, kLarge, 1, 300000);
    }
    for (int nPiece = 0; nPiece < 3; nPiece++) {
        server.Run(1);
        KovaSteppedServer::Advance(50 * kMilli);
    }
    EXPECT_EQ(KovaLiveFiguresOf(pDoor->pStream).packets, KovaLiveFiguresOf(pStream).packets);
    for (KovaLiveClient *pClient : {&client, &door}) {
        EXPECT_TRUE(KovaLiveTakesKey(pClient, 500, 0));
        EXPECT_TRUE(KovaLiveTakesKey(pClient, kLarge, 1));
    }
}

TEST_F(SteppedMedia, EachUnitIsSpreadInItsOwnTime)
{
    KovaLiveTrack *pDoor = KovaLiveHost::AddVideo(server.AddStream("door"));
    KovaLiveClient door;
    ASSERT_TRUE(server.Play(&client, false));
    ASSERT_TRUE(server.Play(&door, false, "door"));
    // Steps of 50 ms and of 5 ms, whichever comes first.
    for (const bool bDoorFirst : {false, true}) {
        const unsigned nSeed = bDoorFirst ? 2 : 1;
        for (const bool bDoor : {bDoorFirst, !bDoorFirst}) {
            const int64_t nPts = nSeed * 10000000;
            KovaLivePushKey(bDoor ? pDoor : pVideo, 500, nSeed, nPts);
            KovaLivePushKey(bDoor ? pDoor : pVideo, kLarge, nSeed, nPts + (bDoor ? 30000 : 300000));
            server.Run(1);
        }
        for (int nPiece = 0; nPiece < 2; nPiece++) {
            KovaSteppedServer::Advance(5 * kMilli);
            server.Run(1);
        }
        EXPECT_TRUE(KovaLiveTakesKey(&door, 500, nSeed));
        EXPECT_TRUE(KovaLiveTakesKey(&door, kLarge, nSeed));
        for (int nPiece = 0; nPiece < 2; nPiece++) {
            KovaSteppedServer::Advance(50 * kMilli);
            server.Run(1);
        }
        EXPECT_TRUE(KovaLiveTakesKey(&client, 500, nSeed));
        EXPECT_TRUE(KovaLiveTakesKey(&client, kLarge, nSeed));
    }
}

TEST_F(SteppedMedia, TheDelayCountsFromThePushAlsoForWhoCameLater)
{
    server.Live()->settings.nDelay = 1000 * kMilli;
    KovaLiveStream *pKept =
        server.AddStream("kept", [](KovaLiveStreamConfig *pConfig) { pConfig->keep_group = 1; });
    KovaLiveTrack *pTrack = KovaLiveHost::AddVideo(pKept);
    KovaLivePushKey(pTrack, 500, 1, 0);
    KovaSteppedServer::Advance(600 * kMilli);
    ASSERT_TRUE(server.Play(&client, false, "kept"));
    EXPECT_EQ(PacketsAfter(400 * kMilli - 1), 0);
    EXPECT_EQ(PacketsAfter(1), 1);
    EXPECT_EQ(PacketsAfter(2000 * kMilli), 0);
}

TEST_F(SteppedMedia, WhatWasKeptLeavesAtItsTimeThoughYoungerUnitsOfOthersWait)
{
    server.Live()->settings.nDelay = 1000 * kMilli;
    KovaLiveTrack *pTrack = KovaLiveHost::AddVideo(
        server.AddStream("kept", [](KovaLiveStreamConfig *pConfig) { pConfig->keep_group = 1; }));
    KovaLiveClient other;
    ASSERT_TRUE(server.Play(&other, false));
    KovaLivePushKey(pTrack, 500, 1, 0);
    KovaSteppedServer::Advance(300 * kMilli);
    KovaLivePushKey(pVideo, 500, 3, 300000);
    server.Run();
    ASSERT_TRUE(server.Play(&client, false, "kept"));
    KovaLivePushKey(pVideo, 500, 4, 300000);
    EXPECT_EQ(PacketsAfter(700 * kMilli - 1), 0);
    EXPECT_EQ(PacketsAfter(1), 1);
    KovaSteppedServer::Advance(300 * kMilli);
    server.Run();
    EXPECT_TRUE(KovaLiveTakesKey(&other, 500, 3));
    EXPECT_TRUE(KovaLiveTakesKey(&other, 500, 4));
    EXPECT_EQ(server.Loop()->pDelayed, nullptr);
}

TEST_F(SteppedMedia, EachDelayedUnitLeavesAtItsTime)
{
    server.Live()->settings.nDelay = 1000 * kMilli;
    ASSERT_TRUE(server.Play(&client, true));
    for (unsigned nPicture = 0; nPicture < 3; nPicture++) {
        KovaLivePushKey(pVideo, 500, nPicture, 400000 * nPicture);
        server.Run();
        KovaSteppedServer::Advance(400 * kMilli);
    }
    server.Run();
    EXPECT_EQ(Packets(), 1) << "of the first one, 200 ms ago";
    EXPECT_EQ(PacketsAfter(200 * kMilli - 1), 0);
    EXPECT_EQ(PacketsAfter(1), 1);
    EXPECT_EQ(PacketsAfter(400 * kMilli - 1), 0);
    EXPECT_EQ(PacketsAfter(1), 1);
}

TEST_F(SteppedMedia, ALoopHasADelayedUnitOnceWhoeverComes)
{
    server.Live()->settings.nDelay = 1000 * kMilli;
    KovaLiveTrack *pTrack = KovaLiveHost::AddVideo(
        server.AddStream("kept", [](KovaLiveStreamConfig *pConfig) { pConfig->keep_group = 1; }));
    KovaLiveClient others[2];
    ASSERT_TRUE(server.Play(&client, false, "kept"));
    KovaLivePushKey(pTrack, 500, 1, 0);
    for (KovaLiveClient &other : others)
        ASSERT_TRUE(server.Play(&other, false, "kept"));
    ASSERT_NE(server.Loop()->pDelayed, nullptr);
    EXPECT_EQ(server.Loop()->pDelayed->pNext, nullptr);
    KovaSteppedServer::Advance(1000 * kMilli);
    server.Run();
    for (KovaLiveClient *pClient : {&client, &others[0], &others[1]})
        EXPECT_TRUE(KovaLiveTakesKey(pClient, 500, 1));
}

TEST_F(SteppedMedia, NothingHoldsAStreamWhoseUnitsFindNoMemory)
{
    server.Live()->settings.nDelay = 1000 * kMilli;
    KovaLiveStream *pKept =
        server.AddStream("kept", [](KovaLiveStreamConfig *pConfig) { pConfig->keep_group = 1; });
    KovaLiveTrack *pTrack = KovaLiveHost::AddVideo(pKept);
    for (int nGood = 0; nGood < 8; nGood++) {
        KovaLiveClient player;
        KovaLivePushKey(pTrack, 500, 1, 40000 * nGood);
        server.Serve([&] {
            EXPECT_TRUE(player.Connect(server.Port()));
            EXPECT_EQ(player.SetupTcp("kept", 1).nStatus, 200);
        });
        // What is recycled needs no memory: each message shall be a new one.
        while (server.Loop()->pSpare != nullptr) {
            KovaLoopMessage *pSpare = server.Loop()->pSpare;
            server.Loop()->pSpare = pSpare->pNext;
            server.Loop()->nSpare--;
            free(pSpare);
        }
        ASSERT_TRUE(player.Send(player.Text("PLAY", "kept")));
        {
            KovaFailingHeap failing(nGood);
            server.Run(1);
        }
        player.Close();
        KovaSteppedServer::Advance(2000 * kMilli);
        server.Run();
        EXPECT_EQ(pKept->nReferences, 1U) << nGood;
    }
}

TEST_F(SteppedMedia, NoMediaFollowsTheLastAnswer)
{
    ASSERT_TRUE(server.Play(&client, false));
    {
        KovaSocketFaults faults;
        std::deque<KovaScriptedSend> sends(100000, KovaScriptedSend{EAGAIN, 0});
        faults.Script(server.Loop()->pConnections->item.nDescriptor, sends);
        KovaLivePushKey(pVideo, 500, 0, 0);
        server.Run();
        ASSERT_TRUE(client.Send(std::string(20000, 'A')));
        server.Run();
    }
    server.Run();
    EXPECT_GE(client.Receive().nStatus, 400);
    EXPECT_EQ(Packets(), 0);
    EXPECT_TRUE(client.WaitClosed());
}
