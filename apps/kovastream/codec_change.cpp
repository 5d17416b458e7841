#include "codec_change.h"

#include "failure.h"
#include "nal_units.h"
#include "source.h"

#include <algorithm>

namespace kovastream {

namespace {

/// So many packets of another track, and none of the old one, are no bad interleaving.
constexpr int kEnough = 25;

/// The parameter sets stand in front.
constexpr size_t kHead = 512;

/// The first byte of H.265's units (ITU-T H.265, 7.3.1.2); the second one is 1 in the base layer.
/// H.264 has no units that begin so: their types are unspecified and of slices in partitions.
constexpr int kVps = 0x40;
constexpr int kSps = 0x42;

bool IsH265(const AVPacket &packet)
{
    bool vps = false;
    bool sps = false;
    ForEachNalUnit(packet.data, std::min(static_cast<size_t>(packet.size), kHead),
                   [&vps, &sps](const uint8_t *unit, size_t size) {
                       const bool base = size > 2 && unit[1] == 1;
                       vps |= base && unit[0] == kVps;
                       sps |= base && unit[0] == kSps;
                   });
    return vps && sps;
}

size_t IndexOf(TrackKind kind)
{
    return kind == TrackKind::Picture ? 0 : 1;
}

} // namespace

void CodecChange::Streamed(TrackKind kind, const AVPacket &packet)
{
    Kind &own = m_kinds[IndexOf(kind)];
    own.begun = true;
    for (Track &track : own.others)
        track.beside |= track.packets > 0;
    if (kind == TrackKind::Picture && IsH265(packet))
        Refuse(kind, AV_CODEC_ID_HEVC);
}

void CodecChange::Other(const AVStream &stream)
{
    const AVCodecParameters &codec = *stream.codecpar;
    const bool picture = codec.codec_type == AVMEDIA_TYPE_VIDEO;
    if (!picture && codec.codec_type != AVMEDIA_TYPE_AUDIO)
        return;
    if (codec.codec_id == (picture ? AV_CODEC_ID_H264 : AV_CODEC_ID_AAC))
        return;
    const TrackKind kind = picture ? TrackKind::Picture : TrackKind::Sound;
    Kind &own = m_kinds[IndexOf(kind)];
    const auto index = static_cast<size_t>(stream.index);
    own.others.resize(std::max(own.others.size(), index + 1));
    Track &track = own.others[index];
    track.beside |= !own.begun;
    if (++track.packets >= kEnough && !track.beside)
        Refuse(kind, codec.codec_id);
}

void CodecChange::Refuse(TrackKind kind, AVCodecID codec) const
{
    const bool picture = kind == TrackKind::Picture;
    throw Failure(
        "'" + m_input + "': its " + (picture ? "picture" : "sound") + " changes to " +
        avcodec_get_name(codec) + " in mid-stream, only " + (picture ? "H.264" : "AAC") +
        " can be streamed; transcode it:  " + TranscodeAdvice(m_input, !picture, picture));
}

} // namespace kovastream
