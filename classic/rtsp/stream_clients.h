#pragma once

#include "classic/rtsp/connection_handler.h"
#include "classic/rtsp/request_info.h"
#include "foundation/export.h"
#include "foundation/list.h"

#include <netinet/in.h>

#include <cstdint>

struct KovaRtspServer;
struct KovaRtspStreamer;

/// What requests ask of a stream that they have pinned, beside what is told to its
/// players (classic/streamer/players.h).

/// Appends a KovaRtspTrackInfo per client of the session to *ppTrackList, in the
/// order of the stream's senders.
void KovaStreamListTracks(KovaRtspStreamer *pStreamer, const char *szSessionId,
                          KovaList **ppTrackList);

/// The SSRC of a track. Returns whether there is such a track.
bool KovaStreamFindSsrc(KovaRtspStreamer *pStreamer, int32_t nTrackId, uint32_t *pSsrc);

/// Lets the stream's description carry this connection's addresses.
void KovaStreamTakeAddresses(KovaRtspStreamer *pStreamer, const KovaRtspServerHandler &handler);

/// The same for callers from outside, who name the stream by its URI. Results,
/// where there are any: 0; 1 stream (or packer) not found; 2 a null argument. No
/// lock is held.

/// Adds a client to the sender of a track. Sockets that no client takes stay the
/// caller's.
KOVA_API void AddNewRtpClient(KovaRtspServer *pServer, const char *szUri, int32_t nTrackId,
                              const char *szSessionId, int32_t nRtpSocket, int32_t nRtcpSocket,
                              int32_t nClientRtpPort, int32_t nClientRtcpPort, int32_t nRtpChannel,
                              int32_t nRtcpChannel, int32_t nTransport, int *pTcpSocket,
                              sockaddr_in clientAddress);

/// Removes and destroys every client of a session on a stream, and lowers the
/// stream's client count by one if there was any.
KOVA_API int32_t RemoveRtpClient(KovaRtspServer *pServer, const char *szUri,
                                 const char *szSessionId);

/// Raises the stream's client count by one, then marks every client of the
/// session playing.
KOVA_API int32_t UpdateRtpClientStatus(KovaRtspServer *pServer, const char *szUri,
                                       const char *szSessionId);

/// KovaStreamListTracks().
KOVA_API int32_t GetTrackIdList(KovaRtspServer *pServer, const char *szUri, const char *szSessionId,
                                KovaList **ppTrackList);

/// KovaStreamFindSsrc(). 2 also for an empty URI.
KOVA_API int32_t GetSSRC(KovaRtspServer *pServer, const char *szUri, int32_t nTrackId,
                         uint32_t *pSsrc);

/// KovaStreamTakeAddresses().
KOVA_API void SetNetworkInfo(KovaRtspServer *pServer, KovaRtspServerHandler *pHandler,
                             const char *szUri);

/// Writes the stream's description, ready or not, into szText (kSdpTextSize
/// bytes) and its length into *pLength.
KOVA_API void GetSdpInfo(KovaRtspServer *pServer, const char *szUri, char *szText,
                         int32_t *pLength);
