#pragma once

#include "classic/rtp/rtp_packer.h"
#include "classic/rtp/unit_store.h"
#include "foundation/export.h"
#include "foundation/list.h"

#include <cstdint>

/// Most payload bytes of an AAC packet.
constexpr uint32_t kAacMaxPayload = 1388;

/// One AAC access unit: its complete RFC 3640 payload, AU headers section (16
/// bits of length, one 16-bit AU header) first.
/// Frozen: callers from outside read the fields at these places.
struct KovaAacUnit {
    uint8_t *pData; ///< within the pushed bytes, over the end of the ADTS header
    uint32_t nSize;
};
static_assert(sizeof(KovaAacUnit) <= kUnitRecordSize, "a record fits its slot");

/// Turns ADTS-framed AAC into RTP payloads (RFC 3640, mode AAC-hbr): one access
/// unit per packet, large ones fragmented.
/// Frozen: callers from outside read the fields at these places; ours come last.
struct KovaRtpAacPacker {
    KovaRtpPacker head;
    uint32_t nSampleRate;       ///< Hz, from the last ADTS header
    uint32_t nFragmentOffset;   ///< bytes of the fragmented unit already sent; reset by a push only
    uint32_t nFragmentSize;     ///< payload size of the fragmented unit
    uint32_t bWholeUnit;        ///< the packet being built carries one whole unit
    KovaAacUnit *pFragmentUnit; ///< unit being fragmented; owned
    KovaList *pAuList;          ///< units of the pushed buffer, in order; owned
    KovaList *pAuListTail;

    KovaAacUnit fragment; ///< what pFragmentUnit names
    KovaUnitStore store;  ///< the list's nodes and records
};

/// A packer with everything zero, or null without memory.
KOVA_API KovaRtpPacker *KovaRtpAacPackerCreate(void);

/// Splits a buffer of ADTS frames into access units and reports sampling rate
/// and configuration of each. nPts is in milliseconds; the RTP timestamp moves
/// by the samples since the previous push, or by 1024 when nPts went back.
/// Returns kPackerOk, kPackerNotDrained, or kPackerNoFrame when bytes are left
/// over that hold no frame.
KOVA_API uint32_t KovaRtpAacPackerPushData(KovaRtpPacker *pPacker, const uint8_t *pData,
                                           uint32_t nLength, uint32_t nPts);

/// The same for bytes that may be lent: KovaRtpPackerTake().
uint32_t KovaRtpAacPackerTake(KovaRtpPacker *pHead, const uint8_t *pData, uint8_t *pLent,
                              uint32_t nLength, uint32_t nPts);

/// Decides what goes into the next packet and sets its size and the marker.
/// Returns kPackerOk or kPackerNothing.
KOVA_API uint32_t KovaRtpAacPackerPrepareRtpPacket(KovaRtpPacker *pPacker, KovaRtpPacket *pPacket);

/// Writes the payload that was prepared and sets the frame type. Returns
/// kPackerOk or kPackerNothing.
KOVA_API uint32_t KovaRtpAacPackerGetRtpPacket(KovaRtpPacker *pPacker, KovaRtpPacket *pPacket);

/// Frees every listed access unit.
KOVA_API void KovaRtpAacPackerFreeAccessUnitList(KovaRtpPacker *pPacker);

/// Frees the packer with all that is pending. Null is ignored.
KOVA_API void KovaRtpAacPackerDestroy(KovaRtpPacker *pPacker);

/// Frees all that is pending, the unit being fragmented included.
void KovaRtpAacPackerDiscard(KovaRtpPacker *pHead);
