#pragma once

#include "classic/rtp/rtp_client.h"
#include "foundation/export.h"
#include "foundation/mutex.h"
#include "foundation/thread.h"

#include <netinet/in.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

struct KovaRtspServer;
struct KovaTcpChannel;

/// Most bytes of one request: what one read takes.
constexpr size_t kRequestSize = 8192;

/// Room for a dotted IPv4 address with its NUL.
constexpr size_t kHostTextSize = 16;

/// One accepted RTSP connection and its request thread. Each chunk that one read
/// returns is one request.
/// Frozen: callers from outside read the fields at these places; ours come last.
struct KovaRtspServerHandler {
    KovaRtspServer *pServer;
    char szLocalAddr[kHostTextSize]; ///< the server's side of the connection
    uint16_t nLocalPort;
    /// -1 once closed. Interleaved clients reach it through the channel.
    std::atomic<int32_t> nSocket;
    sockaddr_in peerAddr; ///< as passed at creation
    char szPeerAddr[kHostTextSize];
    uint16_t nPeerPort;
    KovaStateWord nState;
    int32_t nSpare; ///< frozen: read by nobody, keeps what follows in its place
    uint8_t recvBuf[kRequestSize];
    uint8_t spareBuf[kRequestSize]; ///< frozen: cleared with recvBuf, holds nothing
    /// Of the last request that carried one.
    char szSessionId[kSessionIdSize] KOVA_GUARDED_BY(mtxSessionId);
    KovaMutex mtxRequest; ///< held while a chunk is handled

    KovaTcpChannel *pChannel; ///< the connection as a sending path
    KovaMutex mtxSessionId;
};

/// Makes a handler for an accepted socket, which it owns from then on. Null when
/// the server is null, the descriptor is below 1, or without memory (the socket
/// stays the caller's then).
KOVA_API KovaRtspServerHandler *
KovaRtspServerHandlerCreate(KovaRtspServer *pServer, int32_t nSocket, sockaddr_in peerAddress);

/// Starts the request thread. 0, also when it runs already; 1 when it cannot be
/// made; 2 for null.
KOVA_API int32_t KovaRtspServerHandlerStart(KovaRtspServerHandler *pHandler);

/// Asks the request thread to end, waits for it and closes the socket. The
/// handler is the caller's to destroy. 0; 2 for null.
KOVA_API int32_t KovaRtspServerHandlerStop(KovaRtspServerHandler *pHandler);

/// Closes the socket and frees the handler, whose thread does not run any more.
/// 0; 2 for null.
KOVA_API int32_t KovaRtspServerHandlerDestroy(KovaRtspServerHandler *pHandler);

/// Body of the request thread; the argument is the handler. A thread that ends
/// because the peer left takes the handler out of the registry and frees it. The
/// session goes on: docs/architecture.md, "When a connection breaks".
KOVA_API void *pHandleRequestProc(void *pHandler);

/// Sends a response on the connection; what a full socket does not take is lost.
/// 1 when everything was sent, else 0.
KOVA_API int32_t RequestResponseSend(KovaRtspServerHandler *pHandler, const char *pBytes,
                                     int32_t nCount);

/// Remembers the session of a request, reads it into a text of kSessionIdSize
/// bytes, or compares with it. Any thread.
void KovaHandlerSetSessionId(KovaRtspServerHandler *pHandler, const char *szSessionId);
void KovaHandlerGetSessionId(KovaRtspServerHandler *pHandler, char *szSessionId);
bool KovaHandlerHasSessionId(KovaRtspServerHandler *pHandler, const char *szSessionId);
