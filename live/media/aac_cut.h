#pragma once

#include "live/media/track_media.h"

/// KovaTrackMediaCut for AAC. nSize: 1 to 16 MiB.
int32_t KovaAacCut(KovaTrackMedia *pMedia, const uint8_t *pData, size_t nSize, int64_t nPts,
                   KovaUnit **ppUnit);
