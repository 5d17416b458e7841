#pragma once

#include "classic/streamer/server_calls.h"
#include "foundation/export.h"

#include <cstdint>

/// What connections and their requests ask of the server, beside the calls in
/// classic/streamer/server_calls.h: the only calls from here up. Each takes its
/// registry's mutex for its own run.
struct KovaRtspServer;
struct KovaRtspServerHandler;
struct KovaRtspSession;
struct KovaRtspStreamer;

/// 1 if a session has that id, else 0 (also for null arguments).
KOVA_API int32_t KovaRtspServerIsSessionExist(KovaRtspServer *pServer, const char *szSessionId);

/// Appends a session, which the server owns from then on. 0; 1 without memory;
/// 2 for a null argument.
KOVA_API int32_t KovaRtspServerAddSession(KovaRtspServer *pServer, KovaRtspSession *pSession);

/// Appends a session under an id that no other one has: as long as its id is
/// taken, another is drawn into the session and into szSessionId
/// (kSessionIdSize bytes), not from rand(). One step, because connections reseed
/// that with the second and so draw the same ids. 0; 1 without memory.
int32_t KovaServerAddUniqueSession(KovaRtspServer *pServer, KovaRtspSession *pSession,
                                   char *szSessionId);

/// Calls the action if no session has that id. Nobody can get the id before it
/// returns: the clients with that id are the ended session's, for certain.
void KovaServerIfSessionEnded(KovaRtspServer *pServer, const char *szSessionId,
                              void (*pfnAction)(void *pContext), void *pContext);

/// Sum of the playing clients of all streams; 0 for null.
KOVA_API int32_t KovaRtspServerGetCurrentClientCount(KovaRtspServer *pServer);

/// The most clients that may play.
int32_t KovaServerMaxClient(const KovaRtspServer *pServer);

/// The stream with that URI, pinned so that it is not destroyed before
/// KovaStreamerUnpin(); null for null arguments or an unknown URI.
KovaRtspStreamer *KovaServerPinStreamer(KovaRtspServer *pServer, const char *szUri);

/// Unlinks a connection that ends by itself. Returns false when a stopper has
/// claimed it (its state word says so): then it is the stopper's to destroy.
/// Never waits for a stopper, who may be waiting for the caller.
bool KovaServerReleaseHandler(KovaRtspServer *pServer, KovaRtspServerHandler *pHandler);
