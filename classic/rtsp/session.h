#pragma once

#include "classic/rtp/rtp_client.h"
#include "classic/rtsp/transport.h"
#include "foundation/export.h"
#include "foundation/list.h"
#include "foundation/mutex.h"

#include <atomic>
#include <cstdint>

/// Time-out of every session that SETUP makes, seconds; also what answers
/// advertise.
constexpr int32_t kSessionTimeout = 60;

/// An RTSP session. Its media side is not kept here: it is the set of RTP
/// clients with its id.
/// Frozen: callers from outside read the fields at these places; ours come last.
struct KovaRtspSession {
    char szSessionId[kSessionIdSize]; ///< 11 decimal digits
    int32_t nTimeout;                 ///< seconds
    std::atomic<int32_t> tExpire;     ///< wall-clock seconds at which it expires
    KovaList *pTransportList KOVA_GUARDED_BY(mtxTransport); ///< of KovaRtspTransport; owned
    int32_t nSpare; ///< frozen: read by nobody, keeps what follows in its place
    KovaMutex mtxTransport;
};

/// Writes 11 random digits and a terminator. Null is ignored. The generator is
/// rand(), which connections and servers seed.
KOVA_API void GenerateSessionId(char *szSessionId);

/// The same.
KOVA_API void GetSessionId(char *szSessionId);

/// Makes a session that expires nTimeout seconds from now. An empty text in
/// szSessionId (kSessionIdSize bytes) is first replaced by a new id. Null for a
/// null buffer or without memory.
KOVA_API KovaRtspSession *KovaRtspSessionCreate(char *szSessionId, int32_t nTimeout);

/// Frees a session with its transports. Null is ignored.
KOVA_API void KovaRtspSessionDestroy(KovaRtspSession *pSession);

/// Appends a transport, which the session owns from then on. Null is ignored.
KOVA_API void KovaRtspSessionAddTransport(KovaRtspSession *pSession, KovaRtspTransport *pTransport);

/// Unlinks a transport without destroying it. Null is ignored.
KOVA_API void KovaRtspSessionRemoveTransport(KovaRtspSession *pSession,
                                             KovaRtspTransport *pTransport);

/// Unlinks and destroys every transport. Null is ignored.
KOVA_API void KovaRtspSessionRemoveAllTransport(KovaRtspSession *pSession);
