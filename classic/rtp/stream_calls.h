#pragma once

#include <cstdint>

/// What the sending side asks of the stream it belongs to: the only calls from
/// here up. Implemented in classic/streamer/stream_calls.cpp; the ends of players
/// (lost, withdrawn) in classic/streamer/players.cpp. Those that reach the server's
/// registries (refresh, lost) are made without holding any lock.
struct KovaRtpClient;
struct KovaRtspStreamer;
struct KovaSessionTally;

/// What a sending thread needs to know of its payload's packer.
struct KovaPackerIdentity {
    uint32_t nPayloadType;
    uint32_t nSsrc;
};

/// The common time base of all payloads of a stream.
struct KovaFirstSend {
    uint32_t nPts;  ///< presentation timestamp of the first packet sent, ms
    uint64_t nTime; ///< when that was, ms
};

/// The identity of the packer of a payload id. Returns false when there is none.
bool KovaStreamFindPacker(KovaRtspStreamer *pStreamer, uint32_t nPayloadId,
                          KovaPackerIdentity *pIdentity);

/// Reads the first-send record into *pRecord; makes it from nTime and nPts when
/// the stream has none yet (either of its values is 0) and returns true then.
bool KovaStreamFirstSend(KovaRtspStreamer *pStreamer, uint64_t nTime, uint32_t nPts,
                         KovaFirstSend *pRecord);

/// Wall-clock seconds at which the stream was made.
uint32_t KovaStreamCreationTime(KovaRtspStreamer *pStreamer);

/// A player's RTCP has arrived: keeps its session alive.
void KovaStreamRefreshSession(KovaRtspStreamer *pStreamer, const char *szSessionId);

/// A client has left its group because its player's connection broke: ends the
/// player and its session.
/// @param pTally  the client's, which it hands over; may be null
void KovaStreamPlayerLost(KovaRtspStreamer *pStreamer, KovaSessionTally *pTally,
                          const char *szSessionId);

/// A client goes with its group: takes it out of its session's tally, and counts
/// the player out if this was its last one. Under clientMutex. Of no stream
/// (null) only the former.
void KovaStreamClientWithdrawn(KovaRtspStreamer *pStreamer, KovaRtpClient *pClient);
