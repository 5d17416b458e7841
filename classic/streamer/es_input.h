#pragma once

#include "classic/streamer/streamer.h"
#include "foundation/export.h"
#include "foundation/ring_buffer.h"

#include <cstdint>

/// An access unit in a ring: a 12-byte header, then the unit's bytes. All
/// fields are big-endian: start code 0x55 (1 byte), payload id (2), timestamp
/// in ms (4), length (5, the first always 0).
constexpr int32_t kEsHeaderSize = 12;
constexpr uint8_t kEsStartCode = 0x55;

/// Returned by StreamerRingbufferWrite when there is no room.
constexpr int32_t kRingFull = -79;

/// What an ES record's header says.
struct KovaEsHeader {
    uint32_t nPayloadId; ///< 16 bits
    uint32_t nTimestamp; ///< ms
    uint32_t nLength;    ///< bytes that follow
};

/// Writes and reads the kEsHeaderSize bytes of a record header, start code
/// excluded from the reading.
void KovaEsHeaderWrite(uint8_t *pBytes, const KovaEsHeader &header);
KovaEsHeader KovaEsHeaderRead(const uint8_t *pBytes);

/// Stores one access unit in the ring of its payload id (96 audio, 97 video).
/// One thread per ring. 0, also for any other payload id, whose data is not
/// stored; 2 for a null argument; 12 when the ring has no room (a line at level
/// 2 says so) and the unit was dropped whole.
KOVA_API int32_t KovaRtspStreamerPushData(KovaRtspStreamer *pStreamer, uint32_t nPayloadId,
                                          const uint8_t *pData, uint32_t nLength,
                                          uint32_t nTimestamp);

/// Copies nLength bytes into the ring. nLength; 0 for a length of 0, a null ring
/// or one without storage; kRingFull when there is no room (nothing is written).
KOVA_API int32_t StreamerRingbufferWrite(KovaRingbuffer *pRing, const uint8_t *pBytes,
                                         int32_t nLength);

/// Takes exactly nLength bytes out of the ring. nLength; 0 for a null ring, one
/// without storage, or one that holds less.
KOVA_API int32_t StreamerRingbufferRead(KovaRingbuffer *pRing, uint8_t *pBytes, int32_t nLength);
