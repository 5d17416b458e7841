#pragma once

#include "codec_change.h"
#include "ffmpeg.h"
#include "pipe_reader.h"
#include "server_limits.h"
#include "source.h"
#include "stop.h"

#include <memory>
#include <string>

namespace kovastream {

/// What is to be taken from an input.
struct Wish {
    double fps = 0; ///< of raw video; 0: as the video says
    bool picture = true;
    bool sound = true;
    Limits limits;
};

/// An open input: the H.264 and the AAC track that are in it, and their packets.
class Demuxer {
public:
    /// Opens the input and finds its tracks. `previous` is the demuxer of the same FIFO's last
    /// writer: its pipe stays open until the new one is, so that a writer never finds it closed.
    /// Throws Failure; a request to stop leaves a demuxer without tracks.
    Demuxer(const std::string &input, SourceKind kind, const Wish &wish, const Stop &stop,
            std::unique_ptr<Demuxer> previous = nullptr);

    /// For lines: without a password.
    const std::string &Input() const
    {
        return m_input;
    }
    SourceKind Kind() const
    {
        return m_kind;
    }
    /// The tracks; null when there is none of that kind, or it is not wanted.
    AVStream *Picture() const
    {
        return m_picture;
    }
    AVStream *Sound() const
    {
        return m_sound;
    }
    /// Whether the picture is raw H.264, without timestamps.
    bool IsRawVideo() const;
    /// Where the input's timestamps begin, microseconds; AV_NOPTS_VALUE when it does not say.
    int64_t Start() const
    {
        return m_format->start_time;
    }
    /// kbit/s of both tracks together, 0 when unknown.
    int64_t BitRate() const
    {
        return m_format->bit_rate / 1000;
    }

    /// Whether the end of the program was requested, so that nothing more comes.
    bool Stopped() const
    {
        return m_stop.Requested();
    }

    enum class Result {
        Got,
        End,
        Broken, ///< ErrorText of LastError() says how
    };
    /// Reads the next packet of one of the tracks. Throws Failure when what comes can no longer be
    /// streamed.
    Result Read(AVPacket *packet);
    int LastError() const
    {
        return m_error;
    }
    /// Whether an input that is open, and of which nothing has come, ends so that it makes no sense
    /// to begin again at once.
    bool IsUnreadable(Result result) const
    {
        return result == Result::Broken || (result == Result::End && m_kind == SourceKind::Network);
    }
    /// What to say then.
    std::string WhyUnreadable() const;
    /// Where the shorter of the tracks ends by what the file itself says, microseconds;
    /// AV_NOPTS_VALUE when it does not say.
    int64_t DeclaredEnd() const;

private:
    static int Interrupted(void *stop);
    void Open(const std::string &input, double fps);
    bool IsMp4() const;
    void FindTracks(const Wish &wish);
    void CheckOrder(const Wish &wish) const;
    void CheckFirstPackets();
    bool IsRival(const AVStream &stream) const;
    void DiscardOthers();

    const std::string m_input; ///< as lines show it
    const SourceKind m_kind;
    const Stop &m_stop;
    std::unique_ptr<PipeReader> m_pipe; // outlives the format, which reads from it
    Format m_format;
    AVStream *m_picture = nullptr;
    AVStream *m_sound = nullptr;
    CodecChange m_change;
    int m_error = 0;
};

} // namespace kovastream
