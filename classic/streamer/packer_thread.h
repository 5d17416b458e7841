#pragma once

#include "foundation/export.h"

#include <cstdint>

/// Bodies of the two packer threads; the argument is the KovaRtspStreamer. Each
/// takes access units out of its ring, has their packer cut them into RTP
/// packets and hands those to their sender. Leaves, with its state word at
/// stopped, when the word is no longer running, or after an error (see the log).
KOVA_API void *pAudioPackerProc(void *pStreamer);
KOVA_API void *pVideoPackerProc(void *pStreamer);

/// Stream-info callbacks of the packers (KovaRtspStreamInfoCallback); the
/// context is the streamer. They complete its session description.
KOVA_API void pAudioStreamInfoCallback(const uint8_t *pData, uint32_t nLength, uint32_t nInfoType,
                                       uint32_t nPayloadId, void *pContext);
KOVA_API void pVideoStreamInfoCallback(const uint8_t *pData, uint32_t nLength, uint32_t nInfoType,
                                       uint32_t nPayloadId, void *pContext);
