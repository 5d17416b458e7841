#pragma once

#include "foundation/mutex.h"

#include <cstddef>
#include <cstdint>

constexpr uint32_t kMaxAacConfig = 64;

/// An AudioSpecificConfig (ISO/IEC 14496-3, 1.6.2.1) and what follows from it.
struct KovaAacConfig {
    uint8_t bytes[kMaxAacConfig];
    uint32_t nSize;          ///< 0: no configuration
    uint32_t nObjectType;    ///< of the core: 2 for AAC LC, with SBR in front or not
    uint32_t nCoreRate;      ///< Hz
    uint32_t nChannelConfig; ///< as it stands there; 0: told by a program config element
    /// Hz of the RTP clock: the rate that the configuration signals for the output.
    /// With SBR signalled in front (object types 5 and 29) that is the extension's,
    /// where a receiver that does not look for SBR would count the core's; with SBR
    /// signalled behind, or not at all, it is the core's (RFC 6416, 7.3, does alike).
    uint32_t nRate;
    uint32_t nChannels;   ///< of the output
    uint32_t nFrameTicks; ///< of that clock: 1024, or 960, 512, 480; twice that with SBR
};

/// Reads one. False when it is none, or of a codec that has no frames of AAC, or its
/// rates do not fit each other; *pConfig is undefined then.
/// @param nSize  2 to kMaxAacConfig, else false
bool KovaAacConfigRead(const uint8_t *pBytes, size_t nSize, KovaAacConfig *pConfig);

/// What the sound of a track is: the pushing thread changes it (and reads it without
/// the mutex), others describe it.
struct KovaAacStream {
    KovaMutex mutex;
    KovaAacConfig config KOVA_GUARDED_BY(mutex);
    KovaAacConfig given; ///< by the host; never changes
};
