#pragma once

#include "classic/rtp/rtp_client.h"
#include "foundation/list.h"

#include <cstddef>
#include <cstdint>

/// RTSP methods that are answered (RFC 2326, section 10).
enum KovaRtspMethod : int32_t {
    kMethodNone = 0,
    kMethodOptions = 1,
    kMethodDescribe = 2,
    kMethodSetup = 3,
    kMethodPlay = 4,
    kMethodGetParameter = 5,
    kMethodTeardown = 6,
};

/// Status codes that are sent (RFC 2326, section 7.1.1).
enum KovaRtspStatusCode : int32_t {
    kStatusOk = 200,
    kStatusBadRequest = 400,
    kStatusForbidden = 403,
    kStatusNotFound = 404,
    kStatusSessionNotFound = 454,
};

/// How a track's RTP travels.
enum KovaRtspTransportKind : int32_t {
    kTransportUdp = 0,
    kTransportInterleaved = 1,
};

constexpr size_t kReasonSize = 64;

/// A parsed request and everything that its answer needs; zeroed but for
/// nStatus before parsing, and passed by value.
/// Frozen: callers from outside read the fields at these places.
struct KovaRtspRequestInfo {
    int32_t nMethod; ///< KovaRtspMethod
    char szHostPort[22];
    char szUri[1026];     ///< stream path without leading slash and track
    int32_t nRtspVersion; ///< 1, 2, or 0 for anything else; recorded only
    char szCSeq[8];
    int32_t nTrackId;     ///< of a SETUP; the track's payload id
    KovaList *pTrackList; ///< PLAY: of KovaRtspTrackInfo; released by the PLAY answer
    uint16_t nClientRtpPort;
    uint16_t nClientRtcpPort;
    uint16_t nServerRtpPort;
    uint16_t nServerRtcpPort;
    uint16_t nRtpChannel;
    uint16_t nRtcpChannel;
    int32_t nRtpSocket;
    int32_t nRtcpSocket;
    char szSessionId[kSessionIdSize];
    uint32_t nSsrc;
    int32_t nStatus;
    char szReason[kReasonSize];
    int32_t nTransport; ///< KovaRtspTransportKind
    int32_t nTcpSocket; ///< the connection's socket, of an interleaved SETUP
};

/// One track of a session, as PLAY answers it.
/// Frozen: callers from outside read the fields at these places.
struct KovaRtspTrackInfo {
    uint32_t nTrackId;
    uint32_t nSeq; ///< sequence number of the packet that the track's sender took last
    uint32_t nRtpTime;
};
