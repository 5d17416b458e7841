#pragma once

#include "foundation/export.h"

#include <cstdint>

/// What the host declared for one payload type.
/// Frozen: callers from outside read the fields at these places.
struct KovaRtspMediaInfo {
    uint32_t nMediaType; ///< KOVA_MEDIA_*
    uint32_t nPayloadId;
    void *pDescription; ///< private copy of the description; owned
};

/// A record with a copy of the description; null for a null description, an
/// unknown media type or without memory.
KOVA_API KovaRtspMediaInfo *KovaRtspMediaInfoCreate(uint32_t nMediaType, uint32_t nPayloadId,
                                                    const void *pDescription);

/// Frees the record and its copy. Null is ignored.
KOVA_API void KovaRtspMediaInfoDestroy(KovaRtspMediaInfo *pMediaInfo);
