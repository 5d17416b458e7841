#pragma once

#include "rtp/send_outcome.h"

#include <cstdint>

/// Bytes in front of a packet on an RTSP connection (RFC 2326, section 10.12).
constexpr uint32_t kInterleavedHeaderSize = 4;

/// An RTP or RTCP packet that goes into an RTSP connection as one frame.
struct KovaInterleavedFrame {
    const uint8_t *pPacket; ///< the caller's, read only while it is sent
    uint32_t nSize;         ///< bytes of the packet, at most 65535
    uint8_t nChannel;
    /// The frame's header stands in the kInterleavedHeaderSize bytes in front of the
    /// packet: then it need not be made, and frames that lie one behind the other go
    /// out as one piece, which costs the system less.
    bool bHeaderInFront = false;
};

/// How far some frames have come.
struct KovaInterleavedProgress {
    /// kSendDone: all are out. kSendAgain: no room for more just now.
    /// kSendFailed: the connection takes no more.
    KovaSendOutcome outcome;
    uint32_t nFrames; ///< frames that are out as a whole
    uint32_t nBytes;  ///< bytes of the frame behind them that are out, header included
    int nError;       ///< errno of the write that ended it (EAGAIN: it was cut short); else 0
};

/// Writes a frame's kInterleavedHeaderSize bytes: '$', the channel, and the size of
/// the packet, most significant byte first.
void KovaInterleavedHeaderWrite(uint8_t *pHeader, uint8_t nChannel, uint32_t nSize);

/// Writes whole frames into a connected socket, 64 with one system call, without
/// copying their packets, without waiting and without a signal. Ends in the
/// middle of a frame when the socket takes no more: whoever goes on must go on
/// there, and nobody else may write before.
/// @param nBegun  bytes of the first frame that are out already, header included;
///                less than the frame has
KovaInterleavedProgress KovaInterleavedSend(int nSocket, const KovaInterleavedFrame *pFrames,
                                            uint32_t nCount, uint32_t nBegun);
