#pragma once

#include "classic/rtp/rtp_packet.h"
#include "classic/rtp/send_group.h"
#include "classic/rtp/sender.h"
#include "classic/rtp/stream_calls.h"

#include <cstdint>

/// Name of the sending thread in log lines.
constexpr char kSendingThread[] = "pSenderProc";

/// Bytes in front of a packet on an RTSP connection (RFC 2326, section 10.12).
constexpr uint32_t kInterleavedHeaderSize = 4;

/// Room for one interleaved frame.
constexpr uint32_t kFrameBufferSize = 8192;

/// What one sending thread works with.
struct KovaSendingContext {
    KovaRtpSendGroup *pGroup;
    KovaRtpSender *pSender;
    KovaRtspStreamer *pStreamer;
    KovaPackerIdentity packer;
    uint64_t nNow; ///< ms; as of the last look at the clock
    /// The packet being served behind room for an interleaved header; empty
    /// (nFrameSize 0) when it is too large for an interleaved frame.
    uint8_t frame[kFrameBufferSize];
    uint32_t nFrameSize;
};

/// Sends one packet to every client of the group. Takes and releases
/// clientMutex itself, and holds it neither while it waits, for a full socket or
/// on behalf of clients that do not play, nor while it talks to the stream.
void KovaServeClients(KovaSendingContext *pContext, const KovaRtpPacket *pPacket);
