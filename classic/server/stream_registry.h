#pragma once

#include "classic/server/server.h"

/// Registry of streams, beside the calls in classic/rtsp/server_calls.h and
/// classic/streamer/server_calls.h. Each call takes mtxStreamer for its own run.

/// Appends a stream, which the server owns from then on. 0; 1 without memory; 2
/// for a null argument.
KOVA_API int32_t KovaRtspServerAddStreamer(KovaRtspServer *pServer, KovaRtspStreamer *pStreamer);

/// Unlinks a stream without destroying it. 0; 2 for a null argument.
KOVA_API int32_t KovaRtspServerRemoveStreamer(KovaRtspServer *pServer, KovaRtspStreamer *pStreamer);

/// Unlinks the stream with that URI, which is the caller's to destroy; null when
/// there is none.
KovaRtspStreamer *KovaServerTakeStreamer(KovaRtspServer *pServer, const char *szUri);

/// Unlinks and destroys every stream.
KOVA_API void KovaRtspServerRemoveAllStreamer(KovaRtspServer *pServer);

/// The first stream with that URI, or null. It lives until it is removed.
KOVA_API KovaRtspStreamer *KovaRtspServerGetStreamerByUri(KovaRtspServer *pServer,
                                                          const char *szUri);
