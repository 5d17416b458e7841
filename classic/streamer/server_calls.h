#pragma once

#include "classic/streamer/players.h"
#include "foundation/export.h"

#include <cstdint>

/// What a stream asks of its server: the only calls from here up. Implemented in
/// classic/server/: stream_registry.cpp, session_registry.cpp and, the last one,
/// session_end.cpp. Each takes its registry's mutex for its own run.
struct KovaRtspServer;

/// 1 if a stream with that URI is published, else 0 (also for null arguments).
KOVA_API int32_t KovaRtspServerIsUriExist(KovaRtspServer *pServer, const char *szUri);

/// Moves a session's expiry to now + its time-out + 30 s. 0; 2 for a null
/// argument; 5 when no session has the id.
KOVA_API int32_t KovaRtspServerUpdateSession(KovaRtspServer *pServer, const char *szSessionId);

/// Unlinks and destroys a session. 0; 2 for a null argument; 5 when no session
/// has the id.
KOVA_API int32_t KovaRtspServerRemoveSessionBySessionId(KovaRtspServer *pServer,
                                                        const char *szSessionId);

/// Removes a session, if there is one, and ends its players on all streams:
/// nothing would ever expire a client without a session.
void KovaServerEndSession(KovaRtspServer *pServer, const char *szSessionId, KovaPlayerEnd end);
