/*
 * The exported functions and the records as a C program sees them that was built against an earlier
 * copy of the library: plain C prototypes and natural alignment. None of the project's headers is
 * included, on purpose: a change of theirs must not go unnoticed here.
 */
#ifndef KOVA_ABI_H
#define KOVA_ABI_H

#include <netinet/in.h>
#include <pthread.h>
#include <stdint.h>

/* ---- Records ----------------------------------------------------------- */

typedef struct KovaList {
    void *data;
    struct KovaList *prev, *next;
} KovaList;

typedef struct KovaRingbuffer {
    uint8_t *pBuffer;
    int32_t nSize, nReadPos, nWritePos;
} KovaRingbuffer;

typedef struct KovaRtpPacket {
    uint8_t *pData;
    uint32_t nSize;
    int32_t nRefCount;
    uint32_t nFrameType, nPts;
    pthread_mutex_t mutex;
} KovaRtpPacket;

typedef void (*StreamInfo)(const uint8_t *data, uint32_t length, uint32_t kind, uint32_t payload_id,
                           void *context);

typedef struct KovaRtpPacker {
    uint32_t nPayloadType, nCodec, nSsrc, nPts, nTimestamp, bMarker, nSequence;
    StreamInfo pfnStreamInfo;
    void *pStreamInfoContext;
} KovaRtpPacker;

typedef struct KovaRtpClient {
    int32_t nState;
    char szSessionId[12];
    int nRtpSocket, nRtcpSocket;
    uint16_t nClientRtpPort, nClientRtcpPort;
    struct sockaddr_in rtpAddress, rtcpAddress;
    uint16_t nStartSequence;
    uint32_t nStartTimestamp, nOctetCount, nPacketCount;
    uint64_t nSendBitrate;
    int32_t nLastRtcpTime, bKeyFrameFound;
    uint64_t nMeasureStartTime;
    uint32_t nMeasureBytes;
    int32_t bInterleaved;
    int *pTcpSocket;
    uint16_t nRtpChannel, nRtcpChannel;
} KovaRtpClient;

typedef struct KovaRtpSender KovaRtpSender;

typedef struct KovaRtpSendGroup {
    KovaRtpSender *pSender;
    uint32_t nState;
    KovaList *pPacketList, *pPacketListTail, *pClientList;
    pthread_mutex_t packetMutex, clientMutex;
    uint32_t nLastPts;
} KovaRtpSendGroup;

typedef struct KovaRtspServer KovaRtspServer;
typedef struct KovaRtspStreamer KovaRtspStreamer;

struct KovaRtpSender {
    KovaRtspStreamer *pStreamer;
    uint32_t nPayloadId, nSendGroupCount;
    KovaList *pSendGroupList, *pSendGroupListTail;
    pthread_mutex_t mutex;
    uint16_t nLastSequence;
    uint32_t nLastTimestamp;
};

typedef struct KovaRtspMediaInfo {
    uint32_t nMediaType, nPayloadId, *pDescription;
} KovaRtspMediaInfo;

typedef struct KovaRtspSdpMedia {
    uint32_t nMediaType, nPayloadId;
    void *pData;
} KovaRtspSdpMedia;

typedef struct KovaRtspSdpGenerator {
    char szUri[1024], szServerIp[16];
    uint16_t nServerPort;
    char szClientIp[16];
    KovaList *pMediaList;
    pthread_mutex_t sdpMutex;
} KovaRtspSdpGenerator;

struct KovaRtspStreamer {
    KovaRtspServer *pServer;
    char szUri[1024];
    uint32_t nLastPayloadId;
    KovaRtspSdpGenerator *pSdpGenerator;
    KovaList *pMediaInfoList, *pMediaInfoListTail, *pPackerList, *pPackerListTail, *pSenderList,
        *pSenderListTail;
    pthread_mutex_t mediaInfoMutex, packerMutex, senderMutex;
    uint32_t nFirstRtpTimestamp;
    uint64_t nFirstSendTime;
    pthread_mutex_t firstSendMutex;
    uint32_t tCreated, nLastAudioTimestamp, nLastVideoTimestamp;
    uint64_t nLastAudioPushTime, nLastVideoPushTime, nMaxAudioPushInterval, nMaxVideoPushInterval;
    KovaRingbuffer videoRing, audioRing;
    pthread_mutex_t ringMutex;
    uint32_t nAudioPackerState, nVideoPackerState;
    uint64_t nAveThroughput;
    int32_t nClientCount;
    uint32_t nServerStatus;
};

typedef struct KovaRtspTransport {
    uint32_t words[3];
    uint16_t ports[4];
    uint32_t more[4];
} KovaRtspTransport;

typedef struct KovaRtspSession {
    char szSessionId[12];
    int32_t nTimeout, tExpire;
    KovaList *pTransportList;
    int32_t nSpare;
    pthread_mutex_t mtxTransport;
} KovaRtspSession;

