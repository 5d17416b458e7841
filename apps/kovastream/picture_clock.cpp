#include "picture_clock.h"

#include <algorithm>
#include <cstdlib>

namespace kovastream {

namespace {

constexpr double kUsualRate = 25;
constexpr double kSecond = 1000000;

/// H.264 keeps at most 16 pictures back (ITU-T H.264, A.3.1); what lies further off is no order.
constexpr int64_t kFurthest = 16;

} // namespace

PictureClock::PictureClock(const AVStream &stream, double rate)
    : m_codec(Made(avcodec_alloc_context3(nullptr))),
      m_parser(Made(av_parser_init(AV_CODEC_ID_H264))), m_rate(rate),
      m_delay(stream.codecpar->video_delay), m_decode(0)
{
    avcodec_parameters_to_context(m_codec.get(), stream.codecpar);
    m_parser->flags |= PARSER_FLAG_COMPLETE_FRAMES;
    if (m_rate <= 0 && stream.avg_frame_rate.num > 0 && stream.avg_frame_rate.den > 0)
        m_rate = av_q2d(stream.avg_frame_rate);
    if (m_rate <= 0)
        m_rate = kUsualRate;
    m_decode = At(-m_delay);
}

int64_t PictureClock::At(int64_t picture) const
{
    return static_cast<int64_t>(static_cast<double>(picture) * kSecond / m_rate);
}

int64_t PictureClock::Duration() const
{
    return At(1);
}

/// The picture's place in the order of showing.
int64_t PictureClock::ShownAs(const AVPacket &packet)
{
    uint8_t *out = nullptr;
    int size = 0;
    m_parser->output_picture_number = 0;
    av_parser_parse2(m_parser.get(), m_codec.get(), &out, &size, packet.data, packet.size,
                     AV_NOPTS_VALUE, AV_NOPTS_VALUE, 0);
    const int order = m_parser->output_picture_number;
    if (m_parser->key_frame == 1 && order == 0)
        m_first = m_count;
    // It counts fields, as a rule; few encoders count pictures.
    if (order % 2 != 0)
        m_step = 1;
    int64_t place = m_first + order / m_step;
    if (std::llabs(place - m_count) > kFurthest)
        place = m_count;
    // What is shown before a picture that was decoded earlier tells how far showing lies behind.
    if (place < m_shown)
        m_delay = std::max(m_delay, m_count - place);
    m_shown = std::max(m_shown, place);
    return place;
}

PictureClock::Times PictureClock::Next(const AVPacket &packet)
{
    const int64_t shown = ShownAs(packet);
    const int64_t place = m_delay > 0 ? shown : m_count;
    // Shown later by the delay, no picture is due before it is decoded.
    m_decode = std::max(m_decode, At(m_count - m_delay));
    m_count++;
    return {m_decode, At(place)};
}

} // namespace kovastream
