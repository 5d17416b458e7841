#pragma once

#include "classic/streamer/streamer.h"
#include "foundation/export.h"

#include <cstdint>

/// The three registries of a stream, keyed by payload id. Results: 0; 1 no
/// element with that id (or no memory to add one); 2 for a null argument. A
/// lookup returns the element after releasing the mutex; it lives until it is
/// removed.

/// Append an element, which the stream owns from then on.
KOVA_API int32_t KovaRtspStreamerAddRtspMediaInfo(KovaRtspStreamer *pStreamer,
                                                  KovaRtspMediaInfo *pMediaInfo);
KOVA_API int32_t KovaRtspStreamerAddRtpPacker(KovaRtspStreamer *pStreamer, KovaRtpPacker *pPacker);
KOVA_API int32_t KovaRtspStreamerAddRtpSender(KovaRtspStreamer *pStreamer, KovaRtpSender *pSender);

/// Unlink an element; it is the caller's again.
KOVA_API int32_t KovaRtspStreamerRemoveRtspMediaInfo(KovaRtspStreamer *pStreamer,
                                                     KovaRtspMediaInfo *pMediaInfo);
KOVA_API int32_t KovaRtspStreamerRemoveRtpPacker(KovaRtspStreamer *pStreamer,
                                                 KovaRtpPacker *pPacker);
KOVA_API int32_t KovaRtspStreamerRemoveRtpSender(KovaRtspStreamer *pStreamer,
                                                 KovaRtpSender *pSender);

/// Unlink and destroy every element; senders are stopped first.
KOVA_API void KovaRtspStreamerRemoveAllRtspMediaInfo(KovaRtspStreamer *pStreamer);
KOVA_API void KovaRtspStreamerRemoveAllRtpPacker(KovaRtspStreamer *pStreamer);
KOVA_API void KovaRtspStreamerRemoveAllRtpSender(KovaRtspStreamer *pStreamer);

/// The first element with that payload id, or null.
KOVA_API KovaRtspMediaInfo *KovaRtspStreamerGetRtspMediaInfoByPayloadId(KovaRtspStreamer *pStreamer,
                                                                        uint32_t nPayloadId);
KOVA_API KovaRtpPacker *KovaRtspStreamerGetRtpPackerByPayloadId(KovaRtspStreamer *pStreamer,
                                                                uint32_t nPayloadId);
KOVA_API KovaRtpSender *KovaRtspStreamerGetRtpSenderByPayloadId(KovaRtspStreamer *pStreamer,
                                                                uint32_t nPayloadId);

/// Unlink and destroy the first element with that payload id.
KOVA_API int32_t KovaRtspStreamerRemoveRtspMediaInfoByPayloadId(KovaRtspStreamer *pStreamer,
                                                                uint32_t nPayloadId);
KOVA_API int32_t KovaRtspStreamerRemoveRtpPackerByPayloadId(KovaRtspStreamer *pStreamer,
                                                            uint32_t nPayloadId);
KOVA_API int32_t KovaRtspStreamerRemoveRtpSenderByPayloadId(KovaRtspStreamer *pStreamer,
                                                            uint32_t nPayloadId);

/// Unlinks the packer of a payload id; it is the caller's to destroy, once no
/// packer thread uses it. Null when there is none.
KovaRtpPacker *KovaStreamerTakePacker(KovaRtspStreamer *pStreamer, uint32_t nPayloadId);

/// Returns when no packer thread uses an element that was unlinked before.
void KovaStreamerAwaitPackerThreads(KovaRtspStreamer *pStreamer);
