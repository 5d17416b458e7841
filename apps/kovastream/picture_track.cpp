#include "picture_track.h"

#include "failure.h"
#include "key_frames.h"
#include "nal_units.h"
#include "source.h"

#include <algorithm>

namespace kovastream {

namespace {

// The first turns the length fields of MP4, MKV and FLV into start codes; the second repeats the
// parameter sets for encoders that write them once.
constexpr char kFilters[] = "h264_mp4toannexb,dump_extra=freq=keyframe";

/// What the library's session description holds of one parameter set.
constexpr size_t kLongestParameterSet = 189;

constexpr AVRational kMicroseconds = {1, 1000000};
constexpr int64_t kUsualDuration = 40000;

Filter MakeFilter(const AVStream &stream)
{
    AVBSFContext *made = nullptr;
    if (av_bsf_list_parse_str(kFilters, &made) < 0)
        throw Failure("FFmpeg's libraries lack a bitstream filter: " + std::string(kFilters));
    Filter filter(made);
    avcodec_parameters_copy(made->par_in, stream.codecpar);
    made->time_base_in = stream.time_base;
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

PictureTrack::PictureTrack(const std::string &input, const AVStream &stream, bool raw, double fps)
    : m_timeBase(stream.time_base), m_usualDuration(DurationOf(stream)),
      m_filter(MakeFilter(stream)), m_lastDecode(AV_NOPTS_VALUE)
{
    CheckParameterSets(input);
    if (raw)
        m_clock.emplace(stream, fps);
    else if (stream.start_time == AV_NOPTS_VALUE)
        m_clock.emplace(stream, 0);
}

void PictureTrack::CheckParameterSets(const std::string &input) const
{
    const AVCodecParameters &codec = *m_filter->par_out;
    ForEachNalUnit(codec.extradata, static_cast<size_t>(codec.extradata_size),
                   [&input](const uint8_t *unit, size_t size) {
                       const int type = NalType(unit);
                       if ((type == kNalSps || type == kNalPps) && size > kLongestParameterSet)
                           throw Failure("'" + input +
                                         "': its H.264 parameter sets are longer than 189 bytes, "
                                         "which no description holds; transcode it:  " +
                                         TranscodeAdvice(input, false, true));
                   });
}

bool PictureTrack::Convert(AVPacket *packet, Unit *unit)
{
    if (av_bsf_send_packet(m_filter.get(), packet) < 0 ||
        av_bsf_receive_packet(m_filter.get(), packet) < 0) {
        av_packet_unref(packet);
        return false;
    }
    unit->track = TrackKind::Picture;
    unit->bytes.assign(packet->data, packet->data + packet->size);
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
