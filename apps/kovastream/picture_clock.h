#pragma once

#include "ffmpeg.h"

#include <cstdint>

namespace kovastream {

/// Makes timestamps for H.264 that has none: one picture after the other at a steady rate. The
/// order in which pictures are shown is read from the pictures themselves, so that B-frames come
/// out right; where nothing has told of them before, from the first one on.
class PictureClock {
public:
    /// `rate` in pictures a second; 0 or less: what the stream says.
    PictureClock(const AVStream &stream, double rate);

    /// The times of the next picture, microseconds, from 0 on.
    struct Times {
        int64_t decode;
        int64_t presentation;
    };
    Times Next(const AVPacket &packet);
    int64_t Duration() const;

private:
    int64_t At(int64_t picture) const;
    int64_t ShownAs(const AVPacket &packet);

    Codec m_codec;
    Parser m_parser;
    double m_rate;
    int64_t m_delay;     ///< by how many pictures showing lies behind decoding
    int64_t m_count = 0; ///< pictures so far
    int64_t m_first = 0; ///< the last IDR picture's place
    int64_t m_shown = 0; ///< the furthest place so far
    int64_t m_decode;    ///< the last picture's decoding time
    int m_step = 2;      ///< by what the order count grows from picture to picture
};

} // namespace kovastream
