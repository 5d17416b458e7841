#pragma once

#include "foundation/export.h"
#include "rtp/udp_batch.h"

#include <netinet/in.h>

#include <atomic>
#include <cstdint>

struct KovaTcpChannel;
struct KovaSessionTally;

/// Room for a session id: 11 digits and a terminator.
constexpr unsigned kSessionIdSize = 12;

/// States of a client.
enum KovaClientState : int32_t {
    kClientSetUp = 0,   ///< not playing yet
    kClientPlaying = 1, ///< PLAY was received
    kClientGone = 2,    ///< connection lost; the sending thread removes it
};

/// One destination of one payload's RTP: a player that has set up a track. All
/// fields are guarded by the clientMutex of the client's send group.
/// Frozen: callers from outside read the fields at these places; ours come last.
struct KovaRtpClient {
    int32_t nState;                   ///< KovaClientState
    char szSessionId[kSessionIdSize]; ///< the RTSP session it belongs to
    int32_t nRtpSocket;               ///< server's UDP socket for RTP; owned; 0 when interleaved
    int32_t nRtcpSocket;              ///< server's UDP socket for RTCP; owned
    uint16_t nClientRtpPort;          ///< player's ports, host order
    uint16_t nClientRtcpPort;
    sockaddr_in rtpAddress; ///< player's address with its RTP port
    sockaddr_in rtcpAddress;
    uint16_t nStartSequence; ///< the sender's last sequence number when the client came
    uint32_t nStartTimestamp;
    uint32_t nOctetCount; ///< bytes of RTP packets sent, headers included
    uint32_t nPacketCount;
    uint64_t nSendBitrate;      ///< kbit/s, set by the monitor
    int32_t nLastRtcpTime;      ///< wall-clock seconds of the last sender report; 0 before
    int32_t bKeyFrameFound;     ///< a key-frame or audio packet has come by
    uint64_t nMeasureStartTime; ///< ms; the monitor restarts it
    uint32_t nMeasureBytes;     ///< bytes sent since then
    int32_t bInterleaved;       ///< RTP goes through the RTSP connection
    /// The RTSP connection's socket field; points at a -1 once the connection
    /// is gone.
    std::atomic<int *> pTcpSocket;
    uint16_t nRtpChannel; ///< interleaved channels
    uint16_t nRtcpChannel;

    KovaTcpChannel *pChannel; ///< the connection as a sending path
    KovaSessionTally *pTally; ///< the session's clients on this stream; may be null
    uint32_t nStrayPasses;    ///< monitor passes since its session was gone; 0 while it has one
    uint32_t nSerial;         ///< tells a client from a later one at the same address
    uint32_t nPass;           ///< the group's pass in which it was served last
    uint16_t nHeldPort;       ///< server's RTP port as noted for port searches; 0: none
    KovaUdpRoute route;       ///< what the way to rtpAddress allows
    bool bRtcpWaits;          ///< its RTCP socket may hold something
};

/// Makes a client.
/// @param clientAddress  the player's address; its port is replaced
/// @param nInterleaved   0: UDP; else through the connection at pTcpSocket
/// @param pTcpSocket     the connection's socket field; may be null
/// @return null when the id is null, a socket is negative, or without memory
///         (the sockets stay the caller's then).
KOVA_API KovaRtpClient *KovaRtpClientCreate(const char *szSessionId, int32_t nRtpSocket,
                                            int32_t nRtcpSocket, uint16_t nClientRtpPort,
                                            uint16_t nClientRtcpPort, sockaddr_in clientAddress,
                                            int32_t nInterleaved, int *pTcpSocket,
                                            uint16_t nRtpChannel, uint16_t nRtcpChannel,
                                            uint16_t nStartSequence, uint32_t nStartTimestamp);

/// Closes the client's UDP sockets (those above 0) and frees it. The RTSP
/// connection stays as it is. Null is ignored.
KOVA_API void KovaRtpClientDestroy(KovaRtpClient *pClient);
