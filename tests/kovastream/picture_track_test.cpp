#include "picture_track.h"

#include "door.h"
#include "failure.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

extern "C" {
#include <libavutil/mem.h>
}

namespace {

using kovastream::PictureTrack;
using kovastream::Unit;
using Bytes = std::vector<uint8_t>;

const Bytes kSps = {0, 0, 0, 1, 0x67, 0x42, 0xC0, 0x1E, 0xF0, 0x11};
const Bytes kPps = {0, 0, 0, 1, 0x68, 0xCE, 0x3C, 0x80};
const Bytes kIdr = {0, 0, 0, 1, 0x65, 0x88, 0x84, 0x21};

Bytes Joined(std::initializer_list<Bytes> parts)
{
    Bytes whole;
    for (const Bytes &part : parts)
        whole.insert(whole.end(), part.begin(), part.end());
    return whole;
}

/// What the classic server asks for.
const kovastream::Limits kFixed = kovastream::kClassicDoor.limits;

struct PictureTrackTest : testing::Test {
    kovastream::Format format{avformat_alloc_context()};
    AVStream *stream = avformat_new_stream(format.get(), nullptr);
    Unit unit;

    PictureTrackTest()
    {
        stream->codecpar->codec_type = AVMEDIA_TYPE_VIDEO;
        stream->codecpar->codec_id = AV_CODEC_ID_H264;
        stream->time_base = {1, 90000};
        stream->start_time = 0;
    }

    /// What stands in front of the track.
    void Tell(const Bytes &sets)
    {
        AVCodecParameters *codec = stream->codecpar;
        av_freep(&codec->extradata);
        codec->extradata =
            static_cast<uint8_t *>(av_mallocz(sets.size() + AV_INPUT_BUFFER_PADDING_SIZE));
        codec->extradata_size = static_cast<int>(sets.size());
        memcpy(codec->extradata, sets.data(), sets.size());
    }

    const Bytes &Convert(PictureTrack *track, const Bytes &picture, bool key = true)
    {
        kovastream::Packet packet(av_packet_alloc());
        av_new_packet(packet.get(), static_cast<int>(picture.size()));
        memcpy(packet->data, picture.data(), picture.size());
        packet->flags = key ? AV_PKT_FLAG_KEY : 0;
        EXPECT_TRUE(track->Convert(packet.get(), &unit));
        return unit.bytes;
    }
};

TEST_F(PictureTrackTest, KeyFrameThatHasAllSetsStaysAsItIs)
{
    Tell(Joined({kSps, kPps}));
    PictureTrack track("in", *stream, false, 0, kFixed);
    const Bytes whole = Joined({kSps, kPps, kIdr});
    EXPECT_EQ(Convert(&track, whole), whole);
}

TEST_F(PictureTrackTest, KeyFrameThatLacksSomeSetsGetsAll)
{
    Tell(Joined({kSps, kPps}));
    PictureTrack track("in", *stream, false, 0, kFixed);
    EXPECT_EQ(Convert(&track, Joined({kSps, kIdr})), Joined({kSps, kPps, kSps, kIdr}));
    // One that comes twice stands for no other.
    EXPECT_EQ(Convert(&track, Joined({kSps, kSps, kIdr})), Joined({kSps, kPps, kSps, kSps, kIdr}));
}

TEST_F(PictureTrackTest, OtherPicturesGetNoSets)
{
    Tell(Joined({kSps, kPps}));
    PictureTrack track("in", *stream, false, 0, kFixed);
    const Bytes picture = {0, 0, 0, 1, 0x41, 0x9A, 0x21};
    EXPECT_EQ(Convert(&track, picture, false), picture);
}

TEST_F(PictureTrackTest, SetsOf189BytesAreTheLongest)
{
    Bytes longest = kSps;
    longest.resize(4 + 189, 0x55);
    Tell(Joined({longest, kPps}));
    EXPECT_NO_THROW(PictureTrack("in", *stream, false, 0, kFixed));
    longest.push_back(0x55);
    Tell(Joined({longest, kPps}));
    EXPECT_THROW(PictureTrack("in", *stream, false, 0, kFixed), kovastream::Failure);
}

TEST_F(PictureTrackTest, SetsOfAnyLengthAreTakenWhereTheyGoInBand)
{
    Bytes longest = kSps;
    longest.resize(4 + 1000, 0x55);
    Tell(Joined({longest, kPps}));
    EXPECT_NO_THROW(PictureTrack("in", *stream, false, 0, kovastream::kLiveDoor.limits));
}

TEST_F(PictureTrackTest, SetsMayComeLater)
{
    PictureTrack track("in", *stream, false, 0, kovastream::kLiveDoor.limits);
    const Bytes picture = {0, 0, 0, 1, 0x41, 0x9A, 0x21};
    EXPECT_EQ(Convert(&track, picture, false), picture);
    const Bytes whole = Joined({kSps, kPps, kIdr});
    EXPECT_EQ(Convert(&track, whole), whole);
    EXPECT_EQ(Convert(&track, kIdr), whole);
}

TEST_F(PictureTrackTest, PicturesWithoutATimeFollowTheLastOne)
{
    Tell(Joined({kSps, kPps}));
    stream->avg_frame_rate = {50, 1};
    PictureTrack track("in", *stream, false, 0, kFixed);
    Convert(&track, kIdr);
    EXPECT_EQ(unit.decode, 0);
    EXPECT_EQ(unit.duration, 20000);
    Convert(&track, kIdr);
    EXPECT_EQ(unit.decode, 20000);
    EXPECT_EQ(unit.presentation, 20000);
}

} // namespace
