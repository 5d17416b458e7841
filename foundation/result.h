#pragma once

#include <cstdint>

/// Result codes of the server, RTSP, SDP, streamer and delivery layers. The
/// packetization layer has codes of its own (classic/rtp/rtp_packer.h).
enum KovaResult : int32_t {
    KOVA_RESULT_OK = 0,
    KOVA_RESULT_FAILED = 1,      ///< not found, or could not be made
    KOVA_RESULT_NULL = 2,        ///< a required argument is null
    KOVA_RESULT_CREATE = 4,      ///< the server object could not be created
    KOVA_RESULT_NO_SESSION = 5,  ///< no session has that id
    KOVA_RESULT_SOCKET = 7,      ///< socket() failed
    KOVA_RESULT_SETSOCKOPT = 8,  ///< setsockopt() failed
    KOVA_RESULT_BIND = 9,        ///< bind() failed
    KOVA_RESULT_LISTEN = 10,     ///< listen() failed
    KOVA_RESULT_THREAD = 11,     ///< a service thread could not be created
    KOVA_RESULT_OVERFLOW = 12,   ///< an input ring had no room
    KOVA_RESULT_RTCP_TAKEN = 13, ///< RTCP data taken from an RTSP connection and dropped
    KOVA_RESULT_RTCP_ALIVE = 14, ///< receiver report taken, session refreshed
};

/// Media type codes; the packers use the same numbers as codec codes.
enum KovaMediaType : uint32_t {
    KOVA_MEDIA_TYPE_AUDIO = 1, ///< AAC
    KOVA_MEDIA_TYPE_VIDEO = 2, ///< H.264
};

/// The payload ids that the two input rings are bound to, in order of addition.
constexpr uint32_t kPayloadIdFirstRing = 96;
constexpr uint32_t kPayloadIdSecondRing = 97;

/// Storage of the two input rings, bytes. It also bounds what waits behind them.
constexpr int32_t kAudioRingSize = 2 * 1024 * 1024;
constexpr int32_t kVideoRingSize = 14 * 1024 * 1024;
