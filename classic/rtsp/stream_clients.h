#pragma once

#include "classic/rtsp/connection_handler.h"
#include "classic/rtsp/request_info.h"
#include "foundation/export.h"
#include "foundation/list.h"

#include <netinet/in.h>

#include <cstdint>

struct KovaRtspServer;
struct KovaRtspStreamer;
struct KovaSessionTally;

/// What requests do with a stream and its RTP clients. Results, where there are
/// any: 0; 1 stream (or packer) not found; 2 a null argument. Request threads;
/// no lock held, but for mtxSession around KovaStreamDropSession and
/// KovaStreamTakeBackPlay.

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

/// Adds a client to the sender of a track. Returns whether a client took the
/// two sockets; when not they stay the caller's.
bool KovaStreamTakeClient(KovaRtspServer *pServer, const char *szUri, int32_t nTrackId,
                          const KovaClientSetup &setup);

/// The same, without saying so.
KOVA_API void AddNewRtpClient(KovaRtspServer *pServer, const char *szUri, int32_t nTrackId,
                              const char *szSessionId, int32_t nRtpSocket, int32_t nRtcpSocket,
                              int32_t nClientRtpPort, int32_t nClientRtcpPort, int32_t nRtpChannel,
                              int32_t nRtcpChannel, int32_t nTransport, int *pTcpSocket,
                              sockaddr_in clientAddress);

/// Removes and destroys every client of a session on a stream, and lowers the
/// stream's client count by one if there was any.
KOVA_API int32_t RemoveRtpClient(KovaRtspServer *pServer, const char *szUri,
                                 const char *szSessionId);

/// Takes back what a SETUP did for a session that ended in the middle of it:
/// removes the session's clients, and counts it out if it plays and nobody did so.
void KovaStreamDropSession(KovaRtspServer *pServer, const char *szUri, const char *szSessionId);

/// A PLAY on its way. The stream is pinned and the session's tally held, so that
/// the count that it raises is lowered by one only, whoever finds out first that
/// the session has ended.
struct KovaPlay {
    KovaRtspStreamer *pStreamer; ///< null: no such stream
    KovaSessionTally *pTally;
    const char *szSessionId; ///< the caller's
};

/// Does what UpdateRtpClientStatus does. Followed by KovaStreamFinishPlay().
KovaPlay KovaStreamBeginPlay(KovaRtspServer *pServer, const char *szUri, const char *szSessionId);

/// Takes it back, for a session that has ended since: removes the session's
/// clients, and lowers the count unless somebody did.
void KovaStreamTakeBackPlay(const KovaPlay &play);

/// Lets the stream and the tally go.
void KovaStreamFinishPlay(const KovaPlay &play);

/// Raises the stream's client count by one, then marks every client of the
/// session playing.
KOVA_API int32_t UpdateRtpClientStatus(KovaRtspServer *pServer, const char *szUri,
                                       const char *szSessionId);

/// Appends a KovaRtspTrackInfo per client of the session to *ppTrackList, in the
/// order of the stream's senders.
KOVA_API int32_t GetTrackIdList(KovaRtspServer *pServer, const char *szUri, const char *szSessionId,
                                KovaList **ppTrackList);

/// The SSRC of a track. 2 also for an empty URI.
KOVA_API int32_t GetSSRC(KovaRtspServer *pServer, const char *szUri, int32_t nTrackId,
                         uint32_t *pSsrc);

/// Lets the stream's description carry this connection's addresses.
KOVA_API void SetNetworkInfo(KovaRtspServer *pServer, KovaRtspServerHandler *pHandler,
                             const char *szUri);

/// Writes the stream's description, ready or not, into szText (kSdpTextSize
/// bytes) and its length into *pLength.
KOVA_API void GetSdpInfo(KovaRtspServer *pServer, const char *szUri, char *szText,
                         int32_t *pLength);

/// The same for a stream that is ready; otherwise nothing is written.
void KovaStreamGetReadySdp(KovaRtspServer *pServer, const char *szUri, char *szText,
                           int32_t *pLength);
