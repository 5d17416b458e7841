#pragma once

#include "classic/rtp/send_group.h"
#include "foundation/kept_buffer.h"
#include "rtp/interleaved_batch.h"

#include <sys/uio.h>

#include <cstdint>

/// Most packets that are served as one, and most bytes of them.
constexpr uint32_t kBatchMostPackets = 64;
constexpr uint32_t kBatchMostBytes = 65536;

/// Largest packet that goes into an RTSP connection.
constexpr uint32_t kMostInterleavedSize = 8192 - kInterleavedHeaderSize;

/// Packets of one presentation timestamp, which are due together: usually those of
/// one access unit. The batch has a reference to each of them.
struct KovaPacketBatch {
    uint32_t nCount;
    KovaRtpPacket *packets[kBatchMostPackets];
    iovec datagrams[kBatchMostPackets];             ///< as datagrams
    KovaInterleavedFrame frames[kBatchMostPackets]; ///< as frames; the channel is the player's
    KovaKeptBuffer framed; ///< the frames one behind the other, once bFramed says so
    uint32_t nAsked;       ///< how often frames were asked for
    bool bFramed;
};

/// Fills a batch with a packet, whose reference it takes over, and with those of the
/// same timestamp that are queued behind it.
/// @param bAlone  none of those
void KovaPacketBatchFill(KovaPacketBatch *pBatch, KovaRtpSendGroup *pGroup, KovaRtpPacket *pFirst,
                         bool bAlone) KOVA_REQUIRES(pGroup->packetMutex);

/// Takes the packets of a batch out of the queue, those that nobody has flushed
/// meanwhile, and gives the references back.
void KovaPacketBatchRelease(const KovaPacketBatch *pBatch, KovaRtpSendGroup *pGroup)
    KOVA_REQUIRES(pGroup->packetMutex);

/// The batch's frames on a channel: the frame of packet n is the n-th. With several
/// players they are laid one behind the other, headers included: one copy for all costs
/// less than what the system asks for gathering them for each.
const KovaInterleavedFrame *KovaPacketBatchFrames(KovaPacketBatch *pBatch, uint8_t nChannel);

/// Whether the packet can go into an RTSP connection.
bool KovaFitsInterleaved(const KovaRtpPacket *pPacket);
