#pragma once

#include "foundation/export.h"

#include <cstdint>

/// What becomes of the clients of a session that ends, beside the calls in
/// classic/rtsp/server_calls.h and classic/streamer/server_calls.h. An expired session takes its
/// clients along with a line for each step; one that is torn down or whose
/// connection is lost does so silently. Interleaved clients that play when their
/// connection is lost become strays: the next packets tell them, and if none
/// come the monitor removes them.
struct KovaClientVisit;
struct KovaRtspServer;

/// Removes every RTP client of a session from every stream, saying so on
/// standard output step by step, and lowers the first such stream's client
/// count by one. 0; 2 for a null argument.
KOVA_API int32_t KovaRtspServerRemoveRtpClient(KovaRtspServer *pServer, const char *szSessionId);

/// Counts a pass of the monitor over a client. True for a stray whose time is
/// over: it is counted out of its stream, if nobody did so before, and is to be
/// removed.
bool KovaStrayIsDue(const KovaClientVisit &visit);
