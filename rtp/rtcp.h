#pragma once

#include <cstdint>

/// Size of a sender report without report blocks.
constexpr uint32_t kRtcpSenderReportSize = 28;

/// RTCP packet types (RFC 3550, section 12.1) and the first byte of a packet
/// with no and with one report block.
constexpr uint8_t kRtcpSenderReport = 200;
constexpr uint8_t kRtcpReceiverReport = 201;
constexpr uint8_t kRtcpSourceDescription = 202;
constexpr uint8_t kRtcpBye = 203;
constexpr uint8_t kRtcpNoBlock = 0x80;
constexpr uint8_t kRtcpOneBlock = 0x81;

/// Seconds from the beginning of NTP's time, 1900, to that of Unix's, 1970.
constexpr uint32_t kNtpUnixOffset = 2208988800U;

/// The values of a sender report.
struct KovaRtcpSenderReport {
    uint32_t nSsrc;
    uint32_t nNtpSeconds;
    uint32_t nNtpFraction;
    uint32_t nRtpTimestamp;
    uint32_t nPacketCount;
    uint32_t nOctetCount;
};

/// Writes kRtcpSenderReportSize bytes (RFC 3550, section 6.4.1).
void KovaRtcpSenderReportWrite(uint8_t *pBuffer, const KovaRtcpSenderReport &report);

/// NTP seconds (RFC 3550, section 4: since 1900) of a moment nPts milliseconds
/// after nUnixSeconds.
uint32_t KovaRtcpNtpSeconds(uint32_t nPts, uint32_t nUnixSeconds);

/// NTP fraction (2^-32 seconds) of the milliseconds in nPts.
uint32_t KovaRtcpNtpFraction(uint32_t nPts);
