#pragma once

#include "foundation/export.h"

#include <netinet/in.h>

#include <cstdint>

struct KovaRtspServer;

/// Body of the listener thread; the argument is the server. Accepts connections,
/// at most one a millisecond, and gives each its handler. A shortage or an
/// aborted connection is waited out; any other error of the listening socket
/// ends the thread for good.
KOVA_API void *pListenProc(void *pServer);

/// Makes, registers and starts a handler for an accepted socket. 0; 2 when the
/// handler cannot be made; otherwise the result of the step that failed. After
/// a failure the socket is closed and nothing is left behind.
KOVA_API int32_t AddNewRtspHandler(KovaRtspServer *pServer, int32_t nSocket,
                                   sockaddr_in peerAddress);
