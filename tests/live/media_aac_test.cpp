#include "kova_live.h"
#include "tests/live/media_track.h"

#include <gtest/gtest.h>

namespace {

constexpr uint32_t kMax = 1400;
constexpr uint32_t kMaxPayload = kMax - 12;

/// Bytes of a frame; in them everything may stand.
std::string Frame(size_t nSize, unsigned nSeed = 0)
{
    std::string frame(nSize, '\0');
    for (size_t n = 0; n < nSize; n++)
        frame[n] = static_cast<char>(n * 13 + nSeed);
    return frame;
}

KovaLiveTrackConfig RawConfig(const std::string &config)
{
    KovaLiveTrackConfig record = KovaMediaConfig(KOVA_LIVE_AAC, KOVA_LIVE_FORM_RAW);
    record.audio_config = reinterpret_cast<const uint8_t *>(config.data());
    record.audio_config_size = static_cast<uint32_t>(config.size());
    return record;
}

const std::string kLc44100 = KovaMediaBytes({0x12, 0x10});

std::vector<std::string> Bytes(const KovaMediaUnit &unit)
{
    std::vector<std::string> frames;
    for (const KovaMediaFrame &frame : KovaMediaFrames(unit, 1024))
        frames.push_back(frame.bytes);
    return frames;
}

struct MediaAac : testing::Test {
    KovaMediaTrack adts{KovaMediaConfig(KOVA_LIVE_AAC)};
    KovaMediaTrack raw{RawConfig(kLc44100)};
};

TEST_F(MediaAac, FrameIsAPacketWithItsHeader)
{
    const KovaMediaUnit unit = adts.Push(KovaMediaAdts("abcdef"));
    ASSERT_EQ(unit.packets.size(), 1U);
    EXPECT_EQ(unit.packets[0].payload, KovaMediaBytes({0, 16, 0, 6 << 3}) + "abcdef");
    EXPECT_TRUE(unit.packets[0].bMarker);
    EXPECT_TRUE(unit.bEntry && unit.bReference && !unit.bKey);
}

TEST_F(MediaAac, FramesOfEveryLengthComeThrough)
{
    for (size_t nSize = 1; nSize <= 8191; nSize += nSize < 40 ? 1 : 7) {
        const std::string frame = Frame(nSize, static_cast<unsigned>(nSize));
        EXPECT_EQ(Bytes(raw.Push(frame)), std::vector<std::string>{frame}) << nSize;
        if (nSize + 9 > 8191)
            continue;
        EXPECT_EQ(Bytes(adts.Push(KovaMediaAdts(frame))), std::vector<std::string>{frame});
        KovaAdtsKind kind;
        kind.bCrc = true;
        EXPECT_EQ(Bytes(adts.Push(KovaMediaAdts(frame, kind))), std::vector<std::string>{frame});
    }
}

TEST_F(MediaAac, FrameAboveAPacketIsFragmentedEachWithTheWholeSize)
{
    for (size_t nSize = kMaxPayload - 8; nSize <= kMaxPayload; nSize++) {
        const KovaMediaUnit unit = raw.Push(Frame(nSize));
        EXPECT_EQ(Bytes(unit), std::vector<std::string>{Frame(nSize)});
        EXPECT_EQ(unit.packets.size(), nSize <= kMaxPayload - 4 ? 1U : 2U) << nSize;
    }
    constexpr size_t kPart = kMaxPayload - 4;
    const std::string frame = Frame(2 * kPart + 5);
    const KovaMediaUnit unit = raw.Push(frame);
    ASSERT_EQ(unit.packets.size(), 3U);
    const int nSize = static_cast<int>(frame.size()) << 3;
    const std::string header = KovaMediaBytes({0, 16, nSize >> 8, nSize & 255});
    for (size_t n = 0; n < 3; n++) {
        EXPECT_EQ(unit.packets[n].payload, header + frame.substr(n * kPart, kPart));
        EXPECT_EQ(unit.packets[n].bMarker, n == 2);
        EXPECT_EQ(unit.packets[n].nTimestamp, unit.nTimestamp);
    }
}

TEST_F(MediaAac, LargestFrameIs8191Bytes)
{
    EXPECT_EQ(Bytes(raw.Push(Frame(8191))), std::vector<std::string>{Frame(8191)});
    EXPECT_EQ(raw.Push(Frame(8192)).nResult, KOVA_LIVE_ERROR_TOO_LARGE);
    EXPECT_EQ(raw.Push("").nResult, KOVA_LIVE_ERROR_DATA);
}

TEST_F(MediaAac, SmallFramesOfOnePushShareAPacket)
{
    const KovaMediaUnit unit =
        adts.Push(KovaMediaAdts("one") + KovaMediaAdts("three") + KovaMediaAdts("x"));
    ASSERT_EQ(unit.packets.size(), 1U);
    EXPECT_EQ(unit.packets[0].payload,
              KovaMediaBytes({0, 48, 0, 3 << 3, 0, 5 << 3, 0, 1 << 3}) + "onethreex");
    EXPECT_EQ(Bytes(unit), (std::vector<std::string>{"one", "three", "x"}));
}

TEST_F(MediaAac, PacketIsFilledUpToItsLimit)
{
    // 2 + 2 + 100 + 2 + n
    for (size_t n = kMaxPayload - 110; n <= kMaxPayload - 100; n++) {
        const KovaMediaUnit unit =
            adts.Push(KovaMediaAdts(Frame(100)) + KovaMediaAdts(Frame(n, 3)));
        EXPECT_EQ(Bytes(unit), (std::vector<std::string>{Frame(100), Frame(n, 3)}));
        EXPECT_EQ(unit.packets.size(), n <= kMaxPayload - 106 ? 1U : 2U) << n;
    }
}

TEST_F(MediaAac, FramesOfOnePushFollowEachOtherByTheirLength)
{
    std::string data;
    std::vector<std::string> sent;
    for (const size_t nSize : {300U, 400U, 700U, 5000U, 20U, 30U, 1384U, 1385U, 10U}) {
        sent.push_back(Frame(nSize, static_cast<unsigned>(nSize)));
        data += KovaMediaAdts(sent.back());
    }
    const KovaMediaUnit unit = adts.Push(data, 1000000);
    const std::vector<KovaMediaFrame> frames = KovaMediaFrames(unit, 1024);
    ASSERT_EQ(frames.size(), sent.size());
    for (size_t n = 0; n < frames.size(); n++) {
        EXPECT_EQ(frames[n].bytes, sent[n]);
        EXPECT_EQ(frames[n].nTimestamp, unit.nTimestamp + static_cast<uint32_t>(n) * 1024) << n;
    }
}

TEST_F(MediaAac, PacketHas4095FramesAtMost)
{
    KovaMediaTrack wide(KovaMediaConfig(KOVA_LIVE_AAC), 65000);
    std::string data;
    for (unsigned n = 0; n < 4096; n++)
        data += KovaMediaAdts(Frame(1, n));
    const KovaMediaUnit unit = wide.Push(data);
    ASSERT_EQ(unit.packets.size(), 2U);
    EXPECT_EQ(unit.packets[0].payload.size(), 2U + 3 * 4095);
    EXPECT_EQ(unit.packets[0].payload.substr(0, 2), KovaMediaBytes({0xFF, 0xF0}));
    EXPECT_EQ(unit.packets[1].nTimestamp, unit.nTimestamp + 4095 * 1024);
    EXPECT_EQ(Bytes(unit).size(), 4096U);
}

TEST_F(MediaAac, PushThatIsNotWholeFramesIsRefusedWhole)
{
    const std::string frame = KovaMediaAdts(Frame(40));
    const uint16_t nNext = static_cast<uint16_t>(adts.Push(frame).nFirstSequence + 1);
    const std::string two = frame + frame;
    for (size_t nSize = 0; nSize < two.size(); nSize++) {
        if (nSize != frame.size()) {
            EXPECT_EQ(adts.Push(two.substr(0, nSize)).nResult, KOVA_LIVE_ERROR_DATA) << nSize;
        }
    }
    KovaAdtsKind kind;
    kind.nBlocks = 1;
    EXPECT_EQ(adts.Push(KovaMediaAdts("abc", kind)).nResult, KOVA_LIVE_ERROR_DATA);
    kind = {};
    kind.nRateIndex = 13;
    EXPECT_EQ(adts.Push(KovaMediaAdts("abc", kind)).nResult, KOVA_LIVE_ERROR_DATA);
    kind.nRateIndex = 15;
    EXPECT_EQ(adts.Push(KovaMediaAdts("abc", kind)).nResult, KOVA_LIVE_ERROR_DATA);
    kind = {};
    kind.nChannels = 1;
    EXPECT_EQ(adts.Push(frame + KovaMediaAdts("abc", kind)).nResult, KOVA_LIVE_ERROR_DATA);
    EXPECT_EQ(adts.Push(KovaMediaAdts("")).nResult, KOVA_LIVE_ERROR_DATA);
    kind = {};
    kind.bCrc = true;
    EXPECT_EQ(adts.Push(KovaMediaAdts("", kind)).nResult, KOVA_LIVE_ERROR_DATA);
    std::string layer = frame;
    layer[1] |= 2;
    EXPECT_EQ(adts.Push(layer).nResult, KOVA_LIVE_ERROR_DATA);
    EXPECT_EQ(adts.Push(frame).nFirstSequence, nNext);
}

TEST_F(MediaAac, DescribesWhatTheFirstHeaderSays)
{
    EXPECT_FALSE(KovaTrackMediaKnown(adts.Media()));
    EXPECT_EQ(KovaTrackMediaClockRate(adts.Media()), 0U);
    EXPECT_EQ(adts.Description(), "");
    adts.Push(KovaMediaAdts("abc"));
    EXPECT_TRUE(KovaTrackMediaKnown(adts.Media()));
    EXPECT_EQ(KovaTrackMediaClockRate(adts.Media()), 44100U);
    EXPECT_EQ(adts.Description(),
              "m=audio 0 RTP/AVP 97\r\n"
              "a=rtpmap:97 mpeg4-generic/44100/2\r\n"
              "a=fmtp:97 streamtype=5;profile-level-id=1;mode=AAC-hbr;sizelength=13;"
              "indexlength=3;indexdeltalength=3;config=1210\r\n"
              "a=control:track1\r\n");
}

TEST_F(MediaAac, DescriptionFollowsTheHeaders)
{
    adts.Push(KovaMediaAdts("abc"));
    KovaAdtsKind kind;
    kind.nRateIndex = 11;
    kind.nChannels = 7;
    kind.nProfile = 3;
    adts.Push(KovaMediaAdts("abc", kind));
    EXPECT_NE(adts.Description().find("mpeg4-generic/8000/8\r\n"), std::string::npos);
    EXPECT_NE(adts.Description().find("config=25B8\r\n"), std::string::npos);
    EXPECT_EQ(KovaTrackMediaClockRate(adts.Media()), 8000U);
}

TEST_F(MediaAac, EveryRateOfAdtsIsKnown)
{
    constexpr unsigned kRates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                   22050, 16000, 12000, 11025, 8000,  7350};
    for (unsigned nIndex = 0; nIndex < 13; nIndex++) {
        KovaAdtsKind kind;
        kind.nRateIndex = nIndex;
        ASSERT_TRUE(adts.Push(KovaMediaAdts("abc", kind)).bUnit);
        EXPECT_EQ(KovaTrackMediaClockRate(adts.Media()), kRates[nIndex]);
    }
}

