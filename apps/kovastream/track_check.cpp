#include "track_check.h"

#include "failure.h"
#include "source.h"

extern "C" {
#include <libavutil/channel_layout.h>
}

namespace kovastream {

namespace {

// The classic server's description is right for sound with up to three channels.
constexpr int kMostPlainChannels = 3;

[[noreturn]] void RefuseEncrypted(const std::string &input)
{
    throw Failure("'" + input +
                  "' is encrypted and cannot be streamed: use a copy without protection");
}

class Check {
public:
    Check(const std::string &input, const AVStream *picture, const AVStream *sound,
          const Limits &limits)
        : m_input(input), m_picture(picture), m_sound(sound), m_limits(limits)
    {}

    void All() const
    {
        if (m_picture == nullptr && m_sound == nullptr)
            throw Failure("'" + m_input +
                          "' has no picture or sound that is asked for: name another "
                          "input");
        if (m_picture != nullptr)
            Picture(*m_picture);
        if (m_sound != nullptr)
            Sound(*m_sound);
    }

private:
    /// Advises to transcode the refused track, and the other one too when it needs it.
    [[noreturn]] void Refuse(const std::string &what, const AVStream &refused) const
    {
        const auto copied = [&refused](const AVStream *stream, AVCodecID codec) {
            return stream == nullptr || (stream != &refused && stream->codecpar->codec_id == codec);
        };
        throw Failure("'" + m_input + "': " + what + "; transcode it:  " +
                      TranscodeAdvice(m_input, copied(m_picture, AV_CODEC_ID_H264),
                                      copied(m_sound, AV_CODEC_ID_AAC)));
    }

    void NotEncrypted(const AVStream &stream) const
    {
        const uint32_t tag = stream.codecpar->codec_tag;
        const bool tagged = tag == MKTAG('e', 'n', 'c', 'v') || tag == MKTAG('e', 'n', 'c', 'a');
        if (tagged ||
            av_stream_get_side_data(&stream, AV_PKT_DATA_ENCRYPTION_INIT_INFO, nullptr) != nullptr)
            RefuseEncrypted(m_input);
    }

    void Picture(const AVStream &stream) const
    {
        NotEncrypted(stream);
        const AVCodecParameters &codec = *stream.codecpar;
        if (codec.codec_id != AV_CODEC_ID_H264)
            Refuse("its picture is " + std::string(avcodec_get_name(codec.codec_id)) +
                       ", only H.264 can be streamed",
                   stream);
        if (m_limits.fixedSets && (codec.width == 0 || codec.extradata_size == 0))
            throw Failure(
                "'" + m_input +
                "': its H.264 has no parameter sets (SPS and PPS) that can be read: it "
                "is broken, or its encoder must write them in front of the first picture");
    }

    void Sound(const AVStream &stream) const
    {
        NotEncrypted(stream);
        const AVCodecParameters &codec = *stream.codecpar;
        if (codec.codec_id != AV_CODEC_ID_AAC)
            Refuse("its sound is " + std::string(avcodec_get_name(codec.codec_id)) +
                       ", only AAC can be streamed",
                   stream);
        if (m_limits.plainSound)
            PlainSound(stream);
        if (codec.ch_layout.nb_channels == 0 || codec.sample_rate == 0)
            throw Failure("'" + m_input + "': its AAC cannot be read: it is broken");
    }

    void PlainSound(const AVStream &stream) const
    {
        const AVCodecParameters &codec = *stream.codecpar;
        const bool core =
            codec.profile == FF_PROFILE_AAC_LOW || codec.profile == FF_PROFILE_AAC_HE ||
            codec.profile == FF_PROFILE_AAC_HE_V2 || codec.profile == FF_PROFILE_UNKNOWN;
        if (!core)
            Refuse("its AAC is not of the LC kind", stream);
        if (codec.ch_layout.nb_channels > kMostPlainChannels)
            Refuse("its sound has " + std::to_string(codec.ch_layout.nb_channels) +
                       " channels, at most 3 can be described to players",
                   stream);
    }

    const std::string &m_input;
    const AVStream *const m_picture;
    const AVStream *const m_sound;
    const Limits m_limits;
};

} // namespace

void CheckTracks(const std::string &input, const AVStream *picture, const AVStream *sound,
                 const Limits &limits)
{
    Check(input, picture, sound, limits).All();
}

void CheckPacket(const std::string &input, const AVPacket &packet)
{
    if (av_packet_get_side_data(&packet, AV_PKT_DATA_ENCRYPTION_INFO, nullptr) != nullptr)
        RefuseEncrypted(input);
}

} // namespace kovastream
