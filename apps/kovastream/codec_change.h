#pragma once

#include "ffmpeg.h"
#include "unit.h"

#include <array>
#include <string>
#include <vector>

namespace kovastream {

/// Notices when one of the tracks of an input goes on with a codec that cannot be streamed:
/// demuxers show this as a new track, while the old one brings nothing any more. MPEG-TS may keep
/// the track, and H.265 then comes as if it were H.264.
class CodecChange {
public:
    explicit CodecChange(const std::string &input) : m_input(input) {}

    /// Notes a packet of a track that is streamed. Throws Failure when it is H.265.
    void Streamed(TrackKind kind, const AVPacket &packet);
    /// Notes a packet of another track. Throws Failure when it has taken the place of one that is
    /// streamed.
    void Other(const AVStream &stream);

private:
    struct Track {
        bool beside = false; ///< it has come together with the one that is streamed
        int packets = 0;
    };
    struct Kind {
        bool begun = false;
        std::vector<Track> others; ///< by index
    };
    [[noreturn]] void Refuse(TrackKind kind, AVCodecID codec) const;

    const std::string m_input;
    std::array<Kind, 2> m_kinds;
};

} // namespace kovastream
