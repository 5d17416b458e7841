#pragma once

#include "classic/streamer/server_calls.h"
#include "foundation/export.h"

#include <cstdint>

/// What connections and their requests ask of the server, beside the calls in
/// classic/streamer/server_calls.h: the only calls from here up. Implemented in
/// classic/server/: session_registry.cpp, stream_registry.cpp, session_end.cpp and
/// handler_registry.cpp. Each takes its registry's mutex for its own run.
struct KovaRtspServer;
struct KovaRtspServerHandler;
struct KovaRtspSession;
struct KovaRtspStreamer;

/// 1 if a session has that id, else 0 (also for null arguments).
KOVA_API int32_t KovaRtspServerIsSessionExist(KovaRtspServer *pServer, const char *szSessionId);

/// Appends a session, which the server owns from then on. 0; 1 without memory;
/// 2 for a null argument.
KOVA_API int32_t KovaRtspServerAddSession(KovaRtspServer *pServer, KovaRtspSession *pSession);

/// Makes and registers a session. Into an empty szSessionId (kSessionIdSize bytes)
/// an id is drawn that no other session has: drawing and registering are one step,
/// because connections reseed rand() with the second and so draw the same ids.
/// 0; 1 when it cannot be made; 2 for a null argument.
KOVA_API int32_t AddNewRtspSession(KovaRtspServer *pServer, char *szSessionId, int32_t nTimeout);

/// Ends on a stream what a SETUP, or a PLAY (pPlay), did for a session that has
/// ended while it was handled.
void KovaServerEndOvertaken(KovaRtspServer *pServer, KovaRtspStreamer *pStreamer,
                            const char *szSessionId, const KovaPlay *pPlay);

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
