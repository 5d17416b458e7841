#include "foundation/byte_order.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

/// What is left of ten bytes 0xEE when a value is written at the third.
template <typename Write> Bytes Written(Write pfnWrite, uint32_t nValue, uint16_t nBits)
{
    Bytes bytes(10, 0xEE);
    pfnWrite(bytes.data() + 2, nValue, nBits);
    EXPECT_EQ(bytes[0], 0xEE);
    EXPECT_EQ(bytes[1], 0xEE);
    return Bytes(bytes.begin() + 2, bytes.end());
}

uint32_t ReadMB(const Bytes &bytes, uint16_t nBits)
{
    uint32_t nValue = 0xDEADBEEF;
    RtspReadMB(bytes.data(), &nValue, nBits);
    return nValue;
}

uint32_t ReadLB(const Bytes &bytes, uint16_t nBits)
{
    uint32_t nValue = 0xDEADBEEF;
    RtspReadLB(bytes.data(), &nValue, nBits);
    return nValue;
}

constexpr uint32_t kValue = 0x01020304;

TEST(ByteOrder, WritesMostSignificantFirst)
{
    EXPECT_EQ(Written(RtspWriteMB, kValue, 32), (Bytes{1, 2, 3, 4, 0xEE, 0xEE, 0xEE, 0xEE}));
    EXPECT_EQ(Written(RtspWriteMB, kValue, 24), (Bytes{2, 3, 4, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE}));
    EXPECT_EQ(Written(RtspWriteMB, kValue, 16), (Bytes{3, 4, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE}));
    EXPECT_EQ(Written(RtspWriteMB, kValue, 8)[0], 4);
    EXPECT_EQ(Written(RtspWriteMB, 0xFFFEFDFC, 32)[0], 0xFF);
}

TEST(ByteOrder, WritesLeastSignificantFirst)
{
    EXPECT_EQ(Written(RtspWriteLB, kValue, 32), (Bytes{4, 3, 2, 1, 0xEE, 0xEE, 0xEE, 0xEE}));
    EXPECT_EQ(Written(RtspWriteLB, kValue, 24), (Bytes{4, 3, 2, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE}));
    EXPECT_EQ(Written(RtspWriteLB, kValue, 16), (Bytes{4, 3, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE}));
}

TEST(ByteOrder, BytesBeyondTheValueAreZero)
{
    EXPECT_EQ(Written(RtspWriteMB, 0x81020304, 40), (Bytes{0, 0x81, 2, 3, 4, 0xEE, 0xEE, 0xEE}));
    EXPECT_EQ(Written(RtspWriteMB, 0x81020304, 64), (Bytes{0, 0, 0, 0, 0x81, 2, 3, 4}));
    EXPECT_EQ(Written(RtspWriteLB, 0x81020304, 40), (Bytes{4, 3, 2, 0x81, 0, 0xEE, 0xEE, 0xEE}));
    EXPECT_EQ(Written(RtspWriteLB, 0x81020304, 64), (Bytes{4, 3, 2, 0x81, 0, 0, 0, 0}));
}

TEST(ByteOrder, Reads)
{
    EXPECT_EQ(ReadMB({18, 52}, 16), 4660U);
    EXPECT_EQ(ReadLB({18, 52}, 16), 13330U);
    EXPECT_EQ(ReadMB({0xFF, 2, 3, 4}, 32), 0xFF020304U);
    EXPECT_EQ(ReadLB({1, 2, 3, 0xFF}, 32), 0xFF030201U);
    EXPECT_EQ(ReadMB({1, 2, 3}, 24), 0x010203U);
    EXPECT_EQ(ReadLB({1, 2, 3}, 24), 0x030201U);
}

TEST(ByteOrder, ReadingMoreThanFourBytesKeepsTheLow32Bits)
{
    EXPECT_EQ(ReadMB({9, 1, 2, 3, 4}, 40), 0x01020304U);
    EXPECT_EQ(ReadLB({4, 3, 2, 1, 9}, 40), 0x01020304U);
}

TEST(ByteOrder, WidthIsCutDownToWholeBytes)
{
    EXPECT_EQ(Written(RtspWriteMB, kValue, 12),
              (Bytes{4, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE}));
    EXPECT_EQ(Written(RtspWriteLB, kValue, 12),
              (Bytes{4, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE}));
    EXPECT_EQ(Written(RtspWriteMB, kValue, 7), Bytes(8, 0xEE));
    EXPECT_EQ(Written(RtspWriteLB, kValue, 0), Bytes(8, 0xEE));
    EXPECT_EQ(ReadMB({18, 52}, 12), 18U);
    EXPECT_EQ(ReadLB({18, 52}, 15), 18U);
}

TEST(ByteOrder, ReadingNoByteGivesZero)
{
    EXPECT_EQ(ReadMB({18, 52}, 7), 0U);
    EXPECT_EQ(ReadLB({18, 52}, 0), 0U);
}

TEST(ByteOrder, ReadingFromNowhereGivesZero)
{
    uint32_t nValue = 7;
    RtspReadMB(nullptr, &nValue, 32);
    EXPECT_EQ(nValue, 0U);
    nValue = 7;
    RtspReadLB(nullptr, &nValue, 0);
    EXPECT_EQ(nValue, 0U);
}

} // namespace
