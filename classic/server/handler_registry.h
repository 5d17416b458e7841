#pragma once

#include "classic/server/server.h"

/// Registry of connections. Each call takes mtxHandler for its own run. Results:
/// 0; 1 without memory; 2 for a null argument.

/// Appends a handler, which the server owns from then on.
KOVA_API int32_t KovaRtspServerAddServerHandler(KovaRtspServer *pServer,
                                                KovaRtspServerHandler *pHandler);

/// Appends a handler and starts it, in one step: nobody finds a handler that is
/// neither started nor going to be. After a failure it is the caller's again.
int32_t KovaServerStartHandler(KovaRtspServer *pServer, KovaRtspServerHandler *pHandler);

/// Unlinks a handler without destroying it.
KOVA_API int32_t KovaRtspServerRemoveServerHandler(KovaRtspServer *pServer,
                                                   KovaRtspServerHandler *pHandler);

/// Unlinks, stops and destroys every handler.
KOVA_API void KovaRtspServerRemoveAllServerHandler(KovaRtspServer *pServer);

/// Wakes the threads that wait for a request although their state words no longer
/// say that they run: somebody wrote one without calling the stop.
void KovaServerWakeStopped(KovaRtspServer *pServer);

/// The first handler whose last request named that session, or null. It lives
/// as long as its connection.
KOVA_API KovaRtspServerHandler *KovaRtspServerGetHandlerBySessionId(KovaRtspServer *pServer,
                                                                    const char *szSessionId);
