#include "sound_track.h"

#include "door.h"
#include "failure.h"

#include <gtest/gtest.h>

#include <cstring>
#include <tuple>
#include <vector>

extern "C" {
#include <libavutil/mem.h>
}

namespace {

using kovastream::SoundTrack;
using kovastream::Unit;

constexpr uint32_t kLc = 1;
constexpr uint32_t kIndex48000 = 3;
constexpr uint32_t kIndex44100 = 4;
constexpr int64_t kFrame = 21333; // 1024 samples at 48 kHz

/// What the classic server asks for.
const kovastream::Limits kPlain = kovastream::kClassicDoor.limits;

struct SoundTrackTest : testing::Test {
    kovastream::Format format{avformat_alloc_context()};
    AVStream *stream = avformat_new_stream(format.get(), nullptr);
    Unit unit;

    SoundTrackTest()
    {
        stream->codecpar->codec_type = AVMEDIA_TYPE_AUDIO;
        stream->codecpar->codec_id = AV_CODEC_ID_AAC;
        stream->codecpar->sample_rate = 48000;
        stream->codecpar->ch_layout.nb_channels = 2;
        stream->time_base = {1, 90000};
    }

    static kovastream::Packet Bytes(const std::vector<uint8_t> &bytes)
    {
        kovastream::Packet packet(av_packet_alloc());
        av_new_packet(packet.get(), static_cast<int>(bytes.size()));
        memcpy(packet->data, bytes.data(), bytes.size());
        return packet;
    }

    /// A frame of `payload` bytes behind its ADTS header.
    static kovastream::Packet Frame(uint32_t rate, uint32_t channels, uint32_t profile = kLc,
                                    size_t payload = 10, bool crc = false)
    {
        const size_t head = crc ? 9 : 7;
        const size_t length = head + payload;
        std::vector<uint8_t> bytes = {
            0xFF,
            static_cast<uint8_t>(crc ? 0xF0 : 0xF1),
            static_cast<uint8_t>(profile << 6 | rate << 2 | channels >> 2),
            static_cast<uint8_t>((channels & 3) << 6 | length >> 11),
            static_cast<uint8_t>(length >> 3),
            static_cast<uint8_t>((length & 7) << 5 | 0x1F),
            0xFC};
        bytes.resize(head, 0xCC);
        bytes.resize(length, 0x55);
        return Bytes(bytes);
    }

