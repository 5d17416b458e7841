#pragma once

#include "live/media/unit.h"
#include "rtp/rtp_header.h"

#include <cstdint>

struct KovaTrackMedia;

/// Lays RTP packets one behind the other into a unit's block. The same code runs
/// twice: first only to count, while there is no block, then to write.
struct KovaPacketWriter {
    uint32_t nPackets;
    uint32_t nBytes;          ///< of all packets so far
    uint8_t *pBytes;          ///< of the block; null: packets are only counted
    KovaUnitPacket *pPackets; ///< of the block
    uint16_t nSequence;       ///< of the next packet
    uint8_t nChannel;         ///< of the frame headers
    uint8_t header[kRtpHeaderSize];
};

/// Takes a block for what has been counted, fills the unit's record in (except its
/// flags) and makes the writer ready to write the same packets. The track's next
/// sequence number moves behind them. Null without memory; nothing has changed then.
/// @param nPts        µs
/// @param nTimestamp  of the first packet
KovaUnit *KovaPacketWriterBegin(KovaPacketWriter *pWriter, KovaTrackMedia *pMedia, int64_t nPts,
                                uint32_t nTimestamp);

/// The timestamp of the packets that follow.
void KovaPacketWriterSetTimestamp(KovaPacketWriter *pWriter, uint32_t nTimestamp);

/// Adds a packet. @return where its nPayload bytes go; null while counting.
uint8_t *KovaPacketWriterAdd(KovaPacketWriter *pWriter, uint32_t nPayload);

/// Sets the marker of the packet that was added last.
void KovaPacketWriterMark(KovaPacketWriter *pWriter);