TEST_F(MediaAac, HeaderWithoutChannelsNeedsTheHostsConfiguration)
{
    KovaAdtsKind kind;
    kind.nChannels = 0;
    EXPECT_EQ(adts.Push(KovaMediaAdts("abc", kind)).nResult, KOVA_LIVE_ERROR_DATA);
    KovaLiveTrackConfig config = RawConfig(kLc44100);
    config.form = KOVA_LIVE_FORM_ADTS;
    KovaMediaTrack told(config);
    ASSERT_TRUE(told.Push(KovaMediaAdts("abc", kind)).bUnit);
    EXPECT_NE(told.Description().find("config=1210\r\n"), std::string::npos);
}

TEST_F(MediaAac, HostsConfigurationStaysAsLongAsTheHeadersMeanTheSame)
{
    // AAC LC at 24,000 Hz, and in front of it SBR with 48,000 Hz.
    const std::string sbr = KovaMediaBytes({0x2B, 0x11, 0x88, 0x00});
    KovaLiveTrackConfig config = RawConfig(sbr);
    config.form = KOVA_LIVE_FORM_ADTS;
    KovaMediaTrack told(config);
    ASSERT_EQ(told.Created(), KOVA_LIVE_OK);
    EXPECT_TRUE(KovaTrackMediaKnown(told.Media()));
    KovaAdtsKind kind;
    kind.nRateIndex = 6;
    const KovaMediaUnit unit =
        told.Push(KovaMediaAdts("abc", kind) + KovaMediaAdts(Frame(1384), kind));
    ASSERT_EQ(unit.packets.size(), 2U);
    EXPECT_EQ(unit.packets[1].nTimestamp, unit.nTimestamp + 2048);
    EXPECT_NE(told.Description().find("mpeg4-generic/48000/2\r\n"), std::string::npos);
    EXPECT_EQ(KovaTrackMediaClockRate(told.Media()), 48000U);
    EXPECT_EQ(told.Push(KovaMediaAdts("abc", kind), 1000000).nTimestamp, unit.nTimestamp + 48000);
    EXPECT_NE(told.Description().find("config=2B118800\r\n"), std::string::npos);
    told.Push(KovaMediaAdts("abc"));
    EXPECT_NE(told.Description().find("config=1210\r\n"), std::string::npos);
    told.Push(KovaMediaAdts("abc", kind));
    EXPECT_NE(told.Description().find("config=2B118800\r\n"), std::string::npos);
    KovaAdtsKind other = kind;
    other.nChannels = 1;
    told.Push(KovaMediaAdts("abc", other));
    EXPECT_NE(told.Description().find("config=1308\r\n"), std::string::npos);
    other = kind;
    other.nProfile = 0;
    told.Push(KovaMediaAdts("abc", other));
    EXPECT_NE(told.Description().find("config=0B10\r\n"), std::string::npos);
}

TEST_F(MediaAac, RandomBytesAreTakenOrRefusedAndNothingElse)
{
    std::mt19937 random(4);
    for (int n = 0; n < 20000; n++) {
        std::string data;
        for (unsigned nFrames = random() % 4; nFrames > 0; nFrames--)
            data += KovaMediaAdts(Frame(random() % 90));
        data += std::string(random() % 9, '\xFF');
        if (!data.empty() && n % 3 == 0)
            data[random() % data.size()] = static_cast<char>(random());
        const KovaMediaUnit unit = adts.Push(data);
        ASSERT_TRUE(unit.nResult == KOVA_LIVE_OK || unit.nResult == KOVA_LIVE_ERROR_DATA);
        if (unit.bUnit) {
            KovaMediaFrames(unit, 1024);
        }
    }
}

} // namespace
