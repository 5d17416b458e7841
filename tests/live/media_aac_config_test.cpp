#include "kova_live.h"
#include "live/media/aac_config.h"
#include "tests/live/media_track.h"

#include <gtest/gtest.h>

namespace {

/// Bits as text ("00010 0100 ...") to bytes, filled up with zeros.
std::string Bits(const std::string &text)
{
    std::string bytes;
    unsigned nCount = 0;
    for (const char nBit : text) {
        if (nBit == ' ')
            continue;
        if (nCount++ % 8 == 0)
            bytes += '\0';
        bytes.back() = static_cast<char>(static_cast<uint8_t>(bytes.back()) |
                                         (nBit - '0') << (7 - (nCount - 1) % 8));
    }
    return bytes;
}

bool Read(const std::string &bytes, KovaAacConfig *pConfig)
{
    // Without a byte behind it that could be read.
    const std::vector<uint8_t> exact(bytes.begin(), bytes.end());
    return KovaAacConfigRead(exact.data(), exact.size(), pConfig);
}

struct Meaning {
    uint32_t nRate;
    uint32_t nChannels;
    uint32_t nFrameTicks;
};

void ExpectMeaning(const std::string &bits, const Meaning &meaning)
{
    KovaAacConfig config;
    ASSERT_TRUE(Read(Bits(bits), &config)) << bits;
    EXPECT_EQ(config.nRate, meaning.nRate) << bits;
    EXPECT_EQ(config.nChannels, meaning.nChannels) << bits;
    EXPECT_EQ(config.nFrameTicks, meaning.nFrameTicks) << bits;
}

void ExpectNone(const std::string &bits)
{
    KovaAacConfig config;
    EXPECT_FALSE(Read(Bits(bits), &config)) << bits;
}

const std::string kRate24Bits = "1111 000000001011101110000001"; // 48,001 Hz

TEST(MediaAacConfig, Plain)
{
    ExpectMeaning("00010 0100 0010 0 0 0", {44100, 2, 1024});
    ExpectMeaning("00010 0000 0001 0 0 0", {96000, 1, 1024});
    ExpectMeaning("00001 1100 0110 0 0 0", {7350, 6, 1024});
    ExpectMeaning("00100 1011 0111 0 0 0", {8000, 8, 1024});
    ExpectMeaning("00010 " + kRate24Bits + " 0010 000", {48001, 2, 1024});
}

TEST(MediaAacConfig, ChannelsOfEveryConfiguration)
{
    const struct {
        const char *szBits;
        uint32_t nChannels;
    } cases[] = {{"0001", 1}, {"0010", 2}, {"0011", 3}, {"0100", 4},  {"0101", 5}, {"0110", 6},
                 {"0111", 8}, {"1011", 7}, {"1100", 8}, {"1101", 24}, {"1110", 8}};
    for (const auto &each : cases)
        ExpectMeaning(std::string("00010 0011 ") + each.szBits + " 000",
                      {48000, each.nChannels, 1024});
    for (const char *szReserved : {"1000", "1001", "1010", "1111"})
        ExpectNone(std::string("00010 0011 ") + szReserved + " 000");
}

TEST(MediaAacConfig, ShortFrames)
{
    ExpectMeaning("00010 0011 0010 1 0 0", {48000, 2, 960});
    ExpectMeaning("10111 0011 0010 0 0 0", {48000, 2, 512});
    ExpectMeaning("10111 0011 0010 1 0 0", {48000, 2, 480});
    ExpectMeaning("11111 000111 0011 0010 0 000", {48000, 2, 512});
    ExpectMeaning("11111 000111 0011 0010 1 000", {48000, 2, 480});
    ExpectMeaning("10001 0011 0010 1 0 0", {48000, 2, 960});
    ExpectMeaning("10011 0011 0010 0 0 0", {48000, 2, 1024});
}

TEST(MediaAacConfig, BandReplicationInFrontSetsTheRate)
{
    ExpectMeaning("00101 0110 0010 0011 00010 000", {48000, 2, 2048});
    ExpectMeaning("00101 0110 0010 0110 00010 000", {24000, 2, 1024});
    ExpectMeaning("00101 0110 0010 0011 00010 1 00", {48000, 2, 1920});
    ExpectMeaning("11101 0111 0001 0100 00010 000", {44100, 2, 2048});
    ExpectMeaning("00101 1111 000000000101110111000000 0010 0011 00010 000", {48000, 2, 2048});
}

TEST(MediaAacConfig, BandReplicationBehindLeavesTheRate)
{
    ExpectMeaning("00010 0110 0010 000 01010110111 00101 1 0011", {24000, 2, 1024});
}

TEST(MediaAacConfig, ProgramConfigElementTellsTheChannels)
{
    // Tag, object type, rate; 2 front (a pair, a single), no side, 1 back (a pair), 1 LFE; no
    // associated data, no coupling; no mixdown; the elements.
    ExpectMeaning("00010 0011 0000 000 0000 01 0011 0010 0000 0001 01 000 0000 0 0 0"
                  "1 0000 0 0001 1 0010 0001",
                  {48000, 6, 1024});
    // The same with all mixdowns.
    ExpectMeaning("00010 0011 0000 000 0000 01 0011 0010 0000 0001 01 000 0000 1 0101 1 0101 1 010"
                  "1 0000 0 0001 1 0010 0001",
                  {48000, 6, 1024});
    // Behind the delay of a core coder.
    ExpectMeaning("00010 0011 0000 0 1 11111111111111 0 0000 01 0011 0001 0000 0000 00 000 0000"
                  "0 0 0 0 0000",
                  {48000, 1, 1024});
    ExpectNone("00010 0011 0000 000 0000 01 0011 0000 0000 0000 00 000 0000 0 0 0");
}

TEST(MediaAacConfig, OfOtherKindsIsNone)
{
    ExpectNone("00000 0100 0010 000");         // no object type
    ExpectNone("00111 0100 0010 000");         // TwinVQ
    ExpectNone("11111 001010 0011 0010 0000"); // another codec's extension
    ExpectNone("00010 1101 0010 000");         // a reserved rate
    ExpectNone("00010 1110 0010 000");
    ExpectNone("00101 0110 0010 0100 00010 000"); // 24,000 and 44,100
    ExpectNone("00101 0110 0010 0011 00101 000"); // twice SBR
    ExpectNone("00010 1111 000000000000000000000000 0010 000");
}

TEST(MediaAacConfig, CutOffIsNone)
{
    const std::string whole = Bits("00010 0011 0000 000 0000 01 0011 0010 0000 0001 01 000 0000"
                                   "0 0 0 1 0000 0 0001 1 0010 0001");
    KovaAacConfig config;
    for (size_t nSize = 0; nSize + 1 < whole.size(); nSize++)
        EXPECT_FALSE(Read(whole.substr(0, nSize), &config)) << nSize;
    EXPECT_TRUE(Read(whole + std::string(64 - whole.size(), '\0'), &config));
    EXPECT_FALSE(Read(whole + std::string(65 - whole.size(), '\0'), &config));
}

TEST(MediaAacConfig, RandomBytesAreReadSafely)
{
    std::mt19937 random(5);
    unsigned nKnown = 0;
    for (int n = 0; n < 50000; n++) {
        std::string bytes(random() % 20, '\0');
        for (char &nByte : bytes)
            nByte = static_cast<char>(random());
        KovaAacConfig config;
        if (!Read(bytes, &config))
            continue;
        nKnown++;
        EXPECT_GT(config.nChannels, 0U);
        EXPECT_GT(config.nRate, 0U);
        EXPECT_GE(config.nFrameTicks, 480U);
        EXPECT_LE(config.nFrameTicks, 2048U);
    }
    EXPECT_GT(nKnown, 1000U);
}

KovaLiveTrackConfig WithAudio(uint32_t nForm, const std::string &bytes)
{
    KovaLiveTrackConfig config = KovaMediaConfig(KOVA_LIVE_AAC, nForm);
    config.audio_config = reinterpret_cast<const uint8_t *>(bytes.data());
    config.audio_config_size = static_cast<uint32_t>(bytes.size());
    return config;
}

TEST(MediaTrackConfig, IsRefusedWhereItMakesNoSense)
{
    const auto created = [](const KovaLiveTrackConfig &config, uint32_t nMaxPacket = 1400) {
        return KovaMediaTrack(config, nMaxPacket).Created();
    };
    EXPECT_EQ(created(KovaMediaConfig(0)), KOVA_LIVE_ERROR_CODEC);
    EXPECT_EQ(created(KovaMediaConfig(KOVA_LIVE_H265)), KOVA_LIVE_ERROR_CODEC);
    EXPECT_EQ(created(KovaMediaConfig(4)), KOVA_LIVE_ERROR_CODEC);
    EXPECT_EQ(created(KovaMediaConfig(KOVA_LIVE_H264, KOVA_LIVE_FORM_ADTS)),
              KOVA_LIVE_ERROR_ARGUMENT);
    EXPECT_EQ(created(KovaMediaConfig(KOVA_LIVE_H264, 5)), KOVA_LIVE_ERROR_ARGUMENT);
    EXPECT_EQ(created(KovaMediaConfig(KOVA_LIVE_AAC, KOVA_LIVE_FORM_LENGTH)),
              KOVA_LIVE_ERROR_ARGUMENT);
    EXPECT_EQ(created(KovaMediaConfig(KOVA_LIVE_AAC, KOVA_LIVE_FORM_RAW)),
              KOVA_LIVE_ERROR_ARGUMENT);
    KovaLiveTrackConfig config = KovaMediaConfig(KOVA_LIVE_H264, KOVA_LIVE_FORM_LENGTH);
    for (const uint32_t nLength : {3U, 5U, 8U}) {
        config.length_size = nLength;
        EXPECT_EQ(created(config), KOVA_LIVE_ERROR_ARGUMENT);
    }
    EXPECT_EQ(created(KovaMediaConfig(KOVA_LIVE_H264), 63), KOVA_LIVE_ERROR_ARGUMENT);
    EXPECT_EQ(created(KovaMediaConfig(KOVA_LIVE_H264), 65536), KOVA_LIVE_ERROR_ARGUMENT);
    const std::string good = Bits("00010 0100 0010 000");
    const std::string large(65, '\x12');
    EXPECT_EQ(created(WithAudio(KOVA_LIVE_FORM_RAW, good)), KOVA_LIVE_OK);
    EXPECT_EQ(created(WithAudio(KOVA_LIVE_FORM_RAW, good.substr(0, 1))), KOVA_LIVE_ERROR_ARGUMENT);
    EXPECT_EQ(created(WithAudio(KOVA_LIVE_FORM_RAW, large)), KOVA_LIVE_ERROR_ARGUMENT);
    EXPECT_EQ(created(WithAudio(KOVA_LIVE_FORM_RAW, std::string(2, '\0'))), KOVA_LIVE_ERROR_DATA);
    config = WithAudio(KOVA_LIVE_FORM_RAW, good);
    config.audio_config = nullptr;
    EXPECT_EQ(created(config), KOVA_LIVE_ERROR_ARGUMENT);
}

} // namespace
