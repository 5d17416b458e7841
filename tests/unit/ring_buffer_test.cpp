#include "foundation/ring_buffer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <deque>
#include <numeric>
#include <random>
#include <thread>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

/// A ring of eight bytes inside a larger block, to see what is touched outside.
struct RingBufferTest : testing::Test {
    std::array<uint8_t, 24> memory;
    uint8_t *pBlock = memory.data() + 8;
    KovaRingbuffer ring = {};

    RingBufferTest()
    {
        memory.fill(0xEE);
        ring.nReadPos = 5;
        ring.nWritePos = 3;
        KovaRingbufferInit(&ring, pBlock, 8);
    }

    ~RingBufferTest() override
    {
        for (size_t n = 0; n < 8; n++) {
            EXPECT_EQ(memory[n], 0xEE) << "in front of the block";
            EXPECT_EQ(memory[16 + n], 0xEE) << "behind the block";
        }
    }

    int32_t Write(const Bytes &bytes)
    {
        return KovaRingbufferWrite(&ring, bytes.data(), static_cast<int32_t>(bytes.size()));
    }

    Bytes Read(int32_t nCount)
    {
        Bytes bytes(static_cast<size_t>(nCount));
        EXPECT_EQ(KovaRingbufferRead(&ring, bytes.data(), nCount), nCount);
        return bytes;
    }
};

TEST_F(RingBufferTest, IsEmptyAfterInit)
{
    EXPECT_EQ(ring.pBuffer, pBlock);
    EXPECT_EQ(ring.nSize, 8);
    EXPECT_EQ(ring.nReadPos, 0);
    EXPECT_EQ(ring.nWritePos, 0);
    EXPECT_EQ(KovaRingbufferFree(&ring), 7);
    EXPECT_EQ(KovaRingbufferAvail(&ring), 0);
    EXPECT_EQ(KovaRingbufferRmpty(&ring), 1);
}

TEST_F(RingBufferTest, HoldsOneByteLessThanItsSize)
{
    EXPECT_EQ(Write({1, 2, 3, 4, 5, 6, 7}), 7);
    EXPECT_EQ(KovaRingbufferFree(&ring), 0);
    EXPECT_EQ(KovaRingbufferAvail(&ring), 7);
    EXPECT_EQ(KovaRingbufferRmpty(&ring), 0);
    EXPECT_EQ(ring.nWritePos, 7);
    EXPECT_EQ(ring.nReadPos, 0);
    EXPECT_EQ(Read(7), (Bytes{1, 2, 3, 4, 5, 6, 7}));
    EXPECT_EQ(KovaRingbufferRmpty(&ring), 1);
}

TEST_F(RingBufferTest, WrapsInTwoPieces)
{
    ring.nReadPos = 6;
    ring.nWritePos = 6;
    EXPECT_EQ(Write({1, 2, 3, 4}), 4);
    EXPECT_EQ(Bytes(pBlock, pBlock + 8), (Bytes{3, 4, 0xEE, 0xEE, 0xEE, 0xEE, 1, 2}));
    EXPECT_EQ(ring.nWritePos, 2);
    EXPECT_EQ(KovaRingbufferAvail(&ring), 4);
    EXPECT_EQ(KovaRingbufferFree(&ring), 3);
    EXPECT_EQ(Read(4), (Bytes{1, 2, 3, 4}));
    EXPECT_EQ(ring.nReadPos, 2);
}

TEST_F(RingBufferTest, EndsAtTheBlocksEndExactly)
{
    ring.nReadPos = 5;
    ring.nWritePos = 5;
    EXPECT_EQ(Write({1, 2, 3}), 3);
    EXPECT_EQ(ring.nWritePos, 0);
    EXPECT_EQ(KovaRingbufferAvail(&ring), 3);
    EXPECT_EQ(Bytes(pBlock + 5, pBlock + 8), (Bytes{1, 2, 3}));
    EXPECT_EQ(Read(3), (Bytes{1, 2, 3}));
    EXPECT_EQ(ring.nReadPos, 0);
}

TEST_F(RingBufferTest, FreeIsOneLessThanTheDistanceToTheReader)
{
    ring.nReadPos = 4;
    ring.nWritePos = 2;
    EXPECT_EQ(KovaRingbufferFree(&ring), 1);
    EXPECT_EQ(KovaRingbufferAvail(&ring), 6);
    ring.nWritePos = 3;
    EXPECT_EQ(KovaRingbufferFree(&ring), 0);
    EXPECT_EQ(KovaRingbufferAvail(&ring), 7);
}

TEST_F(RingBufferTest, FlushDiscardsWithoutMovingTheWriter)
{
    Write({1, 2, 3});
    EXPECT_EQ(KovaRingbufferFlush(&ring), &ring);
    EXPECT_EQ(ring.nReadPos, 3);
    EXPECT_EQ(ring.nWritePos, 3);
    EXPECT_EQ(KovaRingbufferRmpty(&ring), 1);
}

TEST_F(RingBufferTest, ResetMovesBothToTheStart)
{
    Write({1, 2, 3});
    Read(1);
    EXPECT_EQ(KovaRingbufferReset(&ring), &ring);
    EXPECT_EQ(ring.nReadPos, 0);
    EXPECT_EQ(ring.nWritePos, 0);
}

