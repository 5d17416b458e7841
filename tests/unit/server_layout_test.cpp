#include "sdp/sdp_generator.h"
#include "server/server.h"
#include "tests/unit/field_offset.h"

#include <gtest/gtest.h>

#include <netinet/in.h>
#include <pthread.h>

#include <cstddef>
#include <cstdint>
#include <utility>

/// The records above the delivery side: the listed fields stand in this order
/// with the C compiler's alignment; private fields only behind them.
namespace {

/// Compares the fields of a record with those of a plain C record, one by one.
template <typename Record, typename Mirror> class Fields {
public:
    template <typename A, typename B>
    Fields &Same(A Record::*pField, B Mirror::*pExpected, const char *szName)
    {
        EXPECT_EQ(KovaFieldOffset(pField), KovaFieldOffset(pExpected)) << szName;
        EXPECT_EQ(sizeof(A), sizeof(B)) << szName;
        EXPECT_EQ(alignof(A), alignof(B)) << szName;
        return *this;
    }
};

struct ServerMirror {
    int32_t nListenSocket;
    char szAddr[16];
    uint16_t nPort;
    int32_t nMaxClient;
    pthread_t hListenThread;
    pthread_t hMonitorThread;
    uint32_t nListenState;
    uint32_t nMonitorState;
    void *pHandlerList;
    void *pSessionList;
    void *pStreamerList;
    pthread_mutex_t mtxHandler;
    pthread_mutex_t mtxSession;
    pthread_mutex_t mtxStreamer;
};

TEST(ServerLayout, Server)
{
    using R = KovaRtspServer;
    using M = ServerMirror;
    Fields<R, M>()
        .Same(&R::nListenSocket, &M::nListenSocket, "nListenSocket")
        .Same(&R::szAddr, &M::szAddr, "szAddr")
        .Same(&R::nPort, &M::nPort, "nPort")
        .Same(&R::nMaxClient, &M::nMaxClient, "nMaxClient")
        .Same(&R::hListenThread, &M::hListenThread, "hListenThread")
        .Same(&R::hMonitorThread, &M::hMonitorThread, "hMonitorThread")
        .Same(&R::nListenState, &M::nListenState, "nListenState")
        .Same(&R::nMonitorState, &M::nMonitorState, "nMonitorState")
        .Same(&R::pHandlerList, &M::pHandlerList, "pHandlerList")
        .Same(&R::pSessionList, &M::pSessionList, "pSessionList")
        .Same(&R::pStreamerList, &M::pStreamerList, "pStreamerList")
        .Same(&R::mtxHandler, &M::mtxHandler, "mtxHandler")
        .Same(&R::mtxSession, &M::mtxSession, "mtxSession")
        .Same(&R::mtxStreamer, &M::mtxStreamer, "mtxStreamer");
}

struct HandlerMirror {
    void *pServer;
    char szLocalAddr[16];
    uint16_t nLocalPort;
    int32_t nSocket;
    struct sockaddr_in peerAddr;
    char szPeerAddr[16];
    uint16_t nPeerPort;
    int32_t nState;
    int32_t nSpare;
    unsigned char recvBuf[8192];
    unsigned char spareBuf[8192];
    char szSessionId[12];
    pthread_mutex_t mtxRequest;
};

TEST(ServerLayout, ConnectionHandler)
{
    using R = KovaRtspServerHandler;
    using M = HandlerMirror;
    Fields<R, M>()
        .Same(&R::pServer, &M::pServer, "pServer")
        .Same(&R::szLocalAddr, &M::szLocalAddr, "szLocalAddr")
        .Same(&R::nLocalPort, &M::nLocalPort, "nLocalPort")
        .Same(&R::nSocket, &M::nSocket, "nSocket")
        .Same(&R::peerAddr, &M::peerAddr, "peerAddr")
        .Same(&R::szPeerAddr, &M::szPeerAddr, "szPeerAddr")
        .Same(&R::nPeerPort, &M::nPeerPort, "nPeerPort")
        .Same(&R::nState, &M::nState, "nState")
        .Same(&R::nSpare, &M::nSpare, "nSpare")
        .Same(&R::recvBuf, &M::recvBuf, "recvBuf")
        .Same(&R::spareBuf, &M::spareBuf, "spareBuf")
        .Same(&R::szSessionId, &M::szSessionId, "szSessionId")
        .Same(&R::mtxRequest, &M::mtxRequest, "mtxRequest");
}

struct SessionMirror {
    char szSessionId[12];
    int32_t nTimeout;
    int32_t tExpire;
    void *pTransportList;
    int32_t nSpare;
    pthread_mutex_t mtxTransport;
};

TEST(ServerLayout, Session)
{
    using R = KovaRtspSession;
    using M = SessionMirror;
    Fields<R, M>()
        .Same(&R::szSessionId, &M::szSessionId, "szSessionId")
        .Same(&R::nTimeout, &M::nTimeout, "nTimeout")
        .Same(&R::tExpire, &M::tExpire, "tExpire")
        .Same(&R::pTransportList, &M::pTransportList, "pTransportList")
        .Same(&R::nSpare, &M::nSpare, "nSpare")
        .Same(&R::mtxTransport, &M::mtxTransport, "mtxTransport");
}

struct RingMirror {
    unsigned char *pBuffer;
    int32_t nSize;
    int32_t nReadPos;
    int32_t nWritePos;
};

struct StreamerMirror {
    void *pServer;
    char szUri[1024];
    uint32_t nLastPayloadId;
    void *pSdpGenerator;
    void *pMediaInfoList;
    void *pMediaInfoListTail;
    void *pPackerList;
    void *pPackerListTail;
    void *pSenderList;
    void *pSenderListTail;
    pthread_mutex_t mediaInfoMutex;
    pthread_mutex_t packerMutex;
    pthread_mutex_t senderMutex;
    uint32_t nFirstRtpTimestamp;
    uint64_t nFirstSendTime;
    pthread_mutex_t firstSendMutex;
    uint32_t tCreated;
    uint32_t nLastAudioTimestamp;
    uint32_t nLastVideoTimestamp;
    uint64_t nLastAudioPushTime;
    uint64_t nLastVideoPushTime;
    uint64_t nMaxAudioPushInterval;
    uint64_t nMaxVideoPushInterval;
    RingMirror videoRing;
    RingMirror audioRing;
    pthread_mutex_t ringMutex;
    uint32_t nAudioPackerState;
    uint32_t nVideoPackerState;
    uint64_t nAveThroughput;
    int32_t nClientCount;
    uint32_t nServerStatus;
};

TEST(ServerLayout, StreamRegistriesPart)
{
    using R = KovaRtspStreamer;
    using M = StreamerMirror;
    Fields<R, M>()
        .Same(&R::pServer, &M::pServer, "pServer")
        .Same(&R::szUri, &M::szUri, "szUri")
        .Same(&R::nLastPayloadId, &M::nLastPayloadId, "nLastPayloadId")
        .Same(&R::pSdpGenerator, &M::pSdpGenerator, "pSdpGenerator")
        .Same(&R::pMediaInfoList, &M::pMediaInfoList, "pMediaInfoList")
        .Same(&R::pMediaInfoListTail, &M::pMediaInfoListTail, "pMediaInfoListTail")
        .Same(&R::pPackerList, &M::pPackerList, "pPackerList")
        .Same(&R::pPackerListTail, &M::pPackerListTail, "pPackerListTail")
        .Same(&R::pSenderList, &M::pSenderList, "pSenderList")
        .Same(&R::pSenderListTail, &M::pSenderListTail, "pSenderListTail")
        .Same(&R::mediaInfoMutex, &M::mediaInfoMutex, "mediaInfoMutex")
        .Same(&R::packerMutex, &M::packerMutex, "packerMutex")
        .Same(&R::senderMutex, &M::senderMutex, "senderMutex");
}

TEST(ServerLayout, StreamFiguresPart)
{
    using R = KovaRtspStreamer;
    using M = StreamerMirror;
    Fields<R, M>()
        .Same(&R::nFirstRtpTimestamp, &M::nFirstRtpTimestamp, "nFirstRtpTimestamp")
        .Same(&R::nFirstSendTime, &M::nFirstSendTime, "nFirstSendTime")
        .Same(&R::firstSendMutex, &M::firstSendMutex, "firstSendMutex")
        .Same(&R::tCreated, &M::tCreated, "tCreated")
        .Same(&R::nLastAudioTimestamp, &M::nLastAudioTimestamp, "nLastAudioTimestamp")
        .Same(&R::nLastVideoTimestamp, &M::nLastVideoTimestamp, "nLastVideoTimestamp")
        .Same(&R::nLastAudioPushTime, &M::nLastAudioPushTime, "nLastAudioPushTime")
        .Same(&R::nLastVideoPushTime, &M::nLastVideoPushTime, "nLastVideoPushTime")
        .Same(&R::nMaxAudioPushInterval, &M::nMaxAudioPushInterval, "nMaxAudioPushInterval")
        .Same(&R::nMaxVideoPushInterval, &M::nMaxVideoPushInterval, "nMaxVideoPushInterval")
        .Same(&R::videoRing, &M::videoRing, "videoRing")
        .Same(&R::audioRing, &M::audioRing, "audioRing")
        .Same(&R::ringMutex, &M::ringMutex, "ringMutex")
        .Same(&R::nAudioPackerState, &M::nAudioPackerState, "nAudioPackerState")
        .Same(&R::nVideoPackerState, &M::nVideoPackerState, "nVideoPackerState")
        .Same(&R::nAveThroughput, &M::nAveThroughput, "nAveThroughput")
        .Same(&R::nClientCount, &M::nClientCount, "nClientCount")
        .Same(&R::nServerStatus, &M::nServerStatus, "nServerStatus");
}

struct GeneratorMirror {
    char szUri[1024];
    char szServerIp[16];
    uint16_t nServerPort;
    char szClientIp[16];
    void *pMediaList;
    pthread_mutex_t sdpMutex;
};

TEST(ServerLayout, SdpGenerator)
{
    using R = KovaRtspSdpGenerator;
    using M = GeneratorMirror;
    Fields<R, M>()
        .Same(&R::szUri, &M::szUri, "szUri")
        .Same(&R::szServerIp, &M::szServerIp, "szServerIp")
        .Same(&R::nServerPort, &M::nServerPort, "nServerPort")
        .Same(&R::szClientIp, &M::szClientIp, "szClientIp")
        .Same(&R::pMediaList, &M::pMediaList, "pMediaList")
        .Same(&R::sdpMutex, &M::sdpMutex, "sdpMutex");
}

/// A media type, a payload id and what belongs to them.
struct EntryMirror {
    uint32_t nMediaType;
    uint32_t nPayloadId;
    void *pData;
};

struct VideoMirror {
    char szProfileLevelId[8];
    char szSpropParameterSets[256];
    char szPpsBase64[256];
    char szSpsBase64[256];
    void *pDescription;
};

struct AudioMirror {
    char szConfig[8];
    void *pDescription;
};

TEST(ServerLayout, MediaEntries)
{
    using M = EntryMirror;
    using Media = KovaRtspSdpMedia;
    Fields<Media, M>()
        .Same(&Media::nMediaType, &M::nMediaType, "nMediaType")
        .Same(&Media::nPayloadId, &M::nPayloadId, "nPayloadId")
        .Same(&Media::pData, &M::pData, "pData");
    using Info = KovaRtspMediaInfo;
    Fields<Info, M>()
        .Same(&Info::nMediaType, &M::nMediaType, "nMediaType")
        .Same(&Info::nPayloadId, &M::nPayloadId, "nPayloadId")
        .Same(&Info::pDescription, &M::pData, "pDescription");
    using V = KovaSdpVideoData;
    using VM = VideoMirror;
    Fields<V, VM>()
        .Same(&V::szProfileLevelId, &VM::szProfileLevelId, "szProfileLevelId")
        .Same(&V::szSpropParameterSets, &VM::szSpropParameterSets, "szSpropParameterSets")
        .Same(&V::szPpsBase64, &VM::szPpsBase64, "szPpsBase64")
        .Same(&V::szSpsBase64, &VM::szSpsBase64, "szSpsBase64")
        .Same(&V::pDescription, &VM::pDescription, "pDescription");
    using A = KovaSdpAudioData;
    using AM = AudioMirror;
    Fields<A, AM>()
        .Same(&A::szConfig, &AM::szConfig, "szConfig")
        .Same(&A::pDescription, &AM::pDescription, "pDescription");
}

TEST(ServerLayout, PublicDescriptionsAreWords)
{
    EXPECT_EQ(sizeof(KovaVideoDescription), 4U);
    EXPECT_EQ(sizeof(KovaAudioDescription), 12U);
    EXPECT_EQ(offsetof(KovaAudioDescription, nBitrate), 0U);
    EXPECT_EQ(offsetof(KovaAudioDescription, nSampleRate), 4U);
    EXPECT_EQ(offsetof(KovaAudioDescription, nChannels), 8U);
}

TEST(ServerLayout, StatusRecordHas12Bytes)
{
    EXPECT_EQ(sizeof(KovaRtspStatus), 12U);
    EXPECT_EQ(offsetof(KovaRtspStatus, nType), 0U);
    EXPECT_EQ(offsetof(KovaRtspStatus, value), 4U);
    EXPECT_EQ(alignof(KovaRtspStatus), 4U);
}

} // namespace
