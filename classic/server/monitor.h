#pragma once

#include "foundation/export.h"

struct KovaRtspServer;

/// Body of the monitor thread; the argument is the server. Once a second it
/// removes the sessions whose time is over, with their RTP clients, and works
/// out each stream's send bit rate and status.
KOVA_API void *pMonitorProc(void *pServer);
