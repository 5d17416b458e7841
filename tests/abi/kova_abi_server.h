/* The exported functions of the session description, the streams, the RTSP side and the server, as
 * kova_abi.h has those below them. */
#ifndef KOVA_ABI_SERVER_H
#define KOVA_ABI_SERVER_H

#include "kova_abi.h"

/* ---- Session description ------------------------------------------------ */

KovaRtspMediaInfo *KovaRtspMediaInfoCreate(uint32_t type, uint32_t payload_id, const void *what);
void KovaRtspMediaInfoDestroy(KovaRtspMediaInfo *info);
KovaRtspSdpMedia *MediaCreate(uint32_t type, uint32_t payload_id, const void *what);
void MediaDestroy(KovaRtspSdpMedia *media);
KovaRtspSdpGenerator *KovaRtspSdpGeneratorCreate(const char *uri);
void KovaRtspSdpGeneratorDestroy(KovaRtspSdpGenerator *sdp);
int32_t KovaRtspSdpGeneratorAddMedia(KovaRtspSdpGenerator *sdp, uint32_t type, uint32_t payload_id,
                                     const void *what);
void KovaRtspSdpGeneratorRemoveMedia(KovaRtspSdpGenerator *sdp, KovaRtspSdpMedia *media);
void KovaRtspSdpGeneratorRemoveAllMedia(KovaRtspSdpGenerator *sdp);
KovaRtspSdpMedia *KovaRtspSdpGeneratorGetMediaByPayloadId(KovaRtspSdpGenerator *sdp, uint32_t id);
void KovaRtspSdpGeneratorRemoveMediaByPayloadId(KovaRtspSdpGenerator *sdp, uint32_t id);
void KovaRtspSdpGeneratorSetNetworkInfo(KovaRtspSdpGenerator *sdp, const char *server,
                                        uint16_t port, const char *client);
void KovaRtspSdpGeneratorSetMediaInfo(KovaRtspSdpGenerator *sdp, uint32_t id, uint32_t kind,
                                      const uint8_t *data, uint32_t length);
int32_t KovaRtspSdpGeneratorIsReady(KovaRtspSdpGenerator *sdp);
void KovaRtspGenerateSdpGetSdpInfo(KovaRtspSdpGenerator *sdp, char *text, int32_t *length);

/* ---- Streams ------------------------------------------------------------ */

KovaRtspStreamer *KovaRtspStreamerCreate(KovaRtspServer *server, const char *uri);
int32_t KovaRtspStreamerDestroy(KovaRtspStreamer *stream);
int32_t KovaRtspStreamerAddPayloadType(KovaRtspStreamer *stream, uint32_t type, uint32_t *id,
                                       const void *what);
int32_t KovaRtspStreamerRemovePayloadType(KovaRtspStreamer *stream, uint32_t id);
int32_t KovaRtspStreamerAddRtspMediaInfo(KovaRtspStreamer *stream, KovaRtspMediaInfo *info);
int32_t KovaRtspStreamerAddRtpPacker(KovaRtspStreamer *stream, KovaRtpPacker *packer);
int32_t KovaRtspStreamerAddRtpSender(KovaRtspStreamer *stream, KovaRtpSender *sender);
int32_t KovaRtspStreamerRemoveRtspMediaInfo(KovaRtspStreamer *stream, KovaRtspMediaInfo *info);
int32_t KovaRtspStreamerRemoveRtpPacker(KovaRtspStreamer *stream, KovaRtpPacker *packer);
int32_t KovaRtspStreamerRemoveRtpSender(KovaRtspStreamer *stream, KovaRtpSender *sender);
void KovaRtspStreamerRemoveAllRtspMediaInfo(KovaRtspStreamer *stream);
void KovaRtspStreamerRemoveAllRtpPacker(KovaRtspStreamer *stream);
void KovaRtspStreamerRemoveAllRtpSender(KovaRtspStreamer *stream);
KovaRtspMediaInfo *KovaRtspStreamerGetRtspMediaInfoByPayloadId(KovaRtspStreamer *s, uint32_t id);
KovaRtpPacker *KovaRtspStreamerGetRtpPackerByPayloadId(KovaRtspStreamer *stream, uint32_t id);
KovaRtpSender *KovaRtspStreamerGetRtpSenderByPayloadId(KovaRtspStreamer *stream, uint32_t id);
int32_t KovaRtspStreamerRemoveRtspMediaInfoByPayloadId(KovaRtspStreamer *stream, uint32_t id);
int32_t KovaRtspStreamerRemoveRtpPackerByPayloadId(KovaRtspStreamer *stream, uint32_t id);
int32_t KovaRtspStreamerRemoveRtpSenderByPayloadId(KovaRtspStreamer *stream, uint32_t id);
int32_t KovaRtspStreamerPushData(KovaRtspStreamer *stream, uint32_t id, const uint8_t *data,
                                 uint32_t length, uint32_t timestamp);