typedef struct KovaRtspServerHandler {
    KovaRtspServer *pServer;
    char szLocalAddr[16];
    uint16_t nLocalPort;
    int nSocket;
    struct sockaddr_in peerAddr;
    char szPeerAddr[16];
    uint16_t nPeerPort;
    int32_t nState, nSpare;
    uint8_t recvBuf[8192], spareBuf[8192];
    char szSessionId[12];
    pthread_mutex_t mtxRequest;
} KovaRtspServerHandler;

struct KovaRtspServer {
    int nListenSocket;
    char szAddr[16];
    uint16_t nPort;
    int32_t nMaxClient;
    pthread_t hListenThread, hMonitorThread;
    uint32_t nListenState, nMonitorState;
    KovaList *pHandlerList, *pSessionList, *pStreamerList;
    pthread_mutex_t mtxHandler, mtxSession, mtxStreamer;
};

typedef struct KovaRtspRequestInfo {
    int32_t nMethod;
    char szHostPort[22], szUri[1026];
    int32_t nRtspVersion;
    char szCSeq[8];
    int32_t nTrackId;
    KovaList *pTrackList;
    uint16_t nClientRtpPort, nClientRtcpPort, nServerRtpPort, nServerRtcpPort, nRtpChannel,
        nRtcpChannel;
    int32_t nRtpSocket, nRtcpSocket;
    char szSessionId[12];
    uint32_t nSsrc;
    int32_t nStatus;
    char szReason[64];
    int32_t nTransport, nTcpSocket;
} KovaRtspRequestInfo;

typedef struct KovaRtspTrackInfo {
    uint32_t nTrackId, nSeq, nRtpTime;
} KovaRtspTrackInfo;

/* ---- Lists, ring buffer, byte order, time, log, base64 ------------------ */

extern uint32_t Rtsp_DebugLevel;
KovaList *KovaListAlloc(void);
void KovaListFree(KovaList *node);
KovaList *KovaListFirst(KovaList *node);
KovaList *KovaListLast(KovaList *node);
KovaList *KovaListNext(KovaList *node);
KovaList *KovaListPrevious(KovaList *node);
unsigned KovaListLength(KovaList *list);
KovaList *KovaListAppend(KovaList *list, void *data);
KovaList *KovaListAppendTail(KovaList *list, KovaList **tail, void *data);
KovaList *KovaListRemoveLink(KovaList *list, KovaList *node);
KovaList *KovaListRemove(KovaList *list, void *data);
void KovaRingbufferInit(KovaRingbuffer *ring, uint8_t *block, int32_t size);
int32_t KovaRingbufferRmpty(KovaRingbuffer *ring);
int32_t KovaRingbufferFree(KovaRingbuffer *ring);
int32_t KovaRingbufferAvail(KovaRingbuffer *ring);
KovaRingbuffer *KovaRingbufferFlush(KovaRingbuffer *ring);
KovaRingbuffer *KovaRingbufferReset(KovaRingbuffer *ring);
int32_t KovaRingbufferRead(KovaRingbuffer *ring, uint8_t *bytes, int32_t count);
int32_t KovaRingbufferWrite(KovaRingbuffer *ring, const uint8_t *bytes, int32_t count);
int32_t StreamerRingbufferRead(KovaRingbuffer *ring, uint8_t *bytes, int32_t count);
int32_t StreamerRingbufferWrite(KovaRingbuffer *ring, const uint8_t *bytes, int32_t count);
void RtspWriteMB(uint8_t *bytes, uint32_t value, uint16_t bits);
void RtspWriteLB(uint8_t *bytes, uint32_t value, uint16_t bits);
void RtspReadMB(const uint8_t *bytes, uint32_t *value, uint16_t bits);
void RtspReadLB(const uint8_t *bytes, uint32_t *value, uint16_t bits);
int32_t RtspGetTime(uint64_t *time);
void RTSP_SetLogLevel(uint32_t level);
void TimeLog(uint32_t level, const char *format, ...);
int32_t Base64encode_len(int32_t length);
int32_t Base64encode(char *text, const char *bytes, int32_t length);
int32_t Base64decode_len(const char *text);
int32_t Base64decode(char *bytes, const char *text);

/* ---- Packets and packers ------------------------------------------------ */

void KovaRtpPacketAddRef(KovaRtpPacket *packet);
void KovaRtpPacketReleaseRef(KovaRtpPacket *packet);
void KovaRtpFreePacket(KovaRtpPacket *packet);
KovaRtpPacker *KovaRtpVideoPackerCreate(uint32_t codec, uint32_t payload_type, uint32_t ssrc,
                                        StreamInfo callback, void *context);
KovaRtpPacker *KovaRtpAudioPackerCreate(uint32_t codec, uint32_t payload_type, uint32_t ssrc,
                                        StreamInfo callback, void *context);
