#pragma once

#include "ffmpeg.h"

#include <string>

namespace kovastream {

/// Refuses what the library cannot stream: other codecs than H.264 and AAC-LC, encrypted tracks,
/// and tracks without the parameters that players need. Either track may be null, not both.
/// Throws Failure, with the command that transcodes where one helps.
void CheckTracks(const std::string &input, const AVStream *picture, const AVStream *sound);

/// Refuses a packet that is encrypted: some files say so only there.
void CheckPacket(const std::string &input, const AVPacket &packet);

} // namespace kovastream