int32_t KovaRtspStreamerUpdateSession(KovaRtspServer *server, const char *session);
int32_t KovaRtspStreamerGetAveThroughput(KovaRtspStreamer *stream, uint64_t *throughput);
int32_t KovaRtspStreamerGetClientCount(KovaRtspStreamer *stream, int32_t *count);
int32_t KovaRtspStreamerGetServerStatus(KovaRtspStreamer *stream, uint32_t *status);
int32_t KovaRtspStreamerSdpIsReady(KovaRtspStreamer *stream);
void GetNewPayloadId(KovaRtspStreamer *stream, uint32_t *id);
void GetNewSSRC(uint32_t *ssrc);
void *pAudioPackerProc(void *stream);
void *pVideoPackerProc(void *stream);
void pAudioStreamInfoCallback(const uint8_t *data, uint32_t length, uint32_t kind, uint32_t id,
                              void *stream);
void pVideoStreamInfoCallback(const uint8_t *data, uint32_t length, uint32_t kind, uint32_t id,
                              void *stream);

/* ---- RTSP: sessions, connections, requests, answers --------------------- */

void GenerateSessionId(char *session);
void GetSessionId(char *session);
KovaRtspSession *KovaRtspSessionCreate(char *session, int32_t timeout);
void KovaRtspSessionDestroy(KovaRtspSession *session);
void KovaRtspSessionAddTransport(KovaRtspSession *session, KovaRtspTransport *transport);
void KovaRtspSessionRemoveTransport(KovaRtspSession *session, KovaRtspTransport *transport);
void KovaRtspSessionRemoveAllTransport(KovaRtspSession *session);
KovaRtspTransport *KovaRtspTransportCreate(uint32_t a, uint32_t b, uint32_t c, uint16_t d,
                                           uint16_t e, uint16_t f, uint16_t g, uint32_t h,
                                           uint32_t i, uint32_t j, uint32_t k);
void KovaRtspTransportDestroy(KovaRtspTransport *transport);
int32_t AddNewRtspSession(KovaRtspServer *server, char *session, int32_t timeout);
void GetServerPort(uint16_t client_rtp, uint16_t client_rtcp, uint16_t *rtp_port,
                   uint16_t *rtcp_port, int *rtp, int *rtcp);
void AddNewRtpClient(KovaRtspServer *server, const char *uri, int32_t track, const char *session,
                     int rtp, int rtcp, int32_t rtp_port, int32_t rtcp_port, int32_t rtp_channel,
                     int32_t rtcp_channel, int32_t transport, int *tcp, struct sockaddr_in address);
int32_t RemoveRtpClient(KovaRtspServer *server, const char *uri, const char *session);
int32_t UpdateRtpClientStatus(KovaRtspServer *server, const char *uri, const char *session);
int32_t GetTrackIdList(KovaRtspServer *server, const char *uri, const char *session,
                       KovaList **out);
int32_t GetSSRC(KovaRtspServer *server, const char *uri, int32_t track, uint32_t *ssrc);
void SetNetworkInfo(KovaRtspServer *server, KovaRtspServerHandler *handler, const char *uri);
void GetSdpInfo(KovaRtspServer *server, const char *uri, char *text, int32_t *length);
KovaRtspServerHandler *KovaRtspServerHandlerCreate(KovaRtspServer *server, int socket,
                                                   struct sockaddr_in peer);