void KovaRtpPackerDestroy(KovaRtpPacker *packer);
uint32_t KovaRtpPackerPushData(KovaRtpPacker *packer, const uint8_t *data, uint32_t length,
                               uint32_t pts);
uint32_t KovaRtpPackerGetRtpPacket(KovaRtpPacker *packer, KovaRtpPacket **packet);
uint32_t KovaRtpPackerGetRtcpSRData(KovaRtpPacker *packer, uint8_t *buffer, uint32_t size,
                                    uint32_t ntp_seconds, uint32_t ntp_fraction, uint32_t packets,
                                    uint32_t octets, uint32_t rtp_timestamp);
KovaRtpPacker *KovaRtpH264PackerCreate(void);
uint32_t KovaRtpH264PackerPushData(KovaRtpPacker *packer, const uint8_t *data, uint32_t length,
                                   uint32_t pts);
uint32_t KovaRtpH264PackerPrepareRtpPacket(KovaRtpPacker *packer, KovaRtpPacket *packet);
uint32_t KovaRtpH264PackerGetRtpPacket(KovaRtpPacker *packer, KovaRtpPacket *packet);
void KovaRtpH264PackerFreeNalList(KovaRtpPacker *packer);
void KovaRtpH264PackerDestroy(KovaRtpPacker *packer);
KovaRtpPacker *KovaRtpAacPackerCreate(void);
uint32_t KovaRtpAacPackerPushData(KovaRtpPacker *packer, const uint8_t *data, uint32_t length,
                                  uint32_t pts);
uint32_t KovaRtpAacPackerPrepareRtpPacket(KovaRtpPacker *packer, KovaRtpPacket *packet);
uint32_t KovaRtpAacPackerGetRtpPacket(KovaRtpPacker *packer, KovaRtpPacket *packet);
void KovaRtpAacPackerFreeAccessUnitList(KovaRtpPacker *packer);
void KovaRtpAacPackerDestroy(KovaRtpPacker *packer);

/* ---- Clients, send groups, senders -------------------------------------- */

KovaRtpClient *KovaRtpClientCreate(const char *session, int rtp, int rtcp, uint16_t rtp_port,
                                   uint16_t rtcp_port, struct sockaddr_in address,
                                   int32_t interleaved, int *tcp, uint16_t rtp_channel,
                                   uint16_t rtcp_channel, uint16_t sequence, uint32_t timestamp);
void KovaRtpClientDestroy(KovaRtpClient *client);
KovaRtpSendGroup *KovaRtpSendGroupCreate(KovaRtpSender *sender);
void KovaRtpSendGroupDestory(KovaRtpSendGroup *group);
int32_t KovaRtpSendGroupStart(KovaRtpSendGroup *group);
int32_t KovaRtpSendGroupStop(KovaRtpSendGroup *group);
void KovaRtpSendGroupAddRtpClient(KovaRtpSendGroup *group, KovaRtpClient *client);
void KovaRtpSendGroupRemoveRtpClient(KovaRtpSendGroup *group, KovaRtpClient *client);
void KovaRtpSendGroupRemoveAllRtpClient(KovaRtpSendGroup *group);
void KovaRtpSendGroupAddRtpPacket(KovaRtpSendGroup *group, KovaRtpPacket *packet);
void KovaRtpSendGroupRemoveRtpPacket(KovaRtpSendGroup *group, KovaRtpPacket *packet);
void KovaRtpSendGroupRemoveAllRtpPacket(KovaRtpSendGroup *group);
KovaRtpSender *KovaRtpSenderCreate(KovaRtspStreamer *streamer, uint32_t payload_id);
void KovaRtpSenderDestory(KovaRtpSender *sender);
int32_t KovaRtpSenderStart(KovaRtpSender *sender);
int32_t KovaRtpSenderStop(KovaRtpSender *sender);
void KovaRtpSenderAddRtpClient(KovaRtpSender *sender, const char *session, int rtp, int rtcp,
                               uint16_t rtp_port, uint16_t rtcp_port, struct sockaddr_in address,
                               int32_t interleaved, int *tcp, uint16_t rtp_channel,
                               uint16_t rtcp_channel, uint16_t sequence, uint32_t timestamp);
void KovaRtpSenderAddRtpPacket(KovaRtpSender *sender, KovaRtpPacket *packet);
void KovaRtpSenderAddRtpSendGroup(KovaRtpSender *sender, KovaRtpSendGroup *group);
void KovaRtpSenderRemoveRtpSendGroup(KovaRtpSender *sender, KovaRtpSendGroup *group);
void KovaRtpSenderRemoveAllRtpSendGroup(KovaRtpSender *sender);
void KovaRtpSenderStartAllRtpSendGroup(KovaRtpSender *sender);
void KovaRtpSenderStopAllRtpSendGroup(KovaRtpSender *sender);
void *pSenderProc(void *group);

#endif
