#include "classic/rtp/aac_packer.h"
#include "classic/rtp/h264_packer.h"
#include "classic/rtp/send_group.h"
#include "classic/rtp/sender.h"
#include "classic/rtsp/request_info.h"
#include "classic/sdp/sdp_generator.h"
#include "classic/server/server.h"
#include "tests/unit/field_offset.h"

#include <gtest/gtest.h>

#include <netinet/in.h>
#include <pthread.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>

/// Where programs in other languages find the fields: in numbers, for a 64-bit PC and for a 32-bit
/// board. The figures follow from natural alignment and from a mutex of 40 and of 24 bytes. The
/// fields stand in this order, each as large as the plain C type beside it; private fields only
/// come behind them.
namespace {

constexpr bool k64 = sizeof(void *) == 8;

struct Row {
    const char *szField;
    size_t nOffset;
    size_t nExpected;
    bool bSameForm; ///< size and alignment of the plain C type
};

/// A field, its type in a plain C record, and its offset on either system.
template <typename Plain, typename Record, typename Field>
Row At(const char *szField, Field Record::*pField, size_t n64, size_t n32)
{
    return {szField, KovaFieldOffset(pField), k64 ? n64 : n32,
            sizeof(Field) == sizeof(Plain) && alignof(Field) == alignof(Plain)};
}

void Expect(std::initializer_list<Row> rows)
{
    ASSERT_EQ(sizeof(pthread_mutex_t), k64 ? 40U : 24U) << "no figures for this system";
    for (const Row &row : rows) {
        EXPECT_EQ(row.nOffset, row.nExpected) << row.szField;
        EXPECT_TRUE(row.bSameForm) << row.szField;
    }
}

/// Of records that are made by others too, or in front of others.
template <typename Record> void ExpectSize(size_t n64, size_t n32)
{
    EXPECT_EQ(sizeof(Record), k64 ? n64 : n32);
}

TEST(RecordOffsets, KovaList)
{
    using R = KovaList;
    ExpectSize<R>(24, 12);
    Expect({
        At<void *>("data", &R::data, 0, 0),
        At<void *>("prev", &R::prev, 8, 4),
        At<void *>("next", &R::next, 16, 8),
    });
}

TEST(RecordOffsets, KovaRingbuffer)
{
    using R = KovaRingbuffer;
    ExpectSize<R>(24, 16);
    Expect({
        At<uint8_t *>("pBuffer", &R::pBuffer, 0, 0),
        At<int32_t>("nSize", &R::nSize, 8, 4),
        At<int32_t>("nReadPos", &R::nReadPos, 12, 8),
        At<int32_t>("nWritePos", &R::nWritePos, 16, 12),
    });
}

TEST(RecordOffsets, KovaRtpPacket)
{
    using R = KovaRtpPacket;
    Expect({
        At<uint8_t *>("pData", &R::pData, 0, 0),
        At<uint32_t>("nSize", &R::nSize, 8, 4),
        At<int32_t>("nRefCount", &R::nRefCount, 12, 8),
        At<uint32_t>("nFrameType", &R::nFrameType, 16, 12),
        At<uint32_t>("nPts", &R::nPts, 20, 16),
        At<pthread_mutex_t>("mutex", &R::mutex, 24, 20),
    });
}

TEST(RecordOffsets, KovaRtpPacker)
{
    using R = KovaRtpPacker;
    ExpectSize<R>(48, 36);
    Expect({
        At<uint32_t>("nPayloadType", &R::nPayloadType, 0, 0),
        At<uint32_t>("nCodec", &R::nCodec, 4, 4),
        At<uint32_t>("nSsrc", &R::nSsrc, 8, 8),
        At<uint32_t>("nPts", &R::nPts, 12, 12),
        At<uint32_t>("nTimestamp", &R::nTimestamp, 16, 16),
        At<uint32_t>("bMarker", &R::bMarker, 20, 20),
        At<uint32_t>("nSequence", &R::nSequence, 24, 24),
        At<void (*)()>("pfnStreamInfo", &R::pfnStreamInfo, 32, 28),
        At<void *>("pStreamInfoContext", &R::pStreamInfoContext, 40, 32),
    });
}

TEST(RecordOffsets, KovaRtpH264Packer)
{
    using R = KovaRtpH264Packer;
    Expect({
        At<KovaRtpPacker>("head", &R::head, 0, 0),
        At<uint32_t>("nFragmentOffset", &R::nFragmentOffset, 48, 36),
        At<uint32_t>("nPayloadBytes", &R::nPayloadBytes, 52, 40),
        At<uint32_t>("nNalCount", &R::nNalCount, 56, 44),
        At<void *>("pFragmentNal", &R::pFragmentNal, 64, 48),
        At<void *>("pNalList", &R::pNalList, 72, 52),
        At<void *>("pNalListTail", &R::pNalListTail, 80, 56),
    });
}

TEST(RecordOffsets, KovaRtpAacPacker)
{
    using R = KovaRtpAacPacker;
    Expect({
        At<KovaRtpPacker>("head", &R::head, 0, 0),
        At<uint32_t>("nSampleRate", &R::nSampleRate, 48, 36),
        At<uint32_t>("nFragmentOffset", &R::nFragmentOffset, 52, 40),
        At<uint32_t>("nFragmentSize", &R::nFragmentSize, 56, 44),
        At<uint32_t>("bWholeUnit", &R::bWholeUnit, 60, 48),
        At<void *>("pFragmentUnit", &R::pFragmentUnit, 64, 52),
        At<void *>("pAuList", &R::pAuList, 72, 56),
        At<void *>("pAuListTail", &R::pAuListTail, 80, 60),
    });
}

TEST(RecordOffsets, KovaRtpClient)
{
    using R = KovaRtpClient;
    Expect({
        At<int32_t>("nState", &R::nState, 0, 0),
        At<char[12]>("szSessionId", &R::szSessionId, 4, 4),
        At<int>("nRtpSocket", &R::nRtpSocket, 16, 16),
        At<int>("nRtcpSocket", &R::nRtcpSocket, 20, 20),
        At<uint16_t>("nClientRtpPort", &R::nClientRtpPort, 24, 24),
        At<uint16_t>("nClientRtcpPort", &R::nClientRtcpPort, 26, 26),
        At<sockaddr_in>("rtpAddress", &R::rtpAddress, 28, 28),
        At<sockaddr_in>("rtcpAddress", &R::rtcpAddress, 44, 44),
        At<uint16_t>("nStartSequence", &R::nStartSequence, 60, 60),
        At<uint32_t>("nStartTimestamp", &R::nStartTimestamp, 64, 64),
        At<uint32_t>("nOctetCount", &R::nOctetCount, 68, 68),
        At<uint32_t>("nPacketCount", &R::nPacketCount, 72, 72),
        At<uint64_t>("nSendBitrate", &R::nSendBitrate, 80, 80),
        At<int32_t>("nLastRtcpTime", &R::nLastRtcpTime, 88, 88),
        At<int32_t>("bKeyFrameFound", &R::bKeyFrameFound, 92, 92),
        At<uint64_t>("nMeasureStartTime", &R::nMeasureStartTime, 96, 96),
        At<uint32_t>("nMeasureBytes", &R::nMeasureBytes, 104, 104),
        At<int32_t>("bInterleaved", &R::bInterleaved, 108, 108),
        At<int *>("pTcpSocket", &R::pTcpSocket, 112, 112),
        At<uint16_t>("nRtpChannel", &R::nRtpChannel, 120, 116),
        At<uint16_t>("nRtcpChannel", &R::nRtcpChannel, 122, 118),
    });
}

TEST(RecordOffsets, KovaRtpSendGroup)
{
    using R = KovaRtpSendGroup;
    Expect({
        At<void *>("pSender", &R::pSender, 0, 0),
        At<uint32_t>("nState", &R::nState, 8, 4),
        At<void *>("pPacketList", &R::pPacketList, 16, 8),
        At<void *>("pPacketListTail", &R::pPacketListTail, 24, 12),
        At<void *>("pClientList", &R::pClientList, 32, 16),
        At<pthread_mutex_t>("packetMutex", &R::packetMutex, 40, 20),
        At<pthread_mutex_t>("clientMutex", &R::clientMutex, 80, 44),
        At<uint32_t>("nLastPts", &R::nLastPts, 120, 68),
    });
}

TEST(RecordOffsets, KovaRtpSender)
{
    using R = KovaRtpSender;
    Expect({
        At<void *>("pStreamer", &R::pStreamer, 0, 0),
        At<uint32_t>("nPayloadId", &R::nPayloadId, 8, 4),
        At<uint32_t>("nSendGroupCount", &R::nSendGroupCount, 12, 8),
        At<void *>("pSendGroupList", &R::pSendGroupList, 16, 12),
        At<void *>("pSendGroupListTail", &R::pSendGroupListTail, 24, 16),
        At<pthread_mutex_t>("mutex", &R::mutex, 32, 20),
        At<uint16_t>("nLastSequence", &R::nLastSequence, 72, 44),
        At<uint32_t>("nLastTimestamp", &R::nLastTimestamp, 76, 48),
    });
}

TEST(RecordOffsets, KovaRtspRequestInfo)
{
    using R = KovaRtspRequestInfo;
    ExpectSize<R>(1192, 1184);
    Expect({
        At<int32_t>("nMethod", &R::nMethod, 0, 0),
        At<char[22]>("szHostPort", &R::szHostPort, 4, 4),
        At<char[1026]>("szUri", &R::szUri, 26, 26),
        At<int32_t>("nRtspVersion", &R::nRtspVersion, 1052, 1052),
        At<char[8]>("szCSeq", &R::szCSeq, 1056, 1056),
        At<int32_t>("nTrackId", &R::nTrackId, 1064, 1064),
        At<void *>("pTrackList", &R::pTrackList, 1072, 1068),
        At<uint16_t>("nClientRtpPort", &R::nClientRtpPort, 1080, 1072),
        At<uint16_t>("nClientRtcpPort", &R::nClientRtcpPort, 1082, 1074),
        At<uint16_t>("nServerRtpPort", &R::nServerRtpPort, 1084, 1076),
        At<uint16_t>("nServerRtcpPort", &R::nServerRtcpPort, 1086, 1078),
        At<uint16_t>("nRtpChannel", &R::nRtpChannel, 1088, 1080),
        At<uint16_t>("nRtcpChannel", &R::nRtcpChannel, 1090, 1082),
        At<int32_t>("nRtpSocket", &R::nRtpSocket, 1092, 1084),
        At<int32_t>("nRtcpSocket", &R::nRtcpSocket, 1096, 1088),
        At<char[12]>("szSessionId", &R::szSessionId, 1100, 1092),
        At<uint32_t>("nSsrc", &R::nSsrc, 1112, 1104),
        At<int32_t>("nStatus", &R::nStatus, 1116, 1108),
        At<char[64]>("szReason", &R::szReason, 1120, 1112),
        At<int32_t>("nTransport", &R::nTransport, 1184, 1176),
        At<int32_t>("nTcpSocket", &R::nTcpSocket, 1188, 1180),
    });
}

TEST(RecordOffsets, KovaRtspTrackInfo)
{
    using R = KovaRtspTrackInfo;
    ExpectSize<R>(12, 12);
    Expect({
        At<uint32_t>("nTrackId", &R::nTrackId, 0, 0),
        At<uint32_t>("nSeq", &R::nSeq, 4, 4),
        At<uint32_t>("nRtpTime", &R::nRtpTime, 8, 8),
    });
}

TEST(RecordOffsets, KovaRtspServer)
{
    using R = KovaRtspServer;
    Expect({
        At<int32_t>("nListenSocket", &R::nListenSocket, 0, 0),
        At<char[16]>("szAddr", &R::szAddr, 4, 4),
        At<uint16_t>("nPort", &R::nPort, 20, 20),
        At<int32_t>("nMaxClient", &R::nMaxClient, 24, 24),
        At<pthread_t>("hListenThread", &R::hListenThread, 32, 28),
        At<pthread_t>("hMonitorThread", &R::hMonitorThread, 40, 32),
        At<uint32_t>("nListenState", &R::nListenState, 48, 36),
        At<uint32_t>("nMonitorState", &R::nMonitorState, 52, 40),
        At<void *>("pHandlerList", &R::pHandlerList, 56, 44),
        At<void *>("pSessionList", &R::pSessionList, 64, 48),
        At<void *>("pStreamerList", &R::pStreamerList, 72, 52),
        At<pthread_mutex_t>("mtxHandler", &R::mtxHandler, 80, 56),
        At<pthread_mutex_t>("mtxSession", &R::mtxSession, 120, 80),
        At<pthread_mutex_t>("mtxStreamer", &R::mtxStreamer, 160, 104),
    });
}

TEST(RecordOffsets, KovaRtspServerHandler)
{
    using R = KovaRtspServerHandler;
    Expect({
        At<void *>("pServer", &R::pServer, 0, 0),
        At<char[16]>("szLocalAddr", &R::szLocalAddr, 8, 4),
        At<uint16_t>("nLocalPort", &R::nLocalPort, 24, 20),
        At<int32_t>("nSocket", &R::nSocket, 28, 24),
        At<sockaddr_in>("peerAddr", &R::peerAddr, 32, 28),
        At<char[16]>("szPeerAddr", &R::szPeerAddr, 48, 44),
        At<uint16_t>("nPeerPort", &R::nPeerPort, 64, 60),
        At<int32_t>("nState", &R::nState, 68, 64),
        At<int32_t>("nSpare", &R::nSpare, 72, 68),
        At<uint8_t[8192]>("recvBuf", &R::recvBuf, 76, 72),
        At<uint8_t[8192]>("spareBuf", &R::spareBuf, 8268, 8264),
        At<char[12]>("szSessionId", &R::szSessionId, 16460, 16456),
        At<pthread_mutex_t>("mtxRequest", &R::mtxRequest, 16472, 16468),
    });
}

TEST(RecordOffsets, KovaRtspSession)
{
    using R = KovaRtspSession;
    Expect({
        At<char[12]>("szSessionId", &R::szSessionId, 0, 0),
        At<int32_t>("nTimeout", &R::nTimeout, 12, 12),
        At<int32_t>("tExpire", &R::tExpire, 16, 16),
        At<void *>("pTransportList", &R::pTransportList, 24, 20),
        At<int32_t>("nSpare", &R::nSpare, 32, 24),
        At<pthread_mutex_t>("mtxTransport", &R::mtxTransport, 40, 28),
    });
}

TEST(RecordOffsets, KovaRtspStreamer)
{
    using R = KovaRtspStreamer;
    Expect({
        At<void *>("pServer", &R::pServer, 0, 0),
        At<char[1024]>("szUri", &R::szUri, 8, 4),
        At<uint32_t>("nLastPayloadId", &R::nLastPayloadId, 1032, 1028),
        At<void *>("pSdpGenerator", &R::pSdpGenerator, 1040, 1032),
        At<void *>("pMediaInfoList", &R::pMediaInfoList, 1048, 1036),
        At<void *>("pMediaInfoListTail", &R::pMediaInfoListTail, 1056, 1040),
        At<void *>("pPackerList", &R::pPackerList, 1064, 1044),
        At<void *>("pPackerListTail", &R::pPackerListTail, 1072, 1048),
        At<void *>("pSenderList", &R::pSenderList, 1080, 1052),
        At<void *>("pSenderListTail", &R::pSenderListTail, 1088, 1056),
        At<pthread_mutex_t>("mediaInfoMutex", &R::mediaInfoMutex, 1096, 1060),
        At<pthread_mutex_t>("packerMutex", &R::packerMutex, 1136, 1084),
        At<pthread_mutex_t>("senderMutex", &R::senderMutex, 1176, 1108),
        At<uint32_t>("nFirstRtpTimestamp", &R::nFirstRtpTimestamp, 1216, 1132),
        At<uint64_t>("nFirstSendTime", &R::nFirstSendTime, 1224, 1136),
        At<pthread_mutex_t>("firstSendMutex", &R::firstSendMutex, 1232, 1144),
        At<uint32_t>("tCreated", &R::tCreated, 1272, 1168),
        At<uint32_t>("nLastAudioTimestamp", &R::nLastAudioTimestamp, 1276, 1172),
        At<uint32_t>("nLastVideoTimestamp", &R::nLastVideoTimestamp, 1280, 1176),
        At<uint64_t>("nLastAudioPushTime", &R::nLastAudioPushTime, 1288, 1184),
        At<uint64_t>("nLastVideoPushTime", &R::nLastVideoPushTime, 1296, 1192),
        At<uint64_t>("nMaxAudioPushInterval", &R::nMaxAudioPushInterval, 1304, 1200),
        At<uint64_t>("nMaxVideoPushInterval", &R::nMaxVideoPushInterval, 1312, 1208),
        At<KovaRingbuffer>("videoRing", &R::videoRing, 1320, 1216),
        At<KovaRingbuffer>("audioRing", &R::audioRing, 1344, 1232),
        At<pthread_mutex_t>("ringMutex", &R::ringMutex, 1368, 1248),
        At<uint32_t>("nAudioPackerState", &R::nAudioPackerState, 1408, 1272),
        At<uint32_t>("nVideoPackerState", &R::nVideoPackerState, 1412, 1276),
        At<uint64_t>("nAveThroughput", &R::nAveThroughput, 1416, 1280),
        At<int32_t>("nClientCount", &R::nClientCount, 1424, 1288),
        At<uint32_t>("nServerStatus", &R::nServerStatus, 1428, 1292),
    });
}

TEST(RecordOffsets, KovaRtspSdpGenerator)
{
    using R = KovaRtspSdpGenerator;
    Expect({
        At<char[1024]>("szUri", &R::szUri, 0, 0),
        At<char[16]>("szServerIp", &R::szServerIp, 1024, 1024),
        At<uint16_t>("nServerPort", &R::nServerPort, 1040, 1040),
        At<char[16]>("szClientIp", &R::szClientIp, 1042, 1042),
        At<void *>("pMediaList", &R::pMediaList, 1064, 1060),
        At<pthread_mutex_t>("sdpMutex", &R::sdpMutex, 1072, 1064),
    });
}

TEST(RecordOffsets, KovaRtspSdpMedia)
{
    using R = KovaRtspSdpMedia;
    Expect({
        At<uint32_t>("nMediaType", &R::nMediaType, 0, 0),
        At<uint32_t>("nPayloadId", &R::nPayloadId, 4, 4),
        At<void *>("pData", &R::pData, 8, 8),
    });
}

TEST(RecordOffsets, KovaRtspMediaInfo)
{
    using R = KovaRtspMediaInfo;
    Expect({
        At<uint32_t>("nMediaType", &R::nMediaType, 0, 0),
        At<uint32_t>("nPayloadId", &R::nPayloadId, 4, 4),
        At<void *>("pDescription", &R::pDescription, 8, 8),
    });
}

TEST(RecordOffsets, KovaSdpVideoData)
{
    using R = KovaSdpVideoData;
    Expect({
        At<char[8]>("szProfileLevelId", &R::szProfileLevelId, 0, 0),
        At<char[256]>("szSpropParameterSets", &R::szSpropParameterSets, 8, 8),
        At<char[256]>("szPpsBase64", &R::szPpsBase64, 264, 264),
        At<char[256]>("szSpsBase64", &R::szSpsBase64, 520, 520),
        At<void *>("pDescription", &R::pDescription, 776, 776),
    });
}

TEST(RecordOffsets, KovaSdpAudioData)
{
    using R = KovaSdpAudioData;
    Expect({
        At<char[8]>("szConfig", &R::szConfig, 0, 0),
        At<void *>("pDescription", &R::pDescription, 8, 8),
    });
}

TEST(RecordOffsets, KovaAudioDescription)
{
    using R = KovaAudioDescription;
    ExpectSize<R>(12, 12);
    Expect({
        At<uint32_t>("nBitrate", &R::nBitrate, 0, 0),
        At<uint32_t>("nSampleRate", &R::nSampleRate, 4, 4),
        At<uint32_t>("nChannels", &R::nChannels, 8, 8),
    });
}

TEST(RecordOffsets, KovaRtspStatus)
{
    using R = KovaRtspStatus;
    ExpectSize<R>(12, 12);
    EXPECT_EQ(alignof(R), 4U);
    Expect({
        At<uint32_t>("nType", &R::nType, 0, 0),
        At<uint32_t[2]>("value", &R::value, 4, 4),
    });
}

TEST(RecordOffsets, KovaVideoDescription)
{
    using R = KovaVideoDescription;
    ExpectSize<R>(4, 4);
    Expect({
        At<uint32_t>("nBitrate", &R::nBitrate, 0, 0),
    });
}

} // namespace
