#pragma once

#include "foundation/mutex.h"
#include "live/engine/loop.h"
#include "live/engine/stream.h"
#include "rtp/udp_batch.h"

#include <netinet/in.h>

#include <cstdint>

struct KovaLiveConnection;
struct KovaUdpPorts;

/// A session id: 64 random bits in hexadecimal. With several loops the last digit is its loop's.
constexpr size_t kLiveSessionIdSize = 17;

/// One track that a session has set up.
struct KovaLiveSetup {
    KovaLiveSetup *pNext;
    uint8_t nTrack;
    bool bInterleaved;
    bool bWantsEntry; ///< nothing is sent before a unit at which a decoder can begin
    bool bTakes;      ///< gets the unit that is being sent
    bool bBye;        ///< the player has said RTCP BYE
    uint8_t nRtpChannel;
    uint8_t nRtcpChannel;
    KovaUdpRoute route;
    sockaddr_in rtpAddress;
    sockaddr_in rtcpAddress;
    uint32_t nPackets;    ///< RTP packets sent: the sender report's counts
    uint32_t nOctets;     ///< and payload bytes, headers not included
    uint64_t nNextReport; ///< µs: when the next sender report is due; 0: with the first packet
    uint32_t nReporter;   ///< SSRC of whoever reports about it; 0: nobody has
    uint32_t nLoss;       ///< of the last receiver report, of 256
    uint32_t nJitter;     ///< in RTP clock units
    uint32_t nRoundTrip;  ///< µs; 0: not known
};

/// Packets of a unit that wait for their player.
struct KovaQueueEntry {
    KovaUnit *pUnit; ///< with a reference
    KovaLiveSetup *pSetup;
    uint32_t nNext; ///< the next packet
    uint32_t nEnd;
};

/// What a player has not taken yet, oldest first: a ring.
struct KovaPlayerQueue {
    KovaQueueEntry *pEntries;
    uint32_t nRoom; ///< a power of two; 0: nothing allocated
    uint32_t nFirst;
    uint32_t nCount;
    uint32_t nBytes;    ///< RTP bytes of all entries, about
    uint32_t nBegunOut; ///< TCP: bytes of the first packet's frame that are out
};

enum KovaSessionState : uint8_t {
    kSessionReady,
    kSessionPlaying,
    kSessionPaused,
};

/// A session (RFC 2326, 3.4). It belongs to the loop of the connection that made it.
struct KovaLiveSession {
    KovaLiveLoop *pLoop;
    KovaLiveSession *pNext; ///< in the loop's list
    KovaLiveSession **ppLink;
    KovaLiveSession *pNextPlayer; ///< among the stream's players of this loop
    KovaLiveSession **ppPlayerLink;
    KovaLiveSession *pNextOwn;       ///< of the connection's sessions
    KovaLiveStream *pStream;         ///< with a reference
    KovaLiveConnection *pConnection; ///< null once it has ended: UDP players only
    KovaUdpPorts *pPorts;            ///< null for interleaved players
    KovaLiveSetup *pSetups;          ///< in the order of SETUP
    char szId[kLiveSessionIdSize];
    KovaSessionState state;
    bool bInterleaved;
    bool bPlayed;       ///< the host was told that the player came
    bool bDisconnect;   ///< the host lets it go
    bool bSlow;         ///< the host was told that units are dropped
    uint32_t nSerial;   ///< units up to this one are not for it, unless they were kept
    uint64_t nJoined;   ///< µs: last PLAY
    uint32_t nPeer;     ///< address, network order
    uint16_t nPeerPort; ///< of its connection
    KovaPlayerQueue queue;
    KovaTimer timer;
    uint64_t nHeard;  ///< µs: the last sign of life
    uint64_t nPlayer; ///< number for the host; 0 before it plays
    uint64_t nBegan;  ///< µs: first PLAY
    KovaSentCounts sent;
    char szUser[kLoginUserSize];
};

/// Makes a session on a stream for a connection's peer. KOVA_LIVE_OK, ERROR_MEMORY, or
/// ERROR_TOO_LARGE at the limit of sessions. Takes a reference of the stream.
int32_t KovaSessionCreate(KovaLiveConnection *pConnection, KovaLiveStream *pStream,
                          KovaLiveSession **ppSession);

/// Ends a session: BYE to UDP players, the host is told if it played, everything is freed.
/// @param nReason  KOVA_LIVE_WENT_...
void KovaSessionEnd(KovaLiveSession *pSession, uint32_t nReason);

/// The loop's session of that id, if it belongs to that peer; null otherwise.
KovaLiveSession *KovaSessionFind(KovaLiveLoop *pLoop, const char *szId, size_t nLength,
                                 uint32_t nPeer);

/// The loop that a session of that id belongs to, if there is one; null when there is none.
KovaLiveLoop *KovaSessionLoop(const KovaLive *pLive, const char *szId, size_t nLength);

/// The session's track; null when it is not set up.
KovaLiveSetup *KovaSessionSetup(KovaLiveSession *pSession, uint32_t nTrack);

/// Adds a track; null without memory.
KovaLiveSetup *KovaSessionAddSetup(KovaLiveSession *pSession, uint32_t nTrack);

/// Takes one track away from a session with several.
void KovaSessionRemoveSetup(KovaLiveSession *pSession, KovaLiveSetup *pSetup);

/// Counts RTP packets that are out, with their bytes.
void KovaSessionCountSent(KovaLiveSession *pSession, KovaLiveSetup *pSetup, uint32_t nPackets,
                          uint32_t nBytes);
/// Counts packets that will not be sent.
void KovaSessionCountLate(KovaLiveSession *pSession, uint32_t nPackets);

/// PLAY and PAUSE.
void KovaSessionPlay(KovaLiveSession *pSession);
void KovaSessionPause(KovaLiveSession *pSession);

/// A sign of life.
void KovaSessionHeard(KovaLiveSession *pSession);
