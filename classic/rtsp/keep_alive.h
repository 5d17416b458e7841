#pragma once

#include "classic/rtsp/connection_handler.h"
#include "foundation/export.h"

#include <cstdint>

/// Recognises RTCP that a player sends over its RTSP connection, interleaved
/// ('$', channel, length) or bare. A receiver report with one block (RFC 3550,
/// section 6.4.2) keeps the session of the connection alive; other RTCP is
/// dropped.
/// @return 0 not RTCP, or a report before any request named a session: handle
///         the chunk as a request; 13 taken and dropped (or the session is
///         gone); 14 taken and the session refreshed; 2 no handler or server
KOVA_API int32_t HandleRtspTcpKeepAlive(KovaRtspServerHandler *pHandler, const uint8_t *pBytes,
                                        int32_t nCount);
