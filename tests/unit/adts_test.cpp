#include "rtp/adts.h"

#include <gtest/gtest.h>

#include <optional>
#include <random>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

std::optional<uint32_t> Find(const Bytes &bytes, uint32_t nFrom = 0)
{
    uint32_t nPosition = 0;
    if (!KovaAdtsFind(bytes.data(), static_cast<uint32_t>(bytes.size()), nFrom, &nPosition))
        return std::nullopt;
    return nPosition;
}

KovaAdtsHeader Parse(const Bytes &bytes)
{
    return KovaAdtsParse(bytes.data());
}

TEST(Adts, FindsTheSyncWord)
{
    EXPECT_EQ(Find({0xFF, 0xF1, 0, 0, 0, 0, 0, 0}), 0U);
    EXPECT_EQ(Find({9, 0xFF, 0xEF, 0xFF, 0xFF, 0xF9, 0, 0, 0, 0, 0, 0}), 3U);
    EXPECT_EQ(Find({0xFF, 0xF1, 0xFF, 0xF0, 0, 0, 0, 0, 0, 0}, 1), 2U);
    EXPECT_EQ(Find({0xFF, 0x1F, 0xF1, 0xF2, 0, 0, 0, 0, 0, 0}), std::nullopt);
}

TEST(Adts, FrameStartsMoreThanSevenBytesBeforeTheEnd)
{
    EXPECT_EQ(Find({0xFF, 0xF1, 0, 0, 0, 0, 0}), std::nullopt);
    EXPECT_EQ(Find({0, 0xFF, 0xF1, 0, 0, 0, 0, 0}), std::nullopt);
    EXPECT_EQ(Find({0, 0xFF, 0xF1, 0, 0, 0, 0, 0, 0}), 1U);
    EXPECT_EQ(Find({}), std::nullopt);
    EXPECT_EQ(Find({0xFF}), std::nullopt);
}

TEST(Adts, FindsWhatASearchPositionForPositionFinds)
{
    std::mt19937 random(7);
    int nFound = 0;
    for (int n = 0; n < 20000; n++) {
        Bytes bytes(random() % 60);
        for (uint8_t &nByte : bytes)
            nByte = static_cast<uint8_t>(random() % 8 == 0 ? 0xFF : 0xEC + random() % 6);
        for (uint32_t nFrom = 0; nFrom <= bytes.size() + 8; nFrom += 1 + random() % 3) {
            std::optional<uint32_t> slow;
            for (size_t nAt = nFrom; nAt + 7 < bytes.size() && !slow; nAt++)
                if (bytes[nAt] == 0xFF && (bytes[nAt + 1] & 0xF0) == 0xF0)
                    slow = static_cast<uint32_t>(nAt);
            ASSERT_EQ(Find(bytes, nFrom), slow)
                << testing::PrintToString(bytes) << " from " << nFrom;
            nFound += slow.has_value() ? 1 : 0;
        }
    }
    EXPECT_GT(nFound, 20000);
}

TEST(Adts, ReadsTheSamplingRate)
{
    const std::vector<uint32_t> rates = {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050,
                                         16000, 12000, 11025, 8000,  7350,  0,     0,     0};
    for (unsigned n = 0; n < 16; n++) {
        const uint8_t nByte2 = static_cast<uint8_t>(0xC3 | n << 2);
        EXPECT_EQ(Parse({0xFF, 0xF1, nByte2, 0, 0, 0, 0}).nSampleRate, rates[n]) << n;
    }
}

TEST(Adts, ConfigIsAlwaysLowComplexity)
{
    // 44100 Hz, stereo, whatever the profile.
    EXPECT_EQ(Parse({0xFF, 0xF1, 0x50, 0x80, 0, 0, 0}).nConfig, 0x1210);
    EXPECT_EQ(Parse({0xFF, 0xF1, 0x10, 0x80, 0, 0, 0}).nConfig, 0x1210);
    EXPECT_EQ(Parse({0xFF, 0xF1, 0xD0, 0x80, 0, 0, 0}).nConfig, 0x1210);
    // 16000 Hz mono; 48000 Hz, three channels.
    EXPECT_EQ(Parse({0xFF, 0xF1, 0x60, 0x40, 0, 0, 0}).nConfig, 0x1408);
    EXPECT_EQ(Parse({0xFF, 0xF1, 0x4C, 0xC0, 0, 0, 0}).nConfig, 0x1198);
}

TEST(Adts, FourthChannelBitStandsOnTheSecond)
{
    EXPECT_EQ(Parse({0xFF, 0xF1, 0x51, 0x00, 0, 0, 0}).nConfig, 0x1210);
    EXPECT_EQ(Parse({0xFF, 0xF1, 0x51, 0x40, 0, 0, 0}).nConfig, 0x1218);
    EXPECT_EQ(Parse({0xFF, 0xF1, 0x51, 0xC0, 0, 0, 0}).nConfig, 0x1218);
}

TEST(Adts, ReadsTheFrameLength)
{
    EXPECT_EQ(Parse({0xFF, 0xF1, 0x50, 0x80, 0x01, 0x1F, 0xFC}).nFrameLength, 8);
    EXPECT_EQ(Parse({0xFF, 0xF1, 0x50, 0x80, 0x7D, 0x1F, 0xFC}).nFrameLength, 1000);
    EXPECT_EQ(Parse({0xFF, 0xF1, 0x50, 0xFD, 0x06, 0x9F, 0xFC}).nFrameLength, 2100);
    EXPECT_EQ(Parse({0xFF, 0xF1, 0x50, 0x83, 0x7F, 0xFF, 0xFC}).nFrameLength, 7167);
}

TEST(Adts, LengthWithTheTopBitOfItsMiddleByteIsNegative)
{
    EXPECT_LT(Parse({0xFF, 0xF1, 0x50, 0x80, 0xAD, 0xFF, 0xFC}).nFrameLength, 0);
    EXPECT_LT(Parse({0xFF, 0xF1, 0x50, 0x80, 0x80, 0x1F, 0xFC}).nFrameLength, 0);
    EXPECT_LT(Parse({0xFF, 0xF1, 0x50, 0x83, 0xFF, 0xFF, 0xFC}).nFrameLength, 0);
}

} // namespace
