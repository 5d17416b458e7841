#include "sound_track.h"

#include "failure.h"
#include "source.h"

#include <algorithm>

namespace kovastream {

namespace {

constexpr size_t kHeaderSize = 7;
constexpr size_t kCrcSize = 2;
constexpr size_t kLongestFrame = 0x1FFF;
constexpr int64_t kSamplesPerFrame = 1024;
constexpr AVRational kMicroseconds = {1, 1000000};
constexpr uint32_t kMostPlainChannels = 3;

/// As long as the library takes them.
constexpr size_t kLongestConfiguration = 64;

/// Says that the rate itself follows, not its index.
constexpr uint32_t kRateFollows = 15;

/// Number of the layout of 7.1 channels; below it, the numbers are those of the channels.
constexpr uint32_t kEightChannels = 7;

/// So many frames in a row are no damaged ones.
constexpr int kEnough = 3;

/// Sampling frequencies by index (ISO/IEC 14496-3, table 1.18).
constexpr std::array<uint32_t, 13> kRates = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                             22050, 16000, 12000, 11025, 8000,  7350};

/// Audio object types (ISO/IEC 14496-3, table 1.17). The extensions lie on top of LC.
constexpr uint32_t kLowComplexity = 2;
constexpr uint32_t kBandReplication = 5;
constexpr uint32_t kParametricStereo = 29;
constexpr uint32_t kEscape = 31;

/// Those whose frames RFC 3640 carries as AAC: Main, LC, SSR, LTP, with extensions, the
/// error-resilient LC and LTP, and the ones of low delay.
constexpr std::array<uint32_t, 10> kCarried = {1, 2, 3, 4, 5, 17, 19, 23, 29, 39};

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

uint32_t ObjectType(Bits *bits)
{
    const uint32_t type = bits->Take(5);
    return type == kEscape ? 32 + bits->Take(6) : type;
}

uint32_t RateOf(uint32_t index)
{
    return index < kRates.size() ? kRates[index] : 0;
}

uint32_t ReadRate(Bits *bits)
{
    const uint32_t index = bits->Take(4);
    return index == kRateFollows ? bits->Take(24) : RateOf(index);
}

uint32_t ChannelsOf(uint32_t configuration)
{
    return configuration == kEightChannels ? 8 : configuration;
}

/// kRates.size() for a rate that an ADTS header cannot tell.
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

/// The classic server takes the middle byte of the length as a signed number, so these end its
/// parse.
bool IsTooLarge(size_t frame)
{
    return frame > kLongestFrame || (frame >> 3 & 0x80) != 0;
}

} // namespace

SoundTrack::SoundTrack(const std::string &input, const AVStream &stream, const Limits &limits)
    : m_input(input), m_timeBase(stream.time_base), m_plain(limits.plainSound),
      m_rate(static_cast<uint32_t>(stream.codecpar->sample_rate)),
      m_channels(static_cast<uint32_t>(stream.codecpar->ch_layout.nb_channels))
{
    const AVCodecParameters &codec = *stream.codecpar;
    if (codec.extradata_size < 2)
        return;
    m_framed = false;
    ReadConfiguration(codec.extradata, codec.extradata_size);
}

void SoundTrack::ReadConfiguration(const uint8_t *bytes, int size)
{
    if (m_plain) {
        ReadPlain(bytes, size);
        return;
    }
    Bits bits(bytes, size);
    const uint32_t type = ObjectType(&bits);
    if (std::find(kCarried.begin(), kCarried.end(), type) == kCarried.end() ||
        size > static_cast<int>(kLongestConfiguration))
        Refuse();
    m_configuration.assign(bytes, bytes + size);
    m_rate = ReadRate(&bits);
    const uint32_t channels = bits.Take(4);
    // 0, and layouts of later times: what the input has said stays.
    if (channels > 0 && channels <= kEightChannels)
        m_channels = ChannelsOf(channels);
    // With the extension signalled in front, the output's rate is that of the extension.
    if (type == kBandReplication || type == kParametricStereo)
        m_rate = ReadRate(&bits);
}

/// What an ADTS header can tell of a configuration.
void SoundTrack::ReadPlain(const uint8_t *bytes, int size)
{
    Bits bits(bytes, size);
    const uint32_t type = bits.Take(5);
    m_rate = ReadRate(&bits);
    m_channels = bits.Take(4);
    const bool usable =
        type == kLowComplexity || type == kBandReplication || type == kParametricStereo;
    if (!usable || IndexOf(m_rate) == kRates.size() || m_channels == 0 ||
        m_channels > kMostPlainChannels)
        Refuse();
}

void SoundTrack::Refuse() const
{
    const std::string what = m_plain ? "its AAC is not plain AAC-LC with 1 to 3 channels"
                                     : "its AAC is of a kind that RTP does not carry";
    throw Failure("'" + m_input + "': " + what +
                  "; transcode it:  " + TranscodeAdvice(m_input, true, false));
}

/// Whether frames with such an ADTS header can be carried. Without a number of channels it stands
/// within the frame, where players do not look for it.
bool SoundTrack::IsUsable(uint32_t profile, uint32_t channels) const
{
    return m_plain ? profile == kLowComplexity - 1 && channels <= kMostPlainChannels : channels > 0;
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
    const bool usable = known && IsUsable(profile, channels);
    const bool first = usable && !m_header.has_value();
    if (!known || (!first && m_repeats < kEnough))
        return false;
    if (!usable)
        Refuse();
    m_header = header;
    m_rate = RateOf(rateIndex);
    m_channels = ChannelsOf(channels);
    return true;
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
    if (!m_plain) {
        unit->bytes.assign(raw, raw + size);
        return;
    }
    if (m_framed) {
        // A CRC would be taken for sound, so the header is written anew.
        const size_t skipped = kHeaderSize + ((raw[1] & 1) == 0 ? kCrcSize : 0);
        size = size > skipped ? size - skipped : 0;
        raw += skipped;
    }
    const uint32_t profile = kLowComplexity - 1;
    const uint32_t rateIndex = IndexOf(m_rate);
    const auto length = static_cast<uint32_t>(size + kHeaderSize);
    const uint32_t head[kHeaderSize] = {0xFF,
                                        0xF1,
                                        profile << 6 | rateIndex << 2 | m_channels >> 2,
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
        if (unit->bytes.size() <= (m_plain || m_framed ? kHeaderSize : 0))
            result = Result::None;
        else if (m_plain && IsTooLarge(unit->bytes.size()))
            result = Result::TooLarge;
    }
    av_packet_unref(packet);
    return result;
}

} // namespace kovastream
