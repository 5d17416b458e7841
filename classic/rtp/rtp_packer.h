#pragma once

#include "classic/rtp/rtp_packet.h"
#include "foundation/export.h"

#include <cstdint>

/// Result codes of the packetization layer.
enum KovaPackerResult : uint32_t {
    kPackerOk = 0,
    kPackerNoMemory = 0x80000001,
    kPackerInvalid = 0x80100000,     ///< null packer or unknown codec
    kPackerBufferSmall = 0x80100001, ///< no room for a sender report
    kPackerNotDrained = 0x80100002,  ///< the previous access unit still has packets
    kPackerNoFrame = 0x80100003,     ///< no ADTS frame found
    kPackerNoStartCode = 0x80100004, ///< no H.264 start code found
    kPackerNothing = 0x80100005,     ///< no packet pending
};

/// What a packer found in the stream, for the session description.
enum KovaStreamInfoKind : uint32_t {
    kInfoAacConfig = 1,     ///< AudioSpecificConfig, 2 bytes (ISO/IEC 14496-3)
    kInfoSps = 2,           ///< H.264 sequence parameter set, header byte first
    kInfoPps = 3,           ///< H.264 picture parameter set, header byte first
    kInfoAacSampleRate = 4, ///< sampling rate as decimal text
};

/// Receives what a packer finds. Called inside KovaRtpPackerPushData, on its
/// thread; the bytes are the packer's.
using KovaRtspStreamInfoCallback = void (*)(const uint8_t *pData, uint32_t nLength, uint32_t nKind,
                                            uint32_t nPayloadId, void *pContext);

/// Head shared by both codec packers; the codec's part follows in the same
/// object. A packer is used by one thread at a time.
/// Frozen: callers from outside read the fields at these places.
struct KovaRtpPacker {
    uint32_t nPayloadType; ///< RTP payload type; its low byte goes into the header
    uint32_t nCodec;       ///< KOVA_MEDIA_*
    uint32_t nSsrc;
    uint32_t nPts;       ///< of the access unit being packetized, ms
    uint32_t nTimestamp; ///< RTP timestamp of that access unit
    uint32_t bMarker;    ///< marker bit of the packet being built
    uint32_t nSequence;  ///< next sequence number; starts at 0, sent modulo 2^16
    KovaRtspStreamInfoCallback pfnStreamInfo; ///< may be null
    void *pStreamInfoContext;
};

/// Makes an H.264 packer; null for any other codec or without memory.
KOVA_API KovaRtpPacker *KovaRtpVideoPackerCreate(uint32_t nCodec, uint32_t nPayloadType,
                                                 uint32_t nSsrc,
                                                 KovaRtspStreamInfoCallback pfnStreamInfo,
                                                 void *pContext);

/// Makes an AAC packer; null for any other codec or without memory.
KOVA_API KovaRtpPacker *KovaRtpAudioPackerCreate(uint32_t nCodec, uint32_t nPayloadType,
                                                 uint32_t nSsrc,
                                                 KovaRtspStreamInfoCallback pfnStreamInfo,
                                                 void *pContext);

/// Frees a packer with all that is pending. Null and unknown codecs are ignored.
KOVA_API void KovaRtpPackerDestroy(KovaRtpPacker *pPacker);

/// Takes one access unit of nLength bytes with its presentation timestamp in
/// milliseconds. Afterwards KovaRtpPackerGetRtpPacket is called until it yields
/// nothing. Returns KovaPackerResult.
KOVA_API uint32_t KovaRtpPackerPushData(KovaRtpPacker *pPacker, const uint8_t *pData,
                                        uint32_t nLength, uint32_t nPts);

/// As KovaRtpPackerPushData, which copies the access unit, but spares the copy where the
/// same bytes are lent as well (pLent equals pData; null: they are not): they are the
/// packer's to read and to write until KovaRtpPackerGetRtpPacket yields nothing or
/// KovaRtpPackerDiscard was called. A refused unit is the caller's again at once, and as
/// it was.
uint32_t KovaRtpPackerTake(KovaRtpPacker *pPacker, const uint8_t *pData, uint8_t *pLent,
                           uint32_t nLength, uint32_t nPts);

/// Builds the next packet of the pushed access unit into *ppPacket, with a
/// reference count of 0; the caller frees it through its last reference.
/// Returns kPackerOk, kPackerNothing, kPackerNoMemory (also when there would have been
/// nothing to build) or kPackerInvalid; *ppPacket is written on success only.
KOVA_API uint32_t KovaRtpPackerGetRtpPacket(KovaRtpPacker *pPacker, KovaRtpPacket **ppPacket);

/// The same, but tells that there is nothing to build without a look at the memory.
uint32_t KovaRtpPackerNext(KovaRtpPacker *pPacker, KovaRtpPacket **ppPacket);

/// Drops whatever is left of the pushed access unit, so that a shortage in the
/// middle of one unit does not refuse every later one.
void KovaRtpPackerDiscard(KovaRtpPacker *pPacker);

/// Writes a 28-byte RTCP sender report without report blocks (RFC 3550, section
/// 6.4.1). Returns 28, or kPackerBufferSmall (nothing written) or kPackerInvalid
/// for a null packer.
KOVA_API uint32_t KovaRtpPackerGetRtcpSRData(KovaRtpPacker *pPacker, uint8_t *pBuffer,
                                             uint32_t nBufferSize, uint32_t nNtpSeconds,
                                             uint32_t nNtpFraction, uint32_t nPacketCount,
                                             uint32_t nOctetCount, uint32_t nRtpTimestamp);
