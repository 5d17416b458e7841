#pragma once

#include "classic/rtp/rtp_packer.h"

#include <cstdint>

/// Size of the RTP header (RFC 3550, section 5.1, no CSRC).
constexpr uint32_t kRtpHeaderSize = 12;

/// Writes the header of the packet that pPacker is building: version 2, the
/// low byte of the payload type with the marker OR-ed in, sequence number,
/// timestamp and SSRC.
void KovaRtpHeaderWrite(uint8_t *pHeader, const KovaRtpPacker *pPacker);

/// The sequence number in a packet's header.
uint16_t KovaRtpHeaderSequence(const uint8_t *pHeader);

/// The timestamp in a packet's header.
uint32_t KovaRtpHeaderTimestamp(const uint8_t *pHeader);
