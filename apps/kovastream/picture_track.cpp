#include "picture_track.h"

#include "failure.h"
#include "key_frames.h"
#include "nal_units.h"
#include "source.h"

extern "C" {
#include <libavutil/mem.h>
}

#include <cstring>
#include <vector>

namespace kovastream {

namespace {

// Turns the length fields of MP4, MKV and FLV into start codes.
constexpr char kFilters[] = "h264_mp4toannexb";

/// What the classic server's description holds of one parameter set.
constexpr size_t kLongestParameterSet = 189;

constexpr AVRational kMicroseconds = {1, 1000000};
constexpr int64_t kUsualDuration = 40000;

Filter MakeFilter(const AVCodecParameters &codec, AVRational timeBase)
{
    AVBSFContext *made = nullptr;
    if (av_bsf_list_parse_str(kFilters, &made) < 0)
        throw Failure("FFmpeg's libraries lack a bitstream filter: " + std::string(kFilters));
    Filter filter(made);
    avcodec_parameters_copy(made->par_in, &codec);
    made->time_base_in = timeBase;
    if (av_bsf_init(made) < 0)
        throw Failure("the H.264 parameter sets cannot be read: the input is broken");
    return filter;
}

int64_t DurationOf(const AVStream &stream)
{
    const AVRational rate = stream.avg_frame_rate;
    return rate.num > 0 && rate.den > 0 ? av_rescale(1000000, rate.den, rate.num) : kUsualDuration;
}

} // namespace

PictureTrack::PictureTrack(const std::string &input, const AVStream &stream, bool raw, double fps,
                           const Limits &limits)
    : m_input(input), m_fixedSets(limits.fixedSets), m_timeBase(stream.time_base),
      m_usualDuration(DurationOf(stream)), m_filter(MakeFilter(*stream.codecpar, stream.time_base)),
      m_lastDecode(AV_NOPTS_VALUE)
{
    m_sets.Take(m_filter->par_out->extradata,
                static_cast<size_t>(m_filter->par_out->extradata_size));
    CheckParameterSets();
    if (raw)
        m_clock.emplace(stream, fps);
    else if (stream.start_time == AV_NOPTS_VALUE)
        m_clock.emplace(stream, 0);
}

void PictureTrack::CheckParameterSets() const
{
    if (m_fixedSets && m_sets.Longest() > kLongestParameterSet)
        throw Failure("'" + m_input +
                      "': its H.264 parameter sets are longer than 189 bytes, which no description "
                      "holds; transcode it:  " +
                      TranscodeAdvice(m_input, false, true));
}

/// Containers that hold the parameter sets beside the pictures give new ones with the first picture
/// that needs them.
void PictureTrack::FollowExtradata(const AVPacket &packet)
{
    size_t size = 0;
    const uint8_t *data = av_packet_get_side_data(&packet, AV_PKT_DATA_NEW_EXTRADATA, &size);
    if (data == nullptr || size == 0)
        return;
    AVCodecParameters *codec = Made(avcodec_parameters_alloc());
    avcodec_parameters_copy(codec, m_filter->par_in);
    av_freep(&codec->extradata);
    codec->extradata = static_cast<uint8_t *>(av_mallocz(size + AV_INPUT_BUFFER_PADDING_SIZE));
    codec->extradata_size = codec->extradata != nullptr ? static_cast<int>(size) : 0;
    if (codec->extradata != nullptr)
        memcpy(codec->extradata, data, size);
    m_filter = MakeFilter(*codec, m_timeBase);
    avcodec_parameters_free(&codec);
    m_sets.Take(m_filter->par_out->extradata,
                static_cast<size_t>(m_filter->par_out->extradata_size));
    CheckParameterSets();
}

/// Notes the parameter sets, and puts them in front of a key frame that lacks some: encoders may
/// write them once.
void PictureTrack::TakeSets(const AVPacket &packet, Unit *unit)
{
    const size_t count = m_sets.Take(packet.data, static_cast<size_t>(packet.size));
    if (count > 0)
        CheckParameterSets();
    if ((packet.flags & AV_PKT_FLAG_KEY) == 0 || count == m_sets.Count())
        return;
    const std::vector<uint8_t> text = m_sets.Text();
    unit->bytes.insert(unit->bytes.begin(), text.begin(), text.end());
}

bool PictureTrack::Convert(AVPacket *packet, Unit *unit)
{
    FollowExtradata(*packet);
    if (av_bsf_send_packet(m_filter.get(), packet) < 0 ||
        av_bsf_receive_packet(m_filter.get(), packet) < 0) {
        av_packet_unref(packet);
        return false;
    }
    unit->track = TrackKind::Picture;
    unit->bytes.assign(packet->data, packet->data + packet->size);
    TakeSets(*packet, unit);
    unit->entry = EntryOf(packet->data, static_cast<size_t>(packet->size));
    Stamp(*packet, unit);
    av_packet_unref(packet);
    return !unit->bytes.empty();
}

void PictureTrack::Stamp(const AVPacket &packet, Unit *unit)
{
    if (m_clock.has_value()) {
        const PictureClock::Times times = m_clock->Next(packet);
        unit->decode = times.decode;
        unit->presentation = times.presentation;
        unit->duration = m_clock->Duration();
        return;
    }
    unit->duration = packet.duration > 0 ? av_rescale_q(packet.duration, m_timeBase, kMicroseconds)
                                         : m_usualDuration;
    const int64_t next = m_lastDecode == AV_NOPTS_VALUE ? 0 : m_lastDecode + unit->duration;
    const auto micro = [this](int64_t time, int64_t otherwise) {
        return time == AV_NOPTS_VALUE ? otherwise : av_rescale_q(time, m_timeBase, kMicroseconds);
    };
    unit->decode = micro(packet.dts, micro(packet.pts, next));
    unit->presentation = micro(packet.pts, unit->decode);
    m_lastDecode = unit->decode;
}

} // namespace kovastream
