#pragma once

#include "classic/server/server.h"

/// Registry of sessions, beside the calls in classic/rtsp/server_calls.h and
/// classic/streamer/server_calls.h. Each call takes mtxSession for its own run.

/// Unlinks a session without destroying it. 0; 2 for a null argument.
KOVA_API int32_t KovaRtspServerRemoveSession(KovaRtspServer *pServer, KovaRtspSession *pSession);

/// Unlinks and destroys every session.
KOVA_API void KovaRtspServerRemoveAllSession(KovaRtspServer *pServer);

/// The first session with that id, or null.
KovaRtspSession *KovaServerFindSession(KovaRtspServer *pServer, const char *szSessionId)
    KOVA_REQUIRES(pServer->mtxSession);

/// Unlinks a session without destroying it.
void KovaServerUnlinkSession(KovaRtspServer *pServer, KovaRtspSession *pSession)
    KOVA_REQUIRES(pServer->mtxSession);

/// Unlinks the session with that id, which is the caller's to destroy; null when
/// there is none.
KovaRtspSession *KovaServerTakeSession(KovaRtspServer *pServer, const char *szSessionId)
    KOVA_REQUIRES(pServer->mtxSession);

/// The first session with that id, or null. It lives until it is removed.
KOVA_API KovaRtspSession *KovaRtspServerGetSessionBySessionId(KovaRtspServer *pServer,
                                                              const char *szSessionId);
