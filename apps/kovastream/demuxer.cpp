#include "demuxer.h"

#include "failure.h"
#include "open_failure.h"
#include "track_check.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>

namespace kovastream {

namespace {

// Live input: two seconds tell what is in it, and nobody watches meanwhile.
constexpr char kLiveAnalysis[] = "2000000";

// A network source that has said nothing for so long is gone, though its connection is not closed:
// unplugged, or behind a dead link. Microseconds.
constexpr char kSilence[] = "5000000";

constexpr std::chrono::milliseconds kRetry{10};

// Among so many there is one of each track, unless the file is badly interleaved.
constexpr int kFirstPackets = 100;

class Settings {
public:
    ~Settings()
    {
        av_dict_free(&dictionary);
    }
    void Set(const char *key, const std::string &value)
    {
        av_dict_set(&dictionary, key, value.c_str(), 0);
    }
    AVDictionary *dictionary = nullptr;
};

bool IsPicture(const AVStream &stream)
{
    return stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO &&
           (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) == 0;
}

bool IsSound(const AVStream &stream)
{
    return stream.codecpar->codec_type == AVMEDIA_TYPE_AUDIO;
}

/// The first track of a kind with the codec that can be streamed, else the first of that kind.
AVStream *Best(const AVFormatContext &format, bool (*isKind)(const AVStream &), AVCodecID codec)
{
    AVStream *best = nullptr;
    for (unsigned i = 0; i < format.nb_streams; i++) {
        AVStream *stream = format.streams[i];
        if (!isKind(*stream))
            continue;
        if (stream->codecpar->codec_id == codec)
            return stream;
        if (best == nullptr)
            best = stream;
    }
    return best;
}

} // namespace

Demuxer::Demuxer(const std::string &input, SourceKind kind, const Wish &wish, const Stop &stop,
                 std::unique_ptr<Demuxer> previous)
    : m_input(Shown(input)), m_kind(kind), m_stop(stop), m_change(m_input)
{
    if (kind == SourceKind::Fifo || kind == SourceKind::Stdin)
        m_pipe = std::make_unique<PipeReader>(input, kind, stop);
    previous.reset();
    if (m_pipe != nullptr && !m_pipe->AwaitData())
        return;
    Open(input, wish.fps);
    if (!m_stop.Requested())
        FindTracks(wish);
}

int Demuxer::Interrupted(void *stop)
{
    return static_cast<const Stop *>(stop)->Requested() ? 1 : 0;
}

void Demuxer::Open(const std::string &input, double fps)
{
    AVFormatContext *format = Made(avformat_alloc_context());
    format->interrupt_callback = {Interrupted, const_cast<Stop *>(&m_stop)};
    if (m_pipe != nullptr)
        format->pb = m_pipe->Context();
    Settings settings;
    if (fps > 0)
        settings.Set("framerate", std::to_string(fps));
    if (m_kind == SourceKind::Network) {
        settings.Set("rtsp_transport", "tcp");
        // The one is RTSP's, the other everybody else's.
        settings.Set(m_input.compare(0, 4, "rtsp") == 0 ? "timeout" : "rw_timeout", kSilence);
    }
    if (m_kind != SourceKind::File) {
        settings.Set("analyzeduration", kLiveAnalysis);
        // A second of pictures would go by just to find their rate, which nothing here needs: the
        // delay would last.
        settings.Set("fpsprobesize", "0");
    }
    // Prefixed, so that a colon in a file's name is no protocol.
    const std::string name = m_kind == SourceKind::File ? "file:" + input : input;
    int error = avformat_open_input(&format, name.c_str(), nullptr, &settings.dictionary);
    if (error >= 0) {
        m_format.reset(format); // a failed open has freed it
        // Two seconds of pictures would go by in search of timestamps that raw video does not have,
        // and what is read meanwhile stays the delay of live input.
        if (IsRawVideo())
            format->max_ts_probe = 0;
        error = avformat_find_stream_info(format, nullptr);
    }
    if (error < 0 && !m_stop.Requested())
        throw Failure(OpenFailure(m_input, m_kind, error));
}

void Demuxer::FindTracks(const Wish &wish)
{
    if (wish.picture)
        m_picture = Best(*m_format, IsPicture, AV_CODEC_ID_H264);
    if (wish.sound)
        m_sound = Best(*m_format, IsSound, AV_CODEC_ID_AAC);
    CheckOrder(wish);
    try {
        CheckTracks(m_input, m_picture, m_sound, wish.limits);
    } catch (const Failure &) {
        // What a decoder has made of encrypted frames says nothing about the tracks.
        CheckFirstPackets();
        throw;
    }
    DiscardOthers();
}

/// Two inputs are named in a certain order.
void Demuxer::CheckOrder(const Wish &wish) const
{
    if (m_picture != nullptr || m_sound != nullptr || wish.picture == wish.sound)
        return;
    const auto any = [this](bool (*isKind)(const AVStream &)) {
        return Best(*m_format, isKind, AV_CODEC_ID_NONE) != nullptr;
    };
    if (wish.picture && any(IsSound))
        throw Failure("'" + m_input +
                      "' has sound and no picture: of two inputs the one with the "
                      "picture stands in front, PICTURE+SOUND");
    if (wish.sound && any(IsPicture))
        throw Failure("'" + m_input +
                      "' has a picture and no sound: of two inputs the one with "
                      "the sound stands behind, PICTURE+SOUND");
}

/// Throws another Failure if one of the first packets is encrypted.
void Demuxer::CheckFirstPackets()
{
    if (m_kind != SourceKind::File)
        return;
    const Packet packet(Made(av_packet_alloc()));
    for (int i = 0; i < kFirstPackets && Read(packet.get()) == Result::Got; i++)
        av_packet_unref(packet.get());
}

bool Demuxer::IsRawVideo() const
{
    return strcmp(m_format->iformat->name, "h264") == 0;
}

/// Whether a track may take the place of one of those that are streamed: in formats whose tracks
/// may come and go.
bool Demuxer::IsRival(const AVStream &stream) const
{
    return (m_format->iformat->flags & AVFMT_TS_DISCONT) != 0 &&
           ((m_picture != nullptr && IsPicture(stream)) || (m_sound != nullptr && IsSound(stream)));
}

void Demuxer::DiscardOthers()
{
    for (unsigned i = 0; i < m_format->nb_streams; i++) {
        AVStream *stream = m_format->streams[i];
        const bool wanted = stream == m_picture || stream == m_sound || IsRival(*stream);
        stream->discard = wanted ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    }
}

Demuxer::Result Demuxer::Read(AVPacket *packet)
{
    while (m_format != nullptr && !m_stop.Requested()) {
        m_error = av_read_frame(m_format.get(), packet);
        if (m_error == AVERROR(EAGAIN)) {
            std::this_thread::sleep_for(kRetry);
            continue;
        }
        if (m_error == AVERROR_EOF || m_error == AVERROR_EXIT)
            return Result::End;
        if (m_error < 0)
            return Result::Broken;
        const AVStream *stream = m_format->streams[packet->stream_index];
        if ((stream == m_picture || stream == m_sound) && packet->size > 0) {
            CheckPacket(m_input, *packet);
            m_change.Streamed(stream == m_picture ? TrackKind::Picture : TrackKind::Sound, *packet);
            return Result::Got;
        }
        if (IsRival(*stream))
            m_change.Other(*stream);
        av_packet_unref(packet);
    }
    return Result::End;
}

bool Demuxer::IsMp4() const
{
    return strstr(m_format->iformat->name, "mp4") != nullptr;
}

std::string Demuxer::WhyUnreadable() const
{
    std::string what = "'" + m_input + "' cannot be read: " + ErrorText(m_error);
    if (!IsMp4())
        return what;
    if (m_kind != SourceKind::Network)
        return what + "; MP4 in a pipe has to have its index in front: name the file, or  "
                      "ffmpeg -v error -i IN -c copy -f mpegts - | kovastream -";
    return what + "; from a server without ranges, MP4 has to have its index in front:  "
                  "ffmpeg -v error -i IN -c copy -movflags +faststart OUT.mp4  (or be fragmented: "
                  "-movflags "
                  "+frag_keyframe+empty_moov)";
}

int64_t Demuxer::DeclaredEnd() const
{
    // Only MP4 tells each track's own length, in its header. Other formats guess or round.
    if (m_kind != SourceKind::File || !IsMp4())
        return AV_NOPTS_VALUE;
    int64_t end = AV_NOPTS_VALUE;
    for (const AVStream *stream : {m_picture, m_sound}) {
        if (stream == nullptr || stream->duration <= 0 || stream->start_time == AV_NOPTS_VALUE)
            continue;
        const int64_t own = av_rescale_q(stream->start_time + stream->duration, stream->time_base,
                                         AVRational{1, 1000000});
        end = end == AV_NOPTS_VALUE ? own : std::min(end, own);
    }
    return end;
}

} // namespace kovastream
