#pragma once

#include "classic/rtsp/connection_handler.h"
#include "foundation/export.h"

#include <cstdint>

/// Handles one received chunk as one request: checks it in a fixed order, acts
/// on the server's registries and answers it, or takes it silently as a
/// keep-alive. Called with the handler's mtxRequest held.
/// @return 0; 2 when the handler, its server or the bytes are null
KOVA_API int32_t HandleRtspRequest(KovaRtspServerHandler *pHandler, const uint8_t *pBytes,
                                   int32_t nCount);
