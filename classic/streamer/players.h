#pragma once

#include "classic/rtp/session_tally.h"
#include "classic/streamer/streamer.h"

#include <netinet/in.h>

#include <cstdint>

/// A player's life on a stream. A player is a session, and on the stream it is
/// the set of RTP clients (one a track) that bear the session's id. Here it is
/// added, plays, ends and is counted; nobody else changes a stream's client count.
/// Any thread; the caller keeps the stream alive (a pin, or mtxStreamer).

/// How a player ends. Whoever ends it removes and destroys its clients, which
/// closes their sockets.
///
/// | End          | Where               | Count goes down                             |
/// |--------------|---------------------|---------------------------------------------|
/// | torn down    | the named stream    | by one if it has a client there, played or  |
/// |              |                     | not, unless its connection was counted out  |
/// | gone with it | all other streams   | where it plays and was not counted out      |
/// | expired      | all streams         | as torn down, on the first stream met; a    |
/// |              |                     | line for each step                          |
/// | lost         | all streams         | where it plays and was not counted out; see |
/// |              |                     | below                                       |
/// | overtaken    | the named stream    | where it plays and was not counted out      |
/// | withdrawn    | the group that goes | where it plays, was not counted out, and    |
/// |              |                     | has no other client                         |
///
/// A lost connection is met by each of its interleaved tracks' sending threads, so
/// clients that play through it are left to them; one that gets no packet is a
/// stray and goes a few passes of the monitor later.
enum KovaPlayerEnd : uint8_t {
    kEndTornDown,   ///< TEARDOWN
    kEndGoneWithIt, ///< TEARDOWN on another stream ended the session
    kEndExpired,    ///< nothing kept the session alive
    kEndLost,       ///< its connection broke
    kEndOvertaken,  ///< it ended another way while a SETUP or PLAY was handled
};

/// Everything that makes an RTP client out of a SETUP.
struct KovaClientSetup {
    const char *szSessionId;
    int32_t nRtpSocket;
    int32_t nRtcpSocket;
    uint16_t nClientRtpPort;
    uint16_t nClientRtcpPort;
    uint16_t nRtpChannel;
    uint16_t nRtcpChannel;
    int32_t nTransport;  ///< KovaRtspTransportKind
    int *pTcpSocket;     ///< the connection's socket field
    sockaddr_in address; ///< the player's
};

/// Adds a client to the sender of a track. Returns whether a client took the two
/// sockets; when not (no such track, a negative socket, no memory) they stay the
/// caller's.
bool KovaPlayersAdd(KovaRtspStreamer *pStreamer, uint32_t nTrackId, const KovaClientSetup &setup);

/// A PLAY on its way: it holds the session's tally, so that the count that it
/// raises is lowered by one only, whoever finds out first that the session ended.
struct KovaPlay {
    KovaSessionTally *pTally;
    const char *szSessionId; ///< the caller's
};

/// Raises the count by one, whether or not the session has a client, and marks its
/// clients playing. Followed by KovaPlayersFinishPlay().
KovaPlay KovaPlayersBeginPlay(KovaRtspStreamer *pStreamer, const char *szSessionId);

/// Takes it back, for a session that has ended since: ends the player
/// (kEndOvertaken) and lowers the count unless somebody did.
void KovaPlayersTakeBackPlay(KovaRtspStreamer *pStreamer, const KovaPlay &play);

/// Lets the tally go.
void KovaPlayersFinishPlay(const KovaPlay &play);

/// Ends a session's player on this stream. Where all streams are concerned it is
/// called for each.
/// @param pCounted  false at first; whether this end has lowered a count already
void KovaPlayersEnd(KovaRtspStreamer *pStreamer, const char *szSessionId, KovaPlayerEnd end,
                    bool *pCounted);

/// A client met by the monitor, under its group's lock: true for a stray whose time
/// is over, which is counted out and is to be removed.
bool KovaPlayersStrayIsDue(KovaRtspStreamer *pStreamer, KovaRtpClient *pClient);
