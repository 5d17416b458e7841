#pragma once

#include "classic/server/server.h"

#include <string>

/// Publishes a stream of a server with an audio (96) and a video payload type
/// (97); null when it is refused.
KovaRtspStreamer *KovaPublishAudioVideo(KovaRtspServer *pServer, const std::string &uri);

/// Makes such a stream's session description complete, with the parameter sets of
/// the made-up media.
void KovaMakeReady(KovaRtspStreamer *pStreamer);
