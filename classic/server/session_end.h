#pragma once

#include "foundation/export.h"

#include <cstdint>

/// The end of a session on all streams: beside this call, those of it that are in
/// classic/rtsp/server_calls.h and classic/streamer/server_calls.h. What becomes of
/// its players: classic/streamer/players.h.
struct KovaRtspServer;

/// Removes every RTP client of a session from every stream, saying so on
/// standard output step by step, and lowers the first such stream's client
/// count by one. 0; 2 for a null argument.
KOVA_API int32_t KovaRtspServerRemoveRtpClient(KovaRtspServer *pServer, const char *szSessionId);