int32_t KovaRtspServerHandlerStart(KovaRtspServerHandler *handler);
int32_t KovaRtspServerHandlerStop(KovaRtspServerHandler *handler);
int32_t KovaRtspServerHandlerDestroy(KovaRtspServerHandler *handler);
void *pHandleRequestProc(void *handler);
int32_t HandleRtspTcpKeepAlive(KovaRtspServerHandler *handler, const uint8_t *bytes, int32_t count);
int32_t HandleRtspRequest(KovaRtspServerHandler *handler, const uint8_t *bytes, int32_t count);
int32_t IsRequestCommandSupport(const char *method);
int32_t RequestResponseSend(KovaRtspServerHandler *handler, const char *bytes, int32_t count);
void ResponseStatusSetting(int32_t status, char *reason);
void RequestOptionsResponse(KovaRtspServerHandler *handler, KovaRtspRequestInfo info);
void RequestDescribeResponse(KovaRtspServerHandler *handler, KovaRtspRequestInfo info);
void RequestSetupResponse(KovaRtspServerHandler *handler, KovaRtspRequestInfo info);
void RequestPlayResponse(KovaRtspServerHandler *handler, KovaRtspRequestInfo info);
void RequestGetParameterResponse(KovaRtspServerHandler *handler, KovaRtspRequestInfo info);
void RequestTeardownResponse(KovaRtspServerHandler *handler, KovaRtspRequestInfo info);
void RequestNotOKResponse(KovaRtspServerHandler *handler, KovaRtspRequestInfo info);

/* ---- Server ------------------------------------------------------------- */

int32_t KovaRtspServerInit(KovaRtspServer **server, const char *address, uint32_t port,
                           int32_t max);
int32_t KovaRtspServerUninit(KovaRtspServer *server);
KovaRtspServer *KovaRtspServerCreate(const char *address, uint32_t port, int32_t max);
int32_t KovaRtspServerDestroy(KovaRtspServer *server);
int32_t KovaRtspServerStart(KovaRtspServer *server);
int32_t KovaRtspServerStop(KovaRtspServer *server);
KovaRtspStreamer *KovaRtspServerAddUri(KovaRtspServer *server, const char *uri);
int32_t KovaRtspServerRemoveUri(KovaRtspServer *server, const char *uri);
int32_t KovaRtspServerAddPayloadType(KovaRtspStreamer *stream, uint32_t type, uint32_t *id,
                                     const void *what);
int32_t KovaRtspServerRemovePayloadType(KovaRtspStreamer *stream, uint32_t id);
int32_t KovaRtspServerGetStatus(KovaRtspStreamer *stream, void *status);
int32_t KovaRtspServerPushData(KovaRtspStreamer *stream, uint32_t id, const uint8_t *data,
                               uint32_t length, uint32_t timestamp);
int32_t KovaRtspServerAddServerHandler(KovaRtspServer *server, KovaRtspServerHandler *handler);
int32_t KovaRtspServerRemoveServerHandler(KovaRtspServer *server, KovaRtspServerHandler *handler);
void KovaRtspServerRemoveAllServerHandler(KovaRtspServer *server);
int32_t KovaRtspServerAddSession(KovaRtspServer *server, KovaRtspSession *session);
int32_t KovaRtspServerRemoveSession(KovaRtspServer *server, KovaRtspSession *session);
void KovaRtspServerRemoveAllSession(KovaRtspServer *server);
KovaRtspSession *KovaRtspServerGetSessionBySessionId(KovaRtspServer *server, const char *session);
int32_t KovaRtspServerIsSessionExist(KovaRtspServer *server, const char *session);
int32_t KovaRtspServerUpdateSession(KovaRtspServer *server, const char *session);
int32_t KovaRtspServerRemoveSessionBySessionId(KovaRtspServer *server, const char *session);
KovaRtspServerHandler *KovaRtspServerGetHandlerBySessionId(KovaRtspServer *server, const char *id);
int32_t KovaRtspServerAddStreamer(KovaRtspServer *server, KovaRtspStreamer *stream);
int32_t KovaRtspServerRemoveStreamer(KovaRtspServer *server, KovaRtspStreamer *stream);
void KovaRtspServerRemoveAllStreamer(KovaRtspServer *server);
KovaRtspStreamer *KovaRtspServerGetStreamerByUri(KovaRtspServer *server, const char *uri);
int32_t KovaRtspServerIsUriExist(KovaRtspServer *server, const char *uri);
int32_t KovaRtspServerGetCurrentClientCount(KovaRtspServer *server);
int32_t KovaRtspServerRemoveRtpClient(KovaRtspServer *server, const char *session);
int32_t AddNewRtspHandler(KovaRtspServer *server, int socket, struct sockaddr_in peer);
void *pListenProc(void *server);
void *pMonitorProc(void *server);

#endif
