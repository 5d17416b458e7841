#include "kova_live.h"
#include "live/media/unit.h"
#include "tests/live/media_track.h"
#include "tests/support/c_calls.h"
#include "tests/support/failing_heap.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>

namespace {

std::atomic<int> g_nAllocations{0};
std::atomic<int> g_nFreed{0};

void *CountedCalloc(size_t nCount, size_t nSize)
{
    g_nAllocations++;
    return __real_calloc(nCount, nSize);
}

void CountedFree(void *pBlock)
{
    g_nFreed += pBlock != nullptr ? 1 : 0;
    __real_free(pBlock);
}

/// What the library allocates and frees while this lives.
struct Counting {
    Counting()
    {
        g_nAllocations = 0;
        g_nFreed = 0;
        KovaReplaceCall<__real_calloc>(CountedCalloc);
        KovaReplaceCall<__real_free>(CountedFree);
    }
    ~Counting()
    {
        KovaReplaceCall<__real_calloc>(nullptr);
        KovaReplaceCall<__real_free>(nullptr);
    }
};

struct MediaUnitPool : testing::Test {
    KovaUnitPool *pPool = KovaUnitPoolCreate();

    ~MediaUnitPool() override
    {
        KovaUnitPoolDestroy(pPool);
    }
};

TEST_F(MediaUnitPool, UnitHasRoomForWhatWasAsked)
{
    for (const uint32_t nBytes : {1U, 100U, 5000U, 300000U}) {
        KovaUnit *pUnit = KovaUnitPoolTake(pPool, 7, nBytes);
        ASSERT_NE(pUnit, nullptr);
        EXPECT_EQ(pUnit->nReferences.load(), 1U);
        EXPECT_EQ(pUnit->pPool, pPool);
        EXPECT_EQ(pUnit->nPts, 0);
        EXPECT_EQ(pUnit->nPackets, 0U);
        EXPECT_EQ(pUnit->nBytes, 0U);
        memset(const_cast<KovaUnitPacket *>(pUnit->pPackets), 1, 7 * sizeof(KovaUnitPacket));
        memset(const_cast<uint8_t *>(pUnit->pBytes), 2, nBytes);
        KovaUnitRelease(pUnit);
    }
    KovaUnitRelease(nullptr);
}

TEST_F(MediaUnitPool, BlockThatCameBackServesTheNextUnit)
{
    const Counting counting;
    for (uint32_t n = 0; n < 1000; n++) {
        KovaUnit *pUnit = KovaUnitPoolTake(pPool, 20, 20000 + n % 100);
        pUnit->nPts = 5;
        pUnit->bKey = true;
        KovaUnitRelease(pUnit);
        pUnit = KovaUnitPoolTake(pPool, 20, 20000 + n % 100);
        EXPECT_EQ(pUnit->nPts, 0);
        EXPECT_FALSE(pUnit->bKey);
        KovaUnitRelease(pUnit);
    }
    EXPECT_LE(g_nAllocations, 2);
}

TEST_F(MediaUnitPool, ReferencesKeepABlock)
{
    KovaUnit *pUnit = KovaUnitPoolTake(pPool, 1, 100);
    KovaUnitAddReference(pUnit);
    KovaUnitRelease(pUnit);
    KovaUnit *pOther = KovaUnitPoolTake(pPool, 1, 100);
    EXPECT_NE(pOther, pUnit);
    KovaUnitRelease(pUnit);
    KovaUnit *pThird = KovaUnitPoolTake(pPool, 1, 100);
    EXPECT_EQ(pThird, pUnit);
    KovaUnitRelease(pOther);
    KovaUnitRelease(pThird);
}

TEST_F(MediaUnitPool, SmallUnitDoesNotHoldALargeBlock)
{
    KovaUnit *pLarge = KovaUnitPoolTake(pPool, 100, 100000);
    KovaUnitRelease(pLarge);
    KovaUnit *pSmall = KovaUnitPoolTake(pPool, 1, 1000);
    EXPECT_LT(pSmall->nCapacity, 10000U);
    KovaUnitRelease(pSmall);
}

TEST_F(MediaUnitPool, SmallUnitTakesABlockThatIsAFewKibTooLarge)
{
    KovaUnit *pLarge = KovaUnitPoolTake(pPool, 1, 3500);
    KovaUnitRelease(pLarge);
    KovaUnit *pSmall = KovaUnitPoolTake(pPool, 1, 10);
    EXPECT_EQ(pSmall, pLarge);
    KovaUnitRelease(pSmall);
}

TEST_F(MediaUnitPool, SmallestBlockThatFitsIsTaken)
{
    KovaUnit *pLarger = KovaUnitPoolTake(pPool, 1, 1800);
    KovaUnit *pSmaller = KovaUnitPoolTake(pPool, 1, 1100);
    KovaUnitRelease(pSmaller);
    KovaUnitRelease(pLarger);
    KovaUnit *pUnit = KovaUnitPoolTake(pPool, 1, 1000);
    EXPECT_EQ(pUnit, pSmaller);
    // Whichever came back last.
    KovaUnitRelease(pUnit);
    pUnit = KovaUnitPoolTake(pPool, 1, 1000);
    EXPECT_EQ(pUnit, pSmaller);
    KovaUnitRelease(pUnit);
}

TEST_F(MediaUnitPool, FewBlocksAndFewBytesAreKept)
{
    std::vector<KovaUnit *> units;
    for (int n = 0; n < 100; n++)
        units.push_back(KovaUnitPoolTake(pPool, 1, 100));
    {
        const Counting counting;
        for (KovaUnit *pUnit : units)
            KovaUnitRelease(pUnit);
        EXPECT_EQ(g_nFreed, 92);
    }
    units.clear();
    for (int n = 0; n < 5; n++)
        units.push_back(KovaUnitPoolTake(pPool, 1, 400000));
    const Counting counting;
    for (KovaUnit *pUnit : units)
        KovaUnitRelease(pUnit);
    // Two of those, and the eight small ones that are older went first.
    EXPECT_EQ(g_nFreed, 8 + 3);
}

TEST_F(MediaUnitPool, BlockAboveTheBoundIsFreedAtOnce)
{
    KovaUnit *pUnit = KovaUnitPoolTake(pPool, 1, 2000000);
    const Counting counting;
    KovaUnitRelease(pUnit);
    EXPECT_EQ(g_nFreed, 1);
}

TEST(MediaUnitPoolEnd, UnitsOutliveTheirPool)
{
    const Counting counting;
    {
        KovaUnitPool *pPool = KovaUnitPoolCreate();
        KovaUnit *pFirst = KovaUnitPoolTake(pPool, 1, 100);
        KovaUnit *pSecond = KovaUnitPoolTake(pPool, 1, 100);
        KovaUnitRelease(KovaUnitPoolTake(pPool, 1, 100));
        KovaUnitPoolDestroy(pPool);
        EXPECT_EQ(g_nFreed, 1);
        memset(const_cast<uint8_t *>(pFirst->pBytes), 1, 100);
        KovaUnitRelease(pFirst);
        EXPECT_EQ(g_nFreed, 2);
        KovaUnitRelease(pSecond);
    }
    KovaUnitPoolDestroy(nullptr);
    EXPECT_EQ(g_nFreed, 4);
    EXPECT_EQ(g_nAllocations, 4);
}

TEST(MediaUnitPoolEnd, ThreadsReleaseWhileItEnds)
{
    for (int nRound = 0; nRound < 300; nRound++) {
        KovaUnitPool *pPool = KovaUnitPoolCreate();
        std::vector<KovaUnit *> units;
        for (int n = 0; n < 12; n++) {
            units.push_back(KovaUnitPoolTake(pPool, 1, 100 + 100 * static_cast<uint32_t>(n)));
            KovaUnitAddReference(units.back());
            KovaUnitAddReference(units.back());
        }
        std::vector<std::thread> threads;
        for (int nThread = 0; nThread < 3; nThread++) {
            threads.emplace_back([&units] {
                for (KovaUnit *pUnit : units)
                    KovaUnitRelease(pUnit);
            });
        }
        KovaUnitPoolDestroy(pPool);
        for (std::thread &thread : threads)
            thread.join();
    }
}

TEST(MediaShortage, PoolWithoutMemoryGivesNothingAndGoesOn)
{
    KovaUnitPool *pPool = KovaUnitPoolCreate();
    {
        const KovaFailingHeap heap;
        EXPECT_EQ(KovaUnitPoolTake(pPool, 1, 100), nullptr);
        EXPECT_EQ(KovaUnitPoolCreate(), nullptr);
    }
    KovaUnit *pUnit = KovaUnitPoolTake(pPool, 1, 100);
    ASSERT_NE(pUnit, nullptr);
    KovaUnitRelease(pUnit);
    KovaUnitPoolDestroy(pPool);
}

/// Makes a track with the n-th allocation failing, for every n there is.
void ExpectCreationFailsClean(const KovaLiveTrackConfig &config, int nAllocations)
{
    for (int nGood = 0; nGood <= nAllocations; nGood++) {
        int32_t nResult = 0;
        KovaTrackMedia *pMedia = nullptr;
        {
            const KovaFailingHeap heap(nGood);
            nResult = KovaTrackMediaCreate(config, 96, 0, 1400, &pMedia);
        }
        EXPECT_EQ(nResult, nGood < nAllocations ? KOVA_LIVE_ERROR_MEMORY : KOVA_LIVE_OK) << nGood;
        EXPECT_EQ(pMedia != nullptr, nResult == KOVA_LIVE_OK);
        KovaTrackMediaDestroy(pMedia);
    }
}

const std::string kSps = KovaMediaBytes({0x67, 0x64, 0x10, 0x28, 0xC0, 0x55});
const std::string kPps = KovaMediaBytes({0x68, 0xE0, 0x55});

TEST(MediaShortage, TrackIsMadeWholeOrNotAtAll)
{
    KovaLiveTrackConfig config = KovaMediaConfig(KOVA_LIVE_H264);
    config.sps = reinterpret_cast<const uint8_t *>(kSps.data());
    config.sps_size = static_cast<uint32_t>(kSps.size());
    config.pps = reinterpret_cast<const uint8_t *>(kPps.data());
    config.pps_size = static_cast<uint32_t>(kPps.size());
    ExpectCreationFailsClean(config, 4);
    ExpectCreationFailsClean(KovaMediaConfig(KOVA_LIVE_AAC), 2);
}

/// Pushes with the n-th allocation failing until none fails; whatever was refused, what is pushed
/// then comes out as if nothing had been.
void ExpectPushesRecover(uint32_t nCodec, const std::string &data,
                         const std::vector<std::string> &nals)
{
    for (int nGood = 0; nGood < 10; nGood++) {
        KovaMediaTrack track(KovaMediaConfig(nCodec));
        KovaUnit *pUnit = nullptr;
        int32_t nResult = 0;
        int nFailed = 0;
        {
            const KovaFailingHeap heap(nGood);
            nResult =
                KovaTrackMediaCut(track.Media(), reinterpret_cast<const uint8_t *>(data.data()),
                                  data.size(), 0, &pUnit);
            nFailed = heap.Failed();
        }
        EXPECT_EQ(nResult, nFailed > 0 ? KOVA_LIVE_ERROR_MEMORY : KOVA_LIVE_OK);
        EXPECT_EQ(pUnit != nullptr, nFailed == 0);
        KovaUnitRelease(pUnit);
        const KovaMediaUnit unit = track.Push(data);
        EXPECT_EQ(unit.nResult, KOVA_LIVE_OK);
        if (nCodec == KOVA_LIVE_H264) {
            EXPECT_EQ(KovaMediaNals(unit), nals);
        }
        if (nFailed == 0) {
            EXPECT_GT(nGood, 0);
            return;
        }
    }
    FAIL() << "allocations without end";
}

TEST(MediaShortage, PushesGoOnAfterIt)
{
    const std::vector<std::string> nals = {kSps, kPps, KovaMediaNal(0x65, 3000)};
    ExpectPushesRecover(KOVA_LIVE_H264, KovaMediaAnnexB(nals), nals);
    const std::vector<std::string> many(1000, KovaMediaNal(0x41, 50));
    ExpectPushesRecover(KOVA_LIVE_H264, KovaMediaAnnexB(many), many);
    ExpectPushesRecover(KOVA_LIVE_AAC, KovaMediaAdts("abcdef"), {});
}

TEST(MediaShortage, ChangedSetsGoOutWithTheFirstUnitAfterIt)
{
    KovaMediaTrack track(KovaMediaConfig(KOVA_LIVE_H264));
    const std::string slice = KovaMediaNal(0x41, 3000);
    const std::string data = KovaMediaAnnexB({kPps, slice});
    const uint16_t nFirst = track.Push(KovaMediaAnnexB({KovaMediaNal(0x41, 1)})).nFirstSequence;
    {
        const KovaFailingHeap heap(1); // the set still finds room, the unit does not
        KovaUnit *pUnit = nullptr;
        EXPECT_EQ(KovaTrackMediaCut(track.Media(), reinterpret_cast<const uint8_t *>(data.data()),
                                    data.size(), 0, &pUnit),
                  KOVA_LIVE_ERROR_MEMORY);
        EXPECT_EQ(heap.Failed(), 1);
    }
    const KovaMediaUnit unit = track.Push(KovaMediaAnnexB({slice}));
    EXPECT_EQ(KovaMediaNals(unit), (std::vector<std::string>{kPps, slice}));
    EXPECT_EQ(unit.nFirstSequence, static_cast<uint16_t>(nFirst + 1));
}

TEST(MediaThreads, DescriptionIsReadWhileItChanges)
{
    KovaMediaTrack video(KovaMediaConfig(KOVA_LIVE_H264));
    KovaMediaTrack sound(KovaMediaConfig(KOVA_LIVE_AAC));
    std::atomic<bool> bDone{false};
    std::thread reader([&] {
        while (!bDone) {
            const std::string text = video.Description();
            EXPECT_TRUE(text.empty() || text.find("track1\r\n") != std::string::npos);
            const std::string other = sound.Description();
            EXPECT_TRUE(other.empty() || other.find("track1\r\n") != std::string::npos);
            KovaTrackMediaKnown(video.Media());
            KovaTrackMediaKnown(sound.Media());
            KovaTrackMediaTimestamp(sound.Media(), 5);
        }
    });
    for (int n = 0; n < 2000; n++) {
        const std::string sps = kSps + static_cast<char>(1 + n % 100);
        video.Push(KovaMediaAnnexB({sps, kPps, KovaMediaNal(0x65, 100)}));
        KovaAdtsKind kind;
        kind.nRateIndex = static_cast<unsigned>(n % 13);
        sound.Push(KovaMediaAdts("abc", kind));
    }
    bDone = true;
    reader.join();
}

} // namespace
