#pragma once

#include "classic/rtp/rtp_packer.h"
#include "classic/rtp/unit_store.h"
#include "foundation/export.h"
#include "foundation/list.h"

#include <cstdint>

/// Most payload bytes of an H.264 packet (a STAP-A may take one more: its
/// header byte is not counted against the budget).
constexpr uint32_t kH264MaxPayload = 1400;

/// One NAL unit waiting to be packetized.
/// Frozen: callers from outside read the fields at these places.
struct KovaNalUnit {
    uint8_t nHeader; ///< its first byte
    uint8_t *pData;  ///< the unit within its access unit, header byte included
    uint32_t nSize;
};
static_assert(sizeof(KovaNalUnit) <= kUnitRecordSize, "a record fits its slot");

/// Turns H.264 Annex B access units into RTP payloads (RFC 6184, packetization
/// mode 1): single NAL unit packets, STAP-A and FU-A. Parameter sets go to the
/// stream-info callback instead of into RTP.
/// Frozen: callers from outside read the fields at these places; ours come last.
struct KovaRtpH264Packer {
    KovaRtpPacker head;
    uint32_t nFragmentOffset;  ///< bytes of the fragmented unit already sent; 1 before the first
    uint32_t nPayloadBytes;    ///< size of the fragmented unit, else payload of the packet
    uint32_t nNalCount;        ///< units that go into the packet being built
    KovaNalUnit *pFragmentNal; ///< unit being fragmented; owned
    KovaList *pNalList;        ///< units of the pushed access unit, in order; owned
    KovaList *pNalListTail;

    KovaNalUnit fragment; ///< what pFragmentNal names
    KovaUnitStore store;  ///< the list's nodes and records
};

/// A packer with everything zero, or null without memory.
KOVA_API KovaRtpPacker *KovaRtpH264PackerCreate(void);

/// Splits an access unit into NAL units. nPts is in milliseconds; the RTP
/// timestamp is nPts * 90 modulo 2^32. Delimiters and SEI are dropped, SPS and
/// PPS reported and dropped, except as the last unit of the buffer.
/// Returns kPackerOk, kPackerNotDrained, kPackerNoStartCode.
KOVA_API uint32_t KovaRtpH264PackerPushData(KovaRtpPacker *pPacker, const uint8_t *pData,
                                            uint32_t nLength, uint32_t nPts);

/// The same for bytes that may be lent: KovaRtpPackerTake().
uint32_t KovaRtpH264PackerTake(KovaRtpPacker *pHead, const uint8_t *pData, uint8_t *pLent,
                               uint32_t nLength, uint32_t nPts);

/// Decides what goes into the next packet and sets its size and the marker.
/// Returns kPackerOk or kPackerNothing.
KOVA_API uint32_t KovaRtpH264PackerPrepareRtpPacket(KovaRtpPacker *pPacker, KovaRtpPacket *pPacket);

/// Writes the payload that was prepared and sets the frame type. Returns
/// kPackerOk or kPackerNothing.
KOVA_API uint32_t KovaRtpH264PackerGetRtpPacket(KovaRtpPacker *pPacker, KovaRtpPacket *pPacket);

/// Frees every listed NAL unit.
KOVA_API void KovaRtpH264PackerFreeNalList(KovaRtpPacker *pPacker);

/// Frees the packer with all that is pending. Null is ignored.
KOVA_API void KovaRtpH264PackerDestroy(KovaRtpPacker *pPacker);

/// Frees all that is pending, the unit being fragmented included.
void KovaRtpH264PackerDiscard(KovaRtpPacker *pHead);
