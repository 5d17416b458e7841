#include "codec_change.h"

#include "failure.h"
#include "h264_writer.h"
#include "source.h"

#include <gtest/gtest.h>

namespace {

using kovastream::CodecChange;
using kovastream::TrackKind;
using Bytes = H264Writer::Bytes;

const std::string kPictureText =
    "'film.ts': its picture changes to hevc in mid-stream, only H.264 can be streamed; transcode "
    "it:  " +
    kovastream::TranscodeAdvice("film.ts", false, true);
const std::string kSoundText =
    "'film.ts': its sound changes to mp2 in mid-stream, only AAC can be streamed; transcode it:  " +
    kovastream::TranscodeAdvice("film.ts", true, false);

struct CodecChangeTest : testing::Test {
    kovastream::Format format{avformat_alloc_context()};
    AVStream *h264 = Add(AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_H264);
    AVStream *hevc = Add(AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_HEVC);
    AVStream *mp2 = Add(AVMEDIA_TYPE_AUDIO, AV_CODEC_ID_MP2);
    AVStream *words = Add(AVMEDIA_TYPE_SUBTITLE, AV_CODEC_ID_DVB_SUBTITLE);
    CodecChange change{"film.ts"};

    AVStream *Add(AVMediaType kind, AVCodecID codec)
    {
        AVStream *stream = avformat_new_stream(format.get(), nullptr);
        stream->codecpar->codec_type = kind;
        stream->codecpar->codec_id = codec;
        return stream;
    }

    /// The failure's text, empty without one.
    std::string Streamed(TrackKind kind, const std::vector<Bytes> &units = {})
    {
        Bytes all{0};
        for (const Bytes &unit : units)
            all.insert(all.end(), unit.begin(), unit.end());
        const kovastream::Packet packet(av_packet_alloc());
        if (av_new_packet(packet.get(), static_cast<int>(all.size())) != 0)
            return "no memory";
        std::copy(all.begin(), all.end(), packet->data);
        return TextOf([&] { change.Streamed(kind, *packet); });
    }
    std::string Other(const AVStream &stream, int packets)
    {
        std::string text;
        for (int i = 0; i < packets && text.empty(); i++)
            text = TextOf([&] { change.Other(stream); });
        return text;
    }
    template <typename Call> static std::string TextOf(Call call)
    {
        try {
            call();
        } catch (const kovastream::Failure &failure) {
            return failure.what();
        }
        return "";
    }
};

TEST_F(CodecChangeTest, NewTrackInPlaceOfTheOldOneIsNamed)
{
    Streamed(TrackKind::Picture);
    Streamed(TrackKind::Sound);
    EXPECT_EQ(Other(*hevc, 24), "");
    EXPECT_EQ(Other(*mp2, 24), "");
    EXPECT_EQ(Other(*hevc, 1), kPictureText);
    EXPECT_EQ(Other(*mp2, 1), kSoundText);
}

TEST_F(CodecChangeTest, TrackBesideTheStreamedOneIsNoChange)
{
    Streamed(TrackKind::Picture);
    EXPECT_EQ(Other(*hevc, 1), "");
    Streamed(TrackKind::Picture);
    EXPECT_EQ(Other(*hevc, 100), "");
    // That the sound goes on says nothing about the picture, and the other way round.
    Streamed(TrackKind::Sound);
    EXPECT_EQ(Other(*mp2, 24), "");
    Streamed(TrackKind::Picture);
    EXPECT_EQ(Other(*mp2, 1), kSoundText);
}

TEST_F(CodecChangeTest, TrackThatCameFirstIsNoChange)
{
    EXPECT_EQ(Other(*hevc, 100), "");
    Streamed(TrackKind::Picture);
    EXPECT_EQ(Other(*hevc, 100), "");
}

TEST_F(CodecChangeTest, OtherKindsAndTheSameCodecAreNoChange)
{
    Streamed(TrackKind::Picture);
    EXPECT_EQ(Other(*words, 100), "");
    EXPECT_EQ(Other(*h264, 100), "");
}

TEST_F(CodecChangeTest, H265OnTheTrackOfH264IsNamed)
{
    const Bytes aud = {0, 0, 0, 1, 0x46, 1, 0x50};
    const Bytes vps = {0, 0, 0, 1, 0x40, 1, 0x0C, 1};
    const Bytes sps = {0, 0, 1, 0x42, 1, 1, 1};
    EXPECT_EQ(Streamed(TrackKind::Picture, {aud, vps, sps}), kPictureText);
    EXPECT_EQ(Streamed(TrackKind::Picture, {vps}), "");
    EXPECT_EQ(Streamed(TrackKind::Picture, {sps}), "");
    EXPECT_EQ(Streamed(TrackKind::Sound, {vps, sps}), "");
    EXPECT_EQ(Streamed(TrackKind::Picture, {H264Writer::Sps(), H264Writer::Pps(),
                                            H264Writer::Picture(H264Writer::Slice::Idr, 0, 0)}),
              "");
}

} // namespace
