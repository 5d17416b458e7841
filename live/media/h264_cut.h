#pragma once

#include "live/media/track_media.h"

/// KovaTrackMediaCut for H.264. nSize: 1 to 16 MiB.
int32_t KovaH264Cut(KovaTrackMedia *pMedia, const uint8_t *pData, size_t nSize, int64_t nPts,
                    KovaUnit **ppUnit);
