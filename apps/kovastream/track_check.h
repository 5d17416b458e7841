#pragma once

#include "ffmpeg.h"
#include "server_limits.h"

#include <string>

namespace kovastream {

/// Refuses what cannot be streamed: other codecs than H.264 and AAC, encrypted tracks, and what is
/// not within the limits. Either track may be null, not both. Throws Failure, with the command that
/// transcodes where one helps.
void CheckTracks(const std::string &input, const AVStream *picture, const AVStream *sound,
                 const Limits &limits);

/// Refuses a packet that is encrypted: some files say so only there.
void CheckPacket(const std::string &input, const AVPacket &packet);

} // namespace kovastream
