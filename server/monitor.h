#pragma once

#include "foundation/export.h"

#include <cstdint>

struct KovaRtspServer;

/// Body of the monitor thread; the argument is the server. Once a second it
/// removes the sessions whose time is over, with their RTP clients, and works
/// out each stream's send bit rate and status.
KOVA_API void *pMonitorProc(void *pServer);

/// Removes every RTP client of a session from every stream, saying so on
/// standard output step by step, and lowers the first such stream's client
/// count by one. 0; 2 for a null argument.
KOVA_API int32_t KovaRtspServerRemoveRtpClient(KovaRtspServer *pServer, const char *szSessionId);
