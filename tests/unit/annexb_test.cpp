#include "rtp/annexb.h"

#include <gtest/gtest.h>

#include <optional>
#include <random>
#include <utility>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;
using Found = std::optional<std::pair<uint32_t, uint32_t>>;

/// Where the start code found begins and ends.
Found Find(const Bytes &bytes, uint32_t nFrom = 0)
{
    KovaStartCode code = {};
    if (!KovaAnnexBFind(bytes.data(), static_cast<uint32_t>(bytes.size()), nFrom, &code))
        return std::nullopt;
    return std::make_pair(code.nBegin, code.nEnd);
}

Found At(uint32_t nBegin, uint32_t nEnd)
{
    return std::make_pair(nBegin, nEnd);
}

TEST(AnnexB, FindsBothStartCodes)
{
    EXPECT_EQ(Find({0, 0, 1, 5}), At(0, 3));
    EXPECT_EQ(Find({0, 0, 0, 1}), At(0, 4));
    EXPECT_EQ(Find({9, 9, 0, 0, 1, 5}), At(2, 5));
    EXPECT_EQ(Find({9, 0, 0, 0, 1, 5}), At(1, 5));
}

TEST(AnnexB, FurtherZerosStandInFrontOfTheStartCode)
{
    EXPECT_EQ(Find({0, 0, 0, 0, 1, 5}), At(1, 5));
    EXPECT_EQ(Find({0, 0, 0, 0, 0, 0, 1, 5}), At(3, 7));
}

TEST(AnnexB, StartsWhereItIsTold)
{
    const Bytes bytes = {0, 0, 1, 5, 0, 0, 0, 1, 6, 7};
    EXPECT_EQ(Find(bytes, 1), At(4, 8));
    EXPECT_EQ(Find(bytes, 4), At(4, 8));
    EXPECT_EQ(Find(bytes, 5), At(5, 8));
    EXPECT_EQ(Find(bytes, 6), std::nullopt);
    EXPECT_EQ(Find(bytes, 10), std::nullopt);
    EXPECT_EQ(Find(bytes, 11), std::nullopt);
}

TEST(AnnexB, NothingBeginsInTheLastThreeBytes)
{
    EXPECT_EQ(Find({0, 0, 1}), std::nullopt);
    EXPECT_EQ(Find({5, 0, 0, 1}), std::nullopt);
    EXPECT_EQ(Find({5, 0, 0, 1, 5}), At(1, 4));
    EXPECT_EQ(Find({5, 0, 0, 0, 1}), At(1, 5));
    EXPECT_EQ(Find({5, 0, 0, 0}), std::nullopt);
}

TEST(AnnexB, OtherBytesAreNoStartCode)
{
    EXPECT_EQ(Find({}), std::nullopt);
    EXPECT_EQ(Find({0}), std::nullopt);
    EXPECT_EQ(Find({0, 0, 2, 1, 5, 5, 5, 5}), std::nullopt);
    EXPECT_EQ(Find({0, 0, 3, 0, 1, 0, 0, 2}), std::nullopt);
    EXPECT_EQ(Find({1, 0, 1, 0, 1, 0, 1, 0}), std::nullopt);
    EXPECT_EQ(Find({0, 0, 0, 0, 0, 0, 0, 0}), std::nullopt);
    EXPECT_EQ(Find({0, 1, 0, 0, 0, 2, 9, 9}), std::nullopt);
}

/// The same, position for position.
Found FindSlowly(const Bytes &bytes, uint32_t nFrom)
{
    const size_t nSize = bytes.size();
    for (size_t n = nFrom; n + 2 < nSize; n++) {
        const bool bShort = bytes[n] == 0 && bytes[n + 1] == 0 && bytes[n + 2] == 1;
        const bool bLong = n + 3 < nSize && bytes[n] == 0 && bytes[n + 1] == 0 &&
                           bytes[n + 2] == 0 && bytes[n + 3] == 1;
        if (!bShort && !bLong)
            continue;
        if (n + 3 >= nSize)
            return std::nullopt;
        const uint32_t nBegin = static_cast<uint32_t>(n);
        return At(nBegin, nBegin + (bLong ? 4 : 3));
    }
    return std::nullopt;
}

/// Bytes of which many are 0 or 1, so that near misses of all kinds are among them.
Bytes Random(std::mt19937 *pRandom)
{
    Bytes bytes((*pRandom)() % 80);
    const uint32_t nOthers = 1 + (*pRandom)() % 200;
    for (uint8_t &nByte : bytes) {
        const uint32_t nDraw = (*pRandom)() % (60 + nOthers);
        nByte = nDraw < 40 ? 0 : nDraw < 60 ? 1 : static_cast<uint8_t>(nDraw);
    }
    return bytes;
}

TEST(AnnexB, FindsWhatASearchPositionForPositionFinds)
{
    std::mt19937 random(7);
    int nFound = 0;
    for (int n = 0; n < 20000; n++) {
        const Bytes bytes = Random(&random);
        for (uint32_t nFrom = 0; nFrom <= bytes.size() + 3; nFrom += 1 + random() % 3) {
            const Found found = Find(bytes, nFrom);
            ASSERT_EQ(found, FindSlowly(bytes, nFrom))
                << testing::PrintToString(bytes) << " from " << nFrom;
            nFound += found.has_value() ? 1 : 0;
        }
    }
    EXPECT_GT(nFound, 20000);
}

TEST(AnnexB, EveryCombinationOfZerosAndOnes)
{
    for (uint32_t nBits = 0; nBits < 3 * 3 * 3 * 3 * 3 * 3 * 3 * 3; nBits++) {
        Bytes bytes;
        for (uint32_t nRest = nBits, n = 0; n < 8; n++, nRest /= 3)
            bytes.push_back(static_cast<uint8_t>(nRest % 3));
        for (uint32_t nFrom = 0; nFrom < 9; nFrom++)
            ASSERT_EQ(Find(bytes, nFrom), FindSlowly(bytes, nFrom))
                << testing::PrintToString(bytes) << " from " << nFrom;
    }
}

} // namespace
