#include "rtp/annexb.h"

#include <gtest/gtest.h>

#include <optional>
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

} // namespace