TEST_F(RingBufferTest, DoesNotCompareTheCountWithWhatIsHeld)
{
    Write({1, 2, 3, 4, 5, 6, 7});
    Read(7);
    EXPECT_EQ(KovaRingbufferAvail(&ring), 0);
    EXPECT_EQ(Read(3), (Bytes{0xEE, 1, 2}));
    EXPECT_EQ(ring.nReadPos, 2);
    EXPECT_EQ(Write({9, 9, 9, 9, 9, 9, 9, 9}), 8);
    EXPECT_EQ(Bytes(pBlock, pBlock + 8), Bytes(8, 9));
}

TEST_F(RingBufferTest, TransfersOfNothingMoveNothing)
{
    Write({1, 2});
    uint8_t nByte = 0x55;
    EXPECT_EQ(KovaRingbufferRead(&ring, &nByte, 0), 0);
    EXPECT_EQ(KovaRingbufferWrite(&ring, &nByte, 0), 0);
    EXPECT_EQ(nByte, 0x55);
    EXPECT_EQ(ring.nReadPos, 0);
    EXPECT_EQ(ring.nWritePos, 2);
}

TEST_F(RingBufferTest, NeverReachesOutsideTheBlock)
{
    Bytes large(20, 0x77);
    ring.nReadPos = 5;
    ring.nWritePos = 5;
    KovaRingbufferWrite(&ring, large.data(), 9);
    KovaRingbufferWrite(&ring, large.data(), -1);
    EXPECT_EQ(Bytes(pBlock, pBlock + 8), Bytes(8, 0xEE));
    KovaRingbufferRead(&ring, large.data(), 9);
    KovaRingbufferRead(&ring, large.data(), -1);
    EXPECT_EQ(large, Bytes(20, 0x77));
}

TEST(RingBuffer, AgreesWithAQueueOnRandomTransfers)
{
    std::mt19937 random(42);
    for (const int32_t nSize : {2, 3, 7, 64, 1000}) {
        Bytes block(static_cast<size_t>(nSize));
        KovaRingbuffer ring = {};
        KovaRingbufferInit(&ring, block.data(), nSize);
        std::deque<uint8_t> queue;
        for (int n = 0; n < 2000; n++) {
            const bool bWrite = random() % 2 == 0;
            const int32_t nMost = bWrite ? KovaRingbufferFree(&ring) : KovaRingbufferAvail(&ring);
            const int32_t nCount =
                static_cast<int32_t>(random() % (static_cast<uint32_t>(nMost) + 1));
            Bytes bytes(static_cast<size_t>(nCount));
            if (bWrite) {
                for (uint8_t &nByte : bytes)
                    nByte = static_cast<uint8_t>(random());
                ASSERT_EQ(KovaRingbufferWrite(&ring, bytes.data(), nCount), nCount);
                queue.insert(queue.end(), bytes.begin(), bytes.end());
            } else {
                ASSERT_EQ(KovaRingbufferRead(&ring, bytes.data(), nCount), nCount);
                ASSERT_TRUE(std::equal(bytes.begin(), bytes.end(), queue.begin()));
                queue.erase(queue.begin(), queue.begin() + nCount);
            }
            ASSERT_EQ(KovaRingbufferAvail(&ring), static_cast<int32_t>(queue.size()));
            ASSERT_EQ(KovaRingbufferFree(&ring), nSize - 1 - static_cast<int32_t>(queue.size()));
            ASSERT_EQ(KovaRingbufferRmpty(&ring), queue.empty() ? 1 : 0);
        }
    }
}

/// The whole point of the ring: a writer and a reader without a lock.
TEST(RingBuffer, CarriesBytesFromOneThreadToAnother)
{
    constexpr uint32_t kTotal = 1000000;
    Bytes block(1021);
    KovaRingbuffer ring = {};
    KovaRingbufferInit(&ring, block.data(), static_cast<int32_t>(block.size()));
    std::thread writer([&ring] {
        std::array<uint8_t, 97> chunk;
        for (uint32_t nSent = 0; nSent < kTotal;) {
            const uint32_t nCount = std::min<uint32_t>(1 + nSent % 97, kTotal - nSent);
            if (KovaRingbufferFree(&ring) < static_cast<int32_t>(nCount)) {
                std::this_thread::yield();
                continue;
            }
            for (uint32_t n = 0; n < nCount; n++)
                chunk[n] = static_cast<uint8_t>((nSent + n) * 7 % 251);
            KovaRingbufferWrite(&ring, chunk.data(), static_cast<int32_t>(nCount));
            nSent += nCount;
        }
    });
    uint32_t nWrong = 0;
    for (uint32_t nTaken = 0; nTaken < kTotal;) {
        std::array<uint8_t, 113> chunk;
        const int32_t nCount = std::min(KovaRingbufferAvail(&ring), 113);
        if (nCount == 0) {
            std::this_thread::yield();
            continue;
        }
        KovaRingbufferRead(&ring, chunk.data(), nCount);
        for (uint32_t n = 0; n < static_cast<uint32_t>(nCount); n++)
            nWrong += chunk[n] != static_cast<uint8_t>((nTaken + n) * 7 % 251) ? 1 : 0;
        nTaken += static_cast<uint32_t>(nCount);
    }
    writer.join();
    EXPECT_EQ(nWrong, 0U);
    EXPECT_EQ(KovaRingbufferRmpty(&ring), 1);
}

} // namespace
