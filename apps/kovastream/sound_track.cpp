#include "sound_track.h"

#include "failure.h"
#include "source.h"

namespace kovastream {

namespace {

constexpr size_t kHeaderSize = 7;
constexpr size_t kCrcSize = 2;
constexpr size_t kLongestFrame = 0x1FFF;
constexpr int64_t kSamplesPerFrame = 1024;
constexpr AVRational kMicroseconds = {1, 1000000};
constexpr uint32_t kMostChannels = 3;

/// So many frames in a row are no damaged ones.
constexpr int kEnough = 3;

/// Sampling frequencies by index (ISO/IEC 14496-3, table 1.18).
constexpr std::array<uint32_t, 13> kRates = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                             22050, 16000, 12000, 11025, 8000,  7350};

/// Audio object types (ISO/IEC 14496-3, table 1.17). The extensions lie on top of LC.
constexpr uint32_t kLowComplexity = 2;
constexpr uint32_t kBandReplication = 5;
constexpr uint32_t kParametricStereo = 29;

/// The bits of an AudioSpecificConfig, zeros behind its end.
class Bits {
public:
    Bits(const uint8_t *bytes, int size) : m_bytes(bytes), m_bits(static_cast<size_t>(size) * 8) {}

    uint32_t Take(int count)
    {
        uint32_t value = 0;
        for (; count > 0; count--, m_at++) {
            const bool bit = m_at < m_bits && (m_bytes[m_at / 8] >> (7 - m_at % 8) & 1) != 0;
            value = value << 1 | (bit ? 1U : 0U);
        }
        return value;
    }

private:
    const uint8_t *const m_bytes;
    const size_t m_bits;
    size_t m_at = 0;
};

uint32_t IndexOf(uint32_t rate)
{
    for (uint32_t i = 0; i < kRates.size(); i++) {
        if (kRates[i] == rate)
            return i;
    }
    return static_cast<uint32_t>(kRates.size());
}

bool HasHeader(const AVPacket &packet)
{
    return packet.size > static_cast<int>(kHeaderSize) && packet.data[0] == 0xFF &&
           (packet.data[1] & 0xF6) == 0xF0;
}

/// The library takes the middle byte of the length as a signed number, so these end its parse.
bool IsTooLarge(size_t frame)
{
    return frame > kLongestFrame || (frame >> 3 & 0x80) != 0;
}

} // namespace

SoundTrack::SoundTrack(const std::string &input, const AVStream &stream)
    : m_input(input), m_timeBase(stream.time_base)
{
    const AVCodecParameters &codec = *stream.codecpar;
    if (codec.extradata_size >= 2) {
        m_framed = false;
        ReadConfiguration(codec.extradata, codec.extradata_size);
        return;
    }
    m_rateIndex = IndexOf(static_cast<uint32_t>(codec.sample_rate));
    m_channels = static_cast<uint32_t>(codec.ch_layout.nb_channels);
}

void SoundTrack::ReadConfiguration(const uint8_t *bytes, int size)
{
    Bits bits(bytes, size);
    const uint32_t type = bits.Take(5);
    m_rateIndex = bits.Take(4);
    if (m_rateIndex == 15)
        m_rateIndex = IndexOf(bits.Take(24));
    m_channels = bits.Take(4);
    const bool usable =
        type == kLowComplexity || type == kBandReplication || type == kParametricStereo;
    if (!usable || m_rateIndex >= kRates.size() || m_channels == 0 || m_channels > kMostChannels)
        Refuse();
}

void SoundTrack::Refuse() const
{
    throw Failure("'" + m_input +
                  "': its AAC is not plain AAC-LC with 1 to 3 channels; transcode it:  " +
                  TranscodeAdvice(m_input, true, false));
}

/// Notes what a frame's header tells of its format. Another format counts when several frames in a
/// row have it: what follows from it is too much for a frame that is damaged. Returns whether the
/// frame is in the format that counts.
bool SoundTrack::FollowHeader(const AVPacket &packet)
{
    const uint32_t third = packet.data[2];
    const Header header = {third >> 6, third >> 2 & 0xF, (third & 1) << 2 | packet.data[3] >> 6};
    m_repeats = header == m_lastHeader ? m_repeats + 1 : 1;
    m_lastHeader = header;
    if (header == m_header)
        return true;
    const auto [profile, rateIndex, channels] = header;
    const bool known = rateIndex < kRates.size();
    const bool usable = known && profile == kLowComplexity - 1 && channels <= kMostChannels;
    const bool first = usable && !m_header.has_value();
    if (!known || (!first && m_repeats < kEnough))
        return false;
    if (!usable)
        Refuse();
    m_header = header;
    m_rateIndex = rateIndex;
    m_channels = channels;
    return true;
}

uint32_t SoundTrack::SampleRate() const
{
    return m_rateIndex < kRates.size() ? kRates[m_rateIndex] : 0;
}

uint32_t SoundTrack::Channels() const
{
    return m_channels;
}

void SoundTrack::Stamp(const AVPacket &packet, Unit *unit)
{
    unit->duration = packet.duration > 0 ? av_rescale_q(packet.duration, m_timeBase, kMicroseconds)
                     : SampleRate() > 0  ? av_rescale(kSamplesPerFrame, 1000000, SampleRate())
                                         : 0;
    const int64_t time = packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts;
    unit->presentation =
        time == AV_NOPTS_VALUE ? m_next : av_rescale_q(time, m_timeBase, kMicroseconds);
    unit->decode = unit->presentation;
    m_next = unit->presentation + unit->duration;
}

void SoundTrack::Frame(const AVPacket &packet, Unit *unit) const
{
    const uint8_t *raw = packet.data;
    size_t size = static_cast<size_t>(packet.size);
    if (m_framed) {
        // A CRC would be taken for sound, so the header is written anew.
        const size_t skipped = kHeaderSize + ((raw[1] & 1) == 0 ? kCrcSize : 0);
        size = size > skipped ? size - skipped : 0;
        raw += skipped;
    }
    const uint32_t profile = kLowComplexity - 1;
    const auto length = static_cast<uint32_t>(size + kHeaderSize);
    const uint32_t head[kHeaderSize] = {0xFF,
                                        0xF1,
                                        profile << 6 | m_rateIndex << 2 | m_channels >> 2,
                                        (m_channels & 3) << 6 | length >> 11,
                                        length >> 3 & 0xFF,
                                        (length & 7) << 5 | 0x1F,
                                        0xFC};
    unit->bytes.assign(head, head + kHeaderSize);
    if (size > 0)
        unit->bytes.insert(unit->bytes.end(), raw, raw + size);
}

SoundTrack::Result SoundTrack::Convert(AVPacket *packet, Unit *unit)
{
    // Containers that hold the configuration apart give a new one with its first frame.
    size_t size = 0;
    const uint8_t *data = av_packet_get_side_data(packet, AV_PKT_DATA_NEW_EXTRADATA, &size);
    if (!m_framed && data != nullptr && size >= 2)
        ReadConfiguration(data, static_cast<int>(size));
    Result result = Result::None;
    if (!m_framed || (HasHeader(*packet) && FollowHeader(*packet))) {
        unit->track = TrackKind::Sound;
        Frame(*packet, unit);
        Stamp(*packet, unit);
        result = Result::Unit;
        if (unit->bytes.size() <= kHeaderSize)
            result = Result::None;
        else if (IsTooLarge(unit->bytes.size()))
            result = Result::TooLarge;
    }
    av_packet_unref(packet);
    return result;
}

} // namespace kovastream
