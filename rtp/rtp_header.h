#pragma once

#include <cstdint>

/// Size of the RTP header (RFC 3550, section 5.1, no CSRC).
constexpr uint32_t kRtpHeaderSize = 12;

/// What a header says; payload type and sequence number may be wider than their
/// fields, which take the low bits.
struct KovaRtpHeader {
    uint32_t nPayloadType;
    bool bMarker;
    uint32_t nSequence;
    uint32_t nTimestamp;
    uint32_t nSsrc;
};

/// Writes a header: version 2, the low byte of the payload type with the marker
/// OR-ed in, sequence number, timestamp and SSRC.
void KovaRtpHeaderWrite(uint8_t *pBytes, const KovaRtpHeader &header);

/// The sequence number in a packet's header.
uint16_t KovaRtpHeaderSequence(const uint8_t *pHeader);

/// The timestamp in a packet's header.
uint32_t KovaRtpHeaderTimestamp(const uint8_t *pHeader);
