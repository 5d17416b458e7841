#include "foundation/kept_buffer.h"
#include "tests/support/failing_heap.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

namespace {

struct KeptBufferTest : testing::Test {
    KovaKeptBuffer buffer = {};

    ~KeptBufferTest() override
    {
        KovaKeptBufferFree(&buffer);
    }
};

TEST_F(KeptBufferTest, KeepsItsBlockWhileThatIsLargeEnough)
{
    ASSERT_TRUE(KovaKeptBufferReserve(&buffer, 1000, 0));
    const uint8_t *pBlock = buffer.pBytes;
    memset(buffer.pBytes, 7, 1000);
    const KovaFailingHeap heap;
    EXPECT_TRUE(KovaKeptBufferReserve(&buffer, 1000, 0));
    EXPECT_TRUE(KovaKeptBufferReserve(&buffer, 3, 0));
    EXPECT_TRUE(KovaKeptBufferReserve(&buffer, 0, 0));
    EXPECT_EQ(buffer.pBytes, pBlock);
    EXPECT_EQ(heap.Failed(), 0);
}

TEST_F(KeptBufferTest, GrowsWithWhatIsToStay)
{
    ASSERT_TRUE(KovaKeptBufferReserve(&buffer, 100, 0));
    for (uint8_t n = 0; n < 100; n++)
        buffer.pBytes[n] = n;
    ASSERT_TRUE(KovaKeptBufferReserve(&buffer, 5000, 100));
    EXPECT_GE(buffer.nRoom, 5000U);
    for (uint8_t n = 0; n < 100; n++)
        EXPECT_EQ(buffer.pBytes[n], n);
    buffer.pBytes[4999] = 1;
}

TEST_F(KeptBufferTest, ShortageLeavesWhatIsToStay)
{
    ASSERT_TRUE(KovaKeptBufferReserve(&buffer, 100, 0));
    buffer.pBytes[99] = 7;
    const KovaFailingHeap heap;
    EXPECT_FALSE(KovaKeptBufferReserve(&buffer, 5000, 100));
    EXPECT_EQ(buffer.pBytes[99], 7);
    EXPECT_FALSE(KovaKeptBufferReserve(&buffer, 5000, 0));
    EXPECT_FALSE(KovaKeptBufferReserve(&buffer, 0, 0));
}

TEST_F(KeptBufferTest, HoldsWhatThereIsMemoryForWithoutRoomToGrow)
{
    ASSERT_TRUE(KovaKeptBufferReserve(&buffer, 100, 0));
    buffer.pBytes[99] = 7;
    const KovaFailingHeap heap(0, 1);
    ASSERT_TRUE(KovaKeptBufferReserve(&buffer, 5000, 100));
    EXPECT_EQ(heap.Failed(), 1);
    EXPECT_EQ(buffer.pBytes[99], 7);
    EXPECT_EQ(buffer.nRoom, 5001U);
    buffer.pBytes[4999] = 1;
}

TEST_F(KeptBufferTest, LargeBlockGoesWhenLessIsAskedFor)
{
    ASSERT_TRUE(KovaKeptBufferReserve(&buffer, 5000000, 0));
    ASSERT_TRUE(KovaKeptBufferReserve(&buffer, 2000000, 0));
    EXPECT_GE(buffer.nRoom, 5000000U);
    ASSERT_TRUE(KovaKeptBufferReserve(&buffer, 1000, 100));
    EXPECT_GE(buffer.nRoom, 5000000U);
    ASSERT_TRUE(KovaKeptBufferReserve(&buffer, 1000, 0));
    EXPECT_GE(buffer.nRoom, 1000U);
    EXPECT_LE(buffer.nRoom, 2000U);
}

} // namespace
