#pragma once

#include "classic/rtsp/connection_handler.h"
#include "classic/rtsp/request_info.h"
#include "foundation/export.h"

struct KovaRtspStreamer;

/// The answers (RFC 2326, section 7), one function each. A function formats the
/// whole response and writes it to the handler's connection; nothing tells
/// whether it got there. Request thread. A null handler is ignored.

KOVA_API void RequestOptionsResponse(KovaRtspServerHandler *pHandler, KovaRtspRequestInfo info);

/// With the stream's session description, or an empty body while it is not ready.
KOVA_API void RequestDescribeResponse(KovaRtspServerHandler *pHandler, KovaRtspRequestInfo info);

/// The same for a stream that is pinned already. Null has no description. Writes
/// the status line's reason into *pInfo.
void KovaAnswerDescribe(KovaRtspServerHandler *pHandler, KovaRtspRequestInfo *pInfo,
                        KovaRtspStreamer *pStreamer);

KOVA_API void RequestSetupResponse(KovaRtspServerHandler *pHandler, KovaRtspRequestInfo info);

/// With an RTP-Info entry per track; releases info.pTrackList and its entries.
KOVA_API void RequestPlayResponse(KovaRtspServerHandler *pHandler, KovaRtspRequestInfo info);

KOVA_API void RequestGetParameterResponse(KovaRtspServerHandler *pHandler,
                                          KovaRtspRequestInfo info);

KOVA_API void RequestTeardownResponse(KovaRtspServerHandler *pHandler, KovaRtspRequestInfo info);

/// A refusal: the status line alone, without CSeq.
KOVA_API void RequestNotOKResponse(KovaRtspServerHandler *pHandler, KovaRtspRequestInfo info);
