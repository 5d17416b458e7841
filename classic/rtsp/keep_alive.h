#pragma once

#include "classic/rtsp/connection_handler.h"
#include "foundation/export.h"

#include <cstdint>

/// What became of RTCP on a connection; codes that go on from those of
/// kova_rtsp_server.h.
enum KovaKeepAliveResult : int32_t {
    kRtcpTaken = 13,     ///< taken and dropped
    kRtcpKeptAlive = 14, ///< a receiver report, which has refreshed the session
};

/// Recognises RTCP that a player sends over its RTSP connection, interleaved
/// ('$', channel, length) or bare. A receiver report with one block (RFC 3550,
/// section 6.4.2) keeps the session of the connection alive; other RTCP is
/// dropped.
/// @return 0 not RTCP, or a report before any request named a session: handle
///         the chunk as a request; kRtcpTaken (also when the session is gone);
///         kRtcpKeptAlive; 2 no handler or server
KOVA_API int32_t HandleRtspTcpKeepAlive(KovaRtspServerHandler *pHandler, const uint8_t *pBytes,
                                        int32_t nCount);
