#pragma once

#include "kova_rtsp_server.h"

/// A heap copy of a KovaAudioDescription or KovaVideoDescription, by media type; null for a null
/// description, an unknown type or without memory. Freed with free().
void *KovaMediaDescriptionCopy(uint32_t nMediaType, const void *pDescription);
