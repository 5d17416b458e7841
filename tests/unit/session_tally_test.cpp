#include "classic/rtp/session_tally.h"
#include "tests/support/failing_heap.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace {

const char kFirstStream = 0;
const char kSecondStream = 0;

TEST(SessionTally, IsTakenOnceHoweverManyTracks)
{
    KovaSessionTally *pAudio = KovaSessionTallyJoin(&kFirstStream, "11111111111");
    KovaSessionTally *pVideo = KovaSessionTallyJoin(&kFirstStream, "11111111111");
    ASSERT_NE(pAudio, nullptr);
    EXPECT_EQ(pAudio, pVideo);
    EXPECT_TRUE(KovaSessionTallyTake(pAudio));
    EXPECT_FALSE(KovaSessionTallyTake(pVideo));
    EXPECT_FALSE(KovaSessionTallyTake(pAudio));
    KovaSessionTallyLeave(pAudio);
    EXPECT_FALSE(KovaSessionTallyTake(pVideo));
    KovaSessionTallyLeave(pVideo);
}

TEST(SessionTally, BelongsToOneSessionOfOneStream)
{
    KovaSessionTally *pTally = KovaSessionTallyJoin(&kFirstStream, "11111111111");
    KovaSessionTally *pOtherSession = KovaSessionTallyJoin(&kFirstStream, "11111111112");
    KovaSessionTally *pOtherStream = KovaSessionTallyJoin(&kSecondStream, "11111111111");
    EXPECT_TRUE(KovaSessionTallyTake(pTally));
    EXPECT_TRUE(KovaSessionTallyTake(pOtherSession));
    EXPECT_TRUE(KovaSessionTallyTake(pOtherStream));
    KovaSessionTallyLeave(pTally);
    KovaSessionTallyLeave(pOtherSession);
    KovaSessionTallyLeave(pOtherStream);
}

TEST(SessionTally, StartsAfreshWhenEverybodyHasLeft)
{
    KovaSessionTally *pTally = KovaSessionTallyJoin(&kFirstStream, "11111111111");
    EXPECT_TRUE(KovaSessionTallyTake(pTally));
    KovaSessionTallyLeave(pTally);
    pTally = KovaSessionTallyJoin(&kFirstStream, "11111111111");
    EXPECT_TRUE(KovaSessionTallyTake(pTally));
    KovaSessionTallyLeave(pTally);
}

TEST(SessionTally, WithoutMemoryEveryTrackCounts)
{
    KovaSessionTally *pTally = nullptr;
    for (int nGood = 0; nGood < 2; nGood++) {
        const KovaFailingHeap heap(nGood);
        pTally = KovaSessionTallyJoin(&kFirstStream, "11111111111");
        EXPECT_EQ(heap.Failed(), 1);
        EXPECT_EQ(pTally, nullptr);
    }
    EXPECT_TRUE(KovaSessionTallyTake(pTally));
    EXPECT_TRUE(KovaSessionTallyTake(pTally));
    KovaSessionTallyLeave(pTally);
}

TEST(SessionTally, IsTakenAnewForEachTimeThatItWasRaised)
{
    KovaSessionTally *pTally = KovaSessionTallyHold(&kFirstStream, "11111111111");
    KovaSessionTallyRaised(pTally);
    EXPECT_TRUE(KovaSessionTallyTake(pTally));
    EXPECT_FALSE(KovaSessionTallyTake(pTally));
    KovaSessionTallyRaised(pTally);
    EXPECT_TRUE(KovaSessionTallyTake(pTally));
    EXPECT_FALSE(KovaSessionTallyTake(pTally));
    KovaSessionTallyRelease(pTally);
    EXPECT_FALSE(KovaSessionTallyExists("11111111111"));
}

TEST(SessionTally, OutlivesItsClientsWhileSomebodyHoldsIt)
{
    KovaSessionTally *pTally = KovaSessionTallyJoin(&kFirstStream, "11111111111");
    EXPECT_EQ(KovaSessionTallyHold(&kFirstStream, "11111111111"), pTally);
    KovaSessionTallyRaised(pTally);
    EXPECT_TRUE(KovaSessionTallyLeaveLast(pTally, false)) << "a holder is no client";
    EXPECT_TRUE(KovaSessionTallyExists("11111111111"));
    EXPECT_FALSE(KovaSessionTallyTake(pTally));
    KovaSessionTallyRelease(pTally);
    EXPECT_FALSE(KovaSessionTallyExists("11111111111"));
}

TEST(SessionTally, IsTakenByTheLastToLeaveAPlayingSession)
{
    for (const bool bPlays : {false, true}) {
        KovaSessionTally *pTally = KovaSessionTallyJoin(&kFirstStream, "11111111111");
        KovaSessionTallyJoin(&kFirstStream, "11111111111");
        EXPECT_FALSE(KovaSessionTallyTakePlaying(pTally, false));
        EXPECT_FALSE(KovaSessionTallyLeaveLast(pTally, bPlays));
        EXPECT_EQ(KovaSessionTallyLeaveLast(pTally, bPlays), bPlays);
    }
    KovaSessionTally *pTally = KovaSessionTallyJoin(&kFirstStream, "11111111111");
    EXPECT_TRUE(KovaSessionTallyTakePlaying(pTally, true));
    EXPECT_FALSE(KovaSessionTallyLeaveLast(pTally, true));
    EXPECT_FALSE(KovaSessionTallyExists("11111111111"));
}

TEST(SessionTally, WithoutATallyAClientThatPlaysCounts)
{
    for (const bool bPlays : {false, true}) {
        EXPECT_EQ(KovaSessionTallyTakePlaying(nullptr, bPlays), bPlays);
        EXPECT_EQ(KovaSessionTallyLeaveLast(nullptr, bPlays), bPlays);
    }
    KovaSessionTallyRaised(nullptr);
    KovaSessionTallyRelease(nullptr);
}

TEST(SessionTally, OneOfManyThreadsTakesIt)
{
    for (int nTurn = 0; nTurn < 50; nTurn++) {
        std::vector<KovaSessionTally *> tallies;
        for (int n = 0; n < 4; n++)
            tallies.push_back(KovaSessionTallyJoin(&kFirstStream, "11111111111"));
        std::atomic<int> nTaken{0};
        std::vector<std::thread> threads;
        for (KovaSessionTally *pTally : tallies)
            threads.emplace_back([pTally, &nTaken] {
                if (KovaSessionTallyTake(pTally))
                    nTaken++;
                KovaSessionTallyLeave(pTally);
            });
        for (std::thread &thread : threads)
            thread.join();
        ASSERT_EQ(nTaken, 1);
    }
}

} // namespace
