#include "picture_clock.h"

#include "h264_writer.h"

#include <gtest/gtest.h>

namespace {

using kovastream::PictureClock;
using Slice = H264Writer::Slice;
using Times = std::vector<int64_t>;

constexpr int64_t kStep = 40000; // at 25 pictures a second

struct Coded {
    Slice kind;
    int order;
};

/// Pictures in decoding order, four and four: shown are I B b B P, and again.
const std::vector<Coded> kReordered = {{Slice::Idr, 0}, {Slice::P, 8},  {Slice::B, 4},
                                       {Slice::B, 2},   {Slice::B, 6},  {Slice::P, 16},
                                       {Slice::B, 12},  {Slice::B, 10}, {Slice::B, 14}};

struct PictureClockTest : testing::Test {
    kovastream::Format format{avformat_alloc_context()};
    AVStream *stream = avformat_new_stream(format.get(), nullptr);
    Times decode;
    Times shown;

    PictureClockTest()
    {
        stream->codecpar->codec_type = AVMEDIA_TYPE_VIDEO;
        stream->codecpar->codec_id = AV_CODEC_ID_H264;
    }

    /// Fills `decode` and `shown`, in pictures.
    void Run(const std::vector<Coded> &pictures, double rate = 25)
    {
        PictureClock clock(*stream, rate);
        for (const Coded &picture : pictures) {
            H264Writer::Bytes bytes;
            const auto add = [&bytes](const H264Writer::Bytes &unit) {
                bytes.insert(bytes.end(), unit.begin(), unit.end());
            };
            if (picture.kind == Slice::Idr) {
                add(H264Writer::Sps());
                add(H264Writer::Pps());
            }
            add(H264Writer::Picture(picture.kind, picture.order, 0));
            const kovastream::Packet packet(av_packet_alloc());
            ASSERT_EQ(av_new_packet(packet.get(), static_cast<int>(bytes.size())), 0);
            std::copy(bytes.begin(), bytes.end(), packet->data);
            const PictureClock::Times times = clock.Next(*packet);
            EXPECT_EQ(times.decode % kStep, 0);
            EXPECT_EQ(times.presentation % kStep, 0);
            decode.push_back(times.decode / kStep);
            shown.push_back(times.presentation / kStep);
        }
    }
};

TEST_F(PictureClockTest, WithoutBFramesPicturesAreShownAsTheyCome)
{
    Run({{Slice::Idr, 0}, {Slice::P, 2}, {Slice::P, 4}, {Slice::Idr, 0}, {Slice::P, 2}});
    EXPECT_EQ(decode, (Times{0, 1, 2, 3, 4}));
    EXPECT_EQ(shown, (Times{0, 1, 2, 3, 4}));
}

TEST_F(PictureClockTest, BFramesAreShownInTheirOrder)
{
    stream->codecpar->video_delay = 2;
    Run(kReordered);
    EXPECT_EQ(decode, (Times{-2, -1, 0, 1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(shown, (Times{0, 4, 2, 1, 3, 8, 6, 5, 7}));
}

TEST_F(PictureClockTest, OrderBeginsAnewWithEachKeyFrame)
{
    stream->codecpar->video_delay = 1;
    Run({{Slice::Idr, 0},
         {Slice::P, 4},
         {Slice::B, 2},
         {Slice::Idr, 0},
         {Slice::P, 4},
         {Slice::B, 2}});
    EXPECT_EQ(decode, (Times{-1, 0, 1, 2, 3, 4}));
    EXPECT_EQ(shown, (Times{0, 2, 1, 3, 5, 4}));
}

TEST_F(PictureClockTest, BFramesThatNothingToldOfAreFoundFromTheFirstOneOn)
{
    Run(kReordered);
    // The first picture behind them had its place by then.
    EXPECT_EQ(shown, (Times{0, 1, 2, 1, 3, 8, 6, 5, 7}));
    EXPECT_EQ(decode, (Times{0, 1, 2, 2, 2, 3, 4, 5, 6}));
}

TEST_F(PictureClockTest, OrderThatCountsPicturesIsTakenSo)
{
    stream->codecpar->video_delay = 1;
    Run({{Slice::Idr, 0}, {Slice::P, 2}, {Slice::B, 1}, {Slice::P, 4}, {Slice::B, 3}});
    EXPECT_EQ(Times(shown.begin() + 2, shown.end()), (Times{1, 4, 3}));
}

TEST_F(PictureClockTest, OrderThatMakesNoSenseIsNotTaken)
{
    stream->codecpar->video_delay = 1;
    Run({{Slice::Idr, 0}, {Slice::P, 32}, {Slice::P, 100}});
    EXPECT_EQ(shown, (Times{0, 16, 2}));
}

TEST_F(PictureClockTest, UsualRateIsTwentyFive)
{
    Run({{Slice::Idr, 0}, {Slice::P, 2}, {Slice::P, 4}}, 0);
    EXPECT_EQ(shown, (Times{0, 1, 2}));
}

} // namespace
