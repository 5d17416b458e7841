#pragma once

#include <cstdint>

/// The host's description of a payload type, as it crosses the public
/// interface: all fields unsigned 32-bit, one after another.
struct KovaAudioMediaDescription {
    uint32_t nBitrate;    ///< kbit/s
    uint32_t nSampleRate; ///< Hz
    uint32_t nChannels;
};

struct KovaVideoMediaDescription {
    uint32_t nBitrate; ///< kbit/s
};

/// A heap copy of the description of a media type; null for a null description,
/// an unknown type or without memory. Freed with free().
void *KovaMediaDescriptionCopy(uint32_t nMediaType, const void *pDescription);