    SoundTrack::Result Convert(SoundTrack *track, const kovastream::Packet &packet)
    {
        return track->Convert(packet.get(), &unit);
    }
};

using Result = SoundTrack::Result;

TEST_F(SoundTrackTest, FramesKeepTheirHeader)
{
    SoundTrack track("in", *stream, kPlain);
    EXPECT_EQ(Convert(&track, Frame(kIndex48000, 2)), Result::Unit);
    EXPECT_EQ(unit.track, kovastream::TrackKind::Sound);
    EXPECT_EQ(unit.bytes,
              (std::vector<uint8_t>{0xFF, 0xF1, 0x4C, 0x80, 0x02, 0x3F, 0xFC, 0x55, 0x55, 0x55,
                                    0x55, 0x55, 0x55, 0x55, 0x55, 0x55, 0x55}));
}

TEST_F(SoundTrackTest, ChecksumIsTakenOut)
{
    SoundTrack track("in", *stream, kPlain);
    EXPECT_EQ(Convert(&track, Frame(kIndex48000, 2, kLc, 1, true)), Result::Unit);
    EXPECT_EQ(unit.bytes, (std::vector<uint8_t>{0xFF, 0xF1, 0x4C, 0x80, 0x01, 0x1F, 0xFC, 0x55}));
}

TEST_F(SoundTrackTest, FirstFrameTellsTheRateOfTheFrames)
{
    // With band replication the track has twice the rate of its frames.
    SoundTrack track("in", *stream, kPlain);
    EXPECT_EQ(track.SampleRate(), 48000U);
    EXPECT_EQ(Convert(&track, Frame(6, 1)), Result::Unit);
    EXPECT_EQ(track.SampleRate(), 24000U);
    EXPECT_EQ(track.Channels(), 1U);
}

TEST_F(SoundTrackTest, DamagedHeadersChangeNothing)
{
    SoundTrack track("in", *stream, kPlain);
    EXPECT_EQ(Convert(&track, Frame(kIndex48000, 2)), Result::Unit);
    for (int i = 0; i < 5; i++) {
        EXPECT_EQ(Convert(&track, Frame(kIndex44100, 2)), Result::None);
        EXPECT_EQ(Convert(&track, Frame(kIndex44100, 2)), Result::None);
        EXPECT_EQ(Convert(&track, Frame(kIndex48000, 6)), Result::None);
        EXPECT_EQ(Convert(&track, Frame(kIndex48000, 2, 0)), Result::None);
        EXPECT_EQ(Convert(&track, Frame(kIndex48000, 2)), Result::Unit);
    }
    EXPECT_EQ(track.SampleRate(), 48000U);
    EXPECT_EQ(track.Channels(), 2U);
}

TEST_F(SoundTrackTest, AnotherFormatCountsAtItsThirdFrame)
{
    SoundTrack track("in", *stream, kPlain);
    EXPECT_EQ(Convert(&track, Frame(kIndex48000, 2)), Result::Unit);
    EXPECT_EQ(Convert(&track, Frame(kIndex44100, 1)), Result::None);
    EXPECT_EQ(Convert(&track, Frame(kIndex44100, 1)), Result::None);
    EXPECT_EQ(track.SampleRate(), 48000U);
    EXPECT_EQ(Convert(&track, Frame(kIndex44100, 1)), Result::Unit);
    EXPECT_EQ(track.SampleRate(), 44100U);
    EXPECT_EQ(track.Channels(), 1U);
    EXPECT_EQ(Convert(&track, Frame(kIndex44100, 1)), Result::Unit);
}

TEST_F(SoundTrackTest, RatesThatDoNotExistAreNeverBelieved)
{
    SoundTrack track("in", *stream, kPlain);
    for (int i = 0; i < 10; i++)
        EXPECT_EQ(Convert(&track, Frame(13, 2)), Result::None);
    EXPECT_EQ(track.SampleRate(), 48000U);
}

TEST_F(SoundTrackTest, MoreThanThreeChannelsAreRefusedInMidStream)
{
    SoundTrack track("in", *stream, kPlain);
    EXPECT_EQ(Convert(&track, Frame(kIndex48000, 3)), Result::Unit);
    EXPECT_EQ(Convert(&track, Frame(kIndex48000, 4)), Result::None);
    EXPECT_EQ(Convert(&track, Frame(kIndex48000, 4)), Result::None);
    EXPECT_THROW(Convert(&track, Frame(kIndex48000, 4)), kovastream::Failure);
}

TEST_F(SoundTrackTest, OtherProfilesAreRefused)
{
    SoundTrack track("in", *stream, kPlain);
    EXPECT_EQ(Convert(&track, Frame(kIndex48000, 2, 0)), Result::None);
    EXPECT_EQ(Convert(&track, Frame(kIndex48000, 2, 0)), Result::None);
    EXPECT_THROW(Convert(&track, Frame(kIndex48000, 2, 0)), kovastream::Failure);
}

TEST_F(SoundTrackTest, FramesFrom1024To2047BytesAreTooLarge)
{
    SoundTrack track("in", *stream, kPlain);
    const auto of = [this, &track](size_t whole) {
        return Convert(&track, Frame(kIndex48000, 2, kLc, whole - 7));
    };
    EXPECT_EQ(of(7), Result::None);
    EXPECT_EQ(of(8), Result::Unit);
    EXPECT_EQ(of(1023), Result::Unit);
    EXPECT_EQ(of(1024), Result::TooLarge);
    EXPECT_EQ(of(2047), Result::TooLarge);
    EXPECT_EQ(of(2048), Result::Unit);
}

TEST_F(SoundTrackTest, FramesWithoutATimeFollowTheLastOne)
{
    SoundTrack track("in", *stream, kPlain);
    kovastream::Packet first = Frame(kIndex48000, 2);
    first->pts = 90000;
    EXPECT_EQ(Convert(&track, first), Result::Unit);
    EXPECT_EQ(unit.presentation, 1000000);
    EXPECT_EQ(unit.decode, 1000000);
    EXPECT_EQ(unit.duration, kFrame);
    EXPECT_EQ(Convert(&track, Frame(kIndex48000, 2)), Result::Unit);
    EXPECT_EQ(unit.presentation, 1000000 + kFrame);
}

// Without limits.

const kovastream::Limits kAny = kovastream::kLiveDoor.limits;

struct AnySoundTest : SoundTrackTest {
    void Tell(const std::vector<uint8_t> &configuration)
    {
        AVCodecParameters *codec = stream->codecpar;
        codec->extradata =
            static_cast<uint8_t *>(av_mallocz(configuration.size() + AV_INPUT_BUFFER_PADDING_SIZE));
        codec->extradata_size = static_cast<int>(configuration.size());
        memcpy(codec->extradata, configuration.data(), configuration.size());
    }
};

TEST_F(AnySoundTest, FramesWithAHeaderStayAsTheyAre)
{
    SoundTrack track("in", *stream, kAny);
    for (const auto &[profile, channels, size] :
         {std::tuple{0U, 1U, 1024U}, {1U, 6U, 2000U}, {3U, 7U, 8180U}}) {
        SCOPED_TRACE(profile);
        SoundTrack each("in", *stream, kAny);
        const kovastream::Packet frame = Frame(kIndex48000, channels, profile, size, true);
        const std::vector<uint8_t> bytes(frame->data, frame->data + frame->size);
        EXPECT_EQ(Convert(&each, frame), Result::Unit);
        EXPECT_EQ(unit.bytes, bytes);
        EXPECT_EQ(each.Channels(), channels == 7 ? 8 : channels);
        EXPECT_TRUE(each.Configuration().empty());
    }
}

TEST_F(AnySoundTest, FramesBesideAConfigurationStayAsTheyAre)
{
    const std::vector<uint8_t> configuration = {0x2B, 0x11, 0x88, 0x00}; // HE-AAC, 24 to 48 kHz
    Tell(configuration);
    SoundTrack track("in", *stream, kAny);
    EXPECT_EQ(track.Configuration(), configuration);
    EXPECT_EQ(track.SampleRate(), 48000U);
    EXPECT_EQ(Convert(&track, Bytes({0x21})), Result::Unit);
    EXPECT_EQ(unit.bytes, std::vector<uint8_t>{0x21});
}

TEST_F(AnySoundTest, OtherCodecsThanAacAreRefused)
{
    Tell({0xF9, 0x46, 0x40, 0x00}); // USAC, 42
    EXPECT_THROW(SoundTrack("in", *stream, kAny), kovastream::Failure);
}

TEST_F(AnySoundTest, LowDelayIsTaken)
{
    Tell({0xF8, 0xE6, 0x40, 0x00}); // ELD, 39
    EXPECT_NO_THROW(SoundTrack("in", *stream, kAny));
}

TEST_F(AnySoundTest, NewConfigurationComesWithItsFirstFrame)
{
    Tell({0x11, 0x90});
    SoundTrack track("in", *stream, kAny);
    const kovastream::Packet packet = Bytes({0x21});
    const std::vector<uint8_t> next = {0x12, 0x10};
    memcpy(av_packet_new_side_data(packet.get(), AV_PKT_DATA_NEW_EXTRADATA, next.size()),
           next.data(), next.size());
    EXPECT_EQ(track.SampleRate(), 48000U);
    EXPECT_EQ(Convert(&track, packet), Result::Unit);
    EXPECT_EQ(track.Configuration(), next);
    EXPECT_EQ(track.SampleRate(), 44100U);
    EXPECT_EQ(track.Channels(), 2U);
}

TEST_F(AnySoundTest, HeadersThatTellNoChannelsAreRefused)
{
    SoundTrack track("in", *stream, kAny);
    EXPECT_EQ(Convert(&track, Frame(kIndex48000, 2)), Result::Unit);
    EXPECT_EQ(Convert(&track, Frame(kIndex48000, 0)), Result::None);
    EXPECT_EQ(Convert(&track, Frame(kIndex48000, 0)), Result::None);
    EXPECT_THROW(Convert(&track, Frame(kIndex48000, 0)), kovastream::Failure);
}

} // namespace
