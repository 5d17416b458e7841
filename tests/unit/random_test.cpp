#include "foundation/random.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace {

constexpr size_t kSize = 32;

TEST(Random, FillsEveryByteAndNothingBehind)
{
    for (size_t nSize = 0; nSize <= kSize; nSize++) {
        uint8_t seen[kSize + 1] = {};
        for (int nTry = 0; nTry < 64; nTry++) {
            uint8_t bytes[kSize + 1];
            memset(bytes, 0, sizeof(bytes));
            ASSERT_TRUE(KovaRandomFill(bytes, nSize));
            for (size_t n = 0; n <= kSize; n++)
                seen[n] = static_cast<uint8_t>(seen[n] | bytes[n]);
        }
        for (size_t n = 0; n <= kSize; n++)
            EXPECT_EQ(seen[n] != 0, n < nSize) << n << " of " << nSize;
    }
}

} // namespace
