#pragma once

#include "foundation/export.h"
#include "foundation/mutex.h"

#include <cstdint>

/// What a packet carries, as far as sending cares.
enum KovaFrameType : uint32_t {
    kFrameVideo = 0, ///< video, not a key frame
    kFrameAudio = 1,
    kFrameKey = 2, ///< video with (the first part of) an IDR slice
};

/// One complete RTP packet, shared by everybody who queues it.
/// Frozen: callers from outside read the fields at these places; ours come last.
struct KovaRtpPacket {
    uint8_t *pData;                           ///< header and payload; owned, see KovaRtpFreePacket
    uint32_t nSize;                           ///< bytes in pData
    int32_t nRefCount KOVA_GUARDED_BY(mutex); ///< references held; 0 when just made
    uint32_t nFrameType;                      ///< KovaFrameType
    uint32_t nPts;                            ///< presentation timestamp of the access unit, ms
    KovaMutex mutex;
};

/// A zeroed packet with nSize bytes of data, all zero, in its own block; with 0 bytes it
/// has none. Null when memory is exhausted.
KovaRtpPacket *KovaRtpPacketAlloc(uint32_t nSize = 0);

/// Takes one reference. Any thread; null is ignored.
KOVA_API void KovaRtpPacketAddRef(KovaRtpPacket *pPacket);

/// Gives one reference back; the one that brings the count to 0 frees the
/// packet. A count that was already 0 goes to -1 and frees nothing.
KOVA_API void KovaRtpPacketReleaseRef(KovaRtpPacket *pPacket);

/// Frees a packet and its data whatever its count: data in the packet's own block, or
/// a block that somebody took from malloc(). Null is ignored.
KOVA_API void KovaRtpFreePacket(KovaRtpPacket *pPacket);
