#pragma once

#include "foundation/export.h"

#include <cstdint>

/// A transport of a session: opaque values, in the order of the Create
/// arguments. The running server keeps this data in its RTP clients instead.
/// Frozen: callers from outside read the fields at these places.
struct KovaRtspTransport {
    uint32_t nWords[3];
    uint16_t nPorts[4];
    uint32_t nMoreWords[4];
};

/// A transport holding the eleven values, or null without memory.
KOVA_API KovaRtspTransport *
KovaRtspTransportCreate(uint32_t nFirst, uint32_t nSecond, uint32_t nThird, uint16_t nFourth,
                        uint16_t nFifth, uint16_t nSixth, uint16_t nSeventh, uint32_t nEighth,
                        uint32_t nNinth, uint32_t nTenth, uint32_t nEleventh);

/// Frees a transport. Null is ignored.
KOVA_API void KovaRtspTransportDestroy(KovaRtspTransport *pTransport);
