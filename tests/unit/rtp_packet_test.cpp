#include "classic/rtp/rtp_packet.h"
#include "tests/support/failing_heap.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <thread>
#include <vector>

/// Freed packets are seen by the address sanitizer and the leak check; a packet
/// that must not be freed is used again here.
namespace {

KovaRtpPacket *NewPacket()
{
    KovaRtpPacket *pPacket = KovaRtpPacketAlloc();
    pPacket->pData = static_cast<uint8_t *>(malloc(100));
    pPacket->nSize = 100;
    return pPacket;
}

TEST(RtpPacket, NewPacketIsZero)
{
    KovaRtpPacket *pPacket = KovaRtpPacketAlloc();
    ASSERT_NE(pPacket, nullptr);
    EXPECT_EQ(pPacket->pData, nullptr);
    EXPECT_EQ(pPacket->nSize, 0U);
    EXPECT_EQ(pPacket->nRefCount, 0);
    EXPECT_EQ(pPacket->nFrameType, 0U);
    EXPECT_EQ(pPacket->nPts, 0U);
    KovaRtpFreePacket(pPacket);
}

TEST(RtpPacket, GivesNullWithoutMemory)
{
    const KovaFailingHeap heap;
    EXPECT_EQ(KovaRtpPacketAlloc(), nullptr);
    EXPECT_EQ(KovaRtpPacketAlloc(100), nullptr);
}

TEST(RtpPacket, IsMadeWithItsDataInOneBlock)
{
    const KovaFailingHeap heap(1);
    KovaRtpPacket *pPacket = KovaRtpPacketAlloc(1412);
    ASSERT_NE(pPacket, nullptr);
    EXPECT_EQ(pPacket->nSize, 1412U);
    EXPECT_EQ(pPacket->nRefCount, 0);
    EXPECT_EQ(std::vector<uint8_t>(pPacket->pData, pPacket->pData + 1412),
              std::vector<uint8_t>(1412, 0));
    pPacket->pData[1411] = 1;
    KovaRtpPacketAddRef(pPacket);
    KovaRtpPacketReleaseRef(pPacket);
}

TEST(RtpPacket, OtherDataInTheirPlaceAreFreedToo)
{
    KovaRtpPacket *pPacket = KovaRtpPacketAlloc(50);
    ASSERT_NE(pPacket, nullptr);
    pPacket->pData = static_cast<uint8_t *>(malloc(100));
    KovaRtpFreePacket(pPacket);
}

TEST(RtpPacket, ReferencesAreCounted)
{
    KovaRtpPacket *pPacket = NewPacket();
    KovaRtpPacketAddRef(pPacket);
    EXPECT_EQ(pPacket->nRefCount, 1);
    KovaRtpPacketAddRef(pPacket);
    EXPECT_EQ(pPacket->nRefCount, 2);
    KovaRtpPacketReleaseRef(pPacket);
    EXPECT_EQ(pPacket->nRefCount, 1);
    EXPECT_EQ(pPacket->nSize, 100U);
    KovaRtpPacketReleaseRef(pPacket);
}

TEST(RtpPacket, ReleaseWithoutAReferenceFreesNothing)
{
    KovaRtpPacket *pPacket = NewPacket();
    KovaRtpPacketReleaseRef(pPacket);
    EXPECT_EQ(pPacket->nRefCount, -1);
    pPacket->pData[99] = 1;
    KovaRtpPacketReleaseRef(pPacket);
    EXPECT_EQ(pPacket->nRefCount, -2);
    KovaRtpFreePacket(pPacket);
}

TEST(RtpPacket, FreeTakesAnyCount)
{
    KovaRtpPacket *pPacket = NewPacket();
    KovaRtpPacketAddRef(pPacket);
    KovaRtpPacketAddRef(pPacket);
    KovaRtpFreePacket(pPacket);
}

TEST(RtpPacket, NullIsIgnored)
{
    KovaRtpPacketAddRef(nullptr);
    KovaRtpPacketReleaseRef(nullptr);
    KovaRtpFreePacket(nullptr);
}

TEST(RtpPacket, LastOfManyThreadsFrees)
{
    constexpr int kThreads = 4;
    constexpr int kTurns = 5000;
    KovaRtpPacket *pPacket = NewPacket();
    KovaRtpPacketAddRef(pPacket);
    std::vector<std::thread> threads;
    for (int n = 0; n < kThreads; n++)
        threads.emplace_back([pPacket] {
            for (int nTurn = 0; nTurn < kTurns; nTurn++)
                KovaRtpPacketAddRef(pPacket);
            for (int nTurn = 0; nTurn < kTurns; nTurn++)
                KovaRtpPacketReleaseRef(pPacket);
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(pPacket->nRefCount, 1);
    KovaRtpPacketReleaseRef(pPacket);
}

} // namespace
