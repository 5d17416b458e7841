#include "rtp/aac_packer.h"
#include "rtp/h264_packer.h"
#include "rtp/send_group.h"
#include "rtp/sender.h"
#include "rtsp/request_info.h"
#include "sdp/sdp_generator.h"
#include "server/server.h"
#include "tests/unit/field_offset.h"

#include <gtest/gtest.h>

#include <pthread.h>

#include <cstddef>
#include <initializer_list>

/// Where programs in other languages find the fields: in numbers, for a 64-bit PC and for a 32-bit
/// board. The figures follow from natural alignment and from a mutex of 40 and of 24 bytes.
namespace {

struct Row {
    const char *szField;
    size_t nOffset;
    size_t nExpected64;
    size_t nExpected32;
};

void Expect(std::initializer_list<Row> rows)
{
    const bool b64 = sizeof(void *) == 8;
    ASSERT_EQ(sizeof(pthread_mutex_t), b64 ? 40U : 24U) << "no figures for this system";
    for (const Row &row : rows)
        EXPECT_EQ(row.nOffset, b64 ? row.nExpected64 : row.nExpected32) << row.szField;
}

TEST(RecordOffsets, KovaList)
{
    using R = KovaList;
    Expect({
        {"data", KovaFieldOffset(&R::data), 0, 0},
        {"prev", KovaFieldOffset(&R::prev), 8, 4},
        {"next", KovaFieldOffset(&R::next), 16, 8},
    });
}

TEST(RecordOffsets, KovaRingbuffer)
{
    using R = KovaRingbuffer;
    Expect({
        {"pBuffer", KovaFieldOffset(&R::pBuffer), 0, 0},
        {"nSize", KovaFieldOffset(&R::nSize), 8, 4},
        {"nReadPos", KovaFieldOffset(&R::nReadPos), 12, 8},
        {"nWritePos", KovaFieldOffset(&R::nWritePos), 16, 12},
    });
}

TEST(RecordOffsets, KovaRtpPacket)
{
    using R = KovaRtpPacket;
    Expect({
        {"pData", KovaFieldOffset(&R::pData), 0, 0},
        {"nSize", KovaFieldOffset(&R::nSize), 8, 4},
        {"nRefCount", KovaFieldOffset(&R::nRefCount), 12, 8},
        {"nFrameType", KovaFieldOffset(&R::nFrameType), 16, 12},
        {"nPts", KovaFieldOffset(&R::nPts), 20, 16},
        {"mutex", KovaFieldOffset(&R::mutex), 24, 20},
    });
}

TEST(RecordOffsets, KovaRtpPacker)
{
    using R = KovaRtpPacker;
    Expect({
        {"nPayloadType", KovaFieldOffset(&R::nPayloadType), 0, 0},
        {"nCodec", KovaFieldOffset(&R::nCodec), 4, 4},
        {"nSsrc", KovaFieldOffset(&R::nSsrc), 8, 8},
        {"nPts", KovaFieldOffset(&R::nPts), 12, 12},
        {"nTimestamp", KovaFieldOffset(&R::nTimestamp), 16, 16},
        {"bMarker", KovaFieldOffset(&R::bMarker), 20, 20},
        {"nSequence", KovaFieldOffset(&R::nSequence), 24, 24},
        {"pfnStreamInfo", KovaFieldOffset(&R::pfnStreamInfo), 32, 28},
        {"pStreamInfoContext", KovaFieldOffset(&R::pStreamInfoContext), 40, 32},
    });
}

TEST(RecordOffsets, KovaRtpH264Packer)
{
    using R = KovaRtpH264Packer;
    Expect({
        {"head", KovaFieldOffset(&R::head), 0, 0},
        {"nFragmentOffset", KovaFieldOffset(&R::nFragmentOffset), 48, 36},
        {"nPayloadBytes", KovaFieldOffset(&R::nPayloadBytes), 52, 40},
        {"nNalCount", KovaFieldOffset(&R::nNalCount), 56, 44},
        {"pFragmentNal", KovaFieldOffset(&R::pFragmentNal), 64, 48},
        {"pNalList", KovaFieldOffset(&R::pNalList), 72, 52},
        {"pNalListTail", KovaFieldOffset(&R::pNalListTail), 80, 56},
    });
}

TEST(RecordOffsets, KovaRtpAacPacker)
{
    using R = KovaRtpAacPacker;
    Expect({
        {"head", KovaFieldOffset(&R::head), 0, 0},
        {"nSampleRate", KovaFieldOffset(&R::nSampleRate), 48, 36},
        {"nFragmentOffset", KovaFieldOffset(&R::nFragmentOffset), 52, 40},
        {"nFragmentSize", KovaFieldOffset(&R::nFragmentSize), 56, 44},
        {"bWholeUnit", KovaFieldOffset(&R::bWholeUnit), 60, 48},
        {"pFragmentUnit", KovaFieldOffset(&R::pFragmentUnit), 64, 52},
        {"pAuList", KovaFieldOffset(&R::pAuList), 72, 56},
        {"pAuListTail", KovaFieldOffset(&R::pAuListTail), 80, 60},
    });
}

TEST(RecordOffsets, KovaRtpClient)
{
    using R = KovaRtpClient;
    Expect({
        {"nState", KovaFieldOffset(&R::nState), 0, 0},
        {"szSessionId", KovaFieldOffset(&R::szSessionId), 4, 4},
        {"nRtpSocket", KovaFieldOffset(&R::nRtpSocket), 16, 16},
        {"nRtcpSocket", KovaFieldOffset(&R::nRtcpSocket), 20, 20},
        {"nClientRtpPort", KovaFieldOffset(&R::nClientRtpPort), 24, 24},
        {"nClientRtcpPort", KovaFieldOffset(&R::nClientRtcpPort), 26, 26},
        {"rtpAddress", KovaFieldOffset(&R::rtpAddress), 28, 28},
        {"rtcpAddress", KovaFieldOffset(&R::rtcpAddress), 44, 44},
        {"nStartSequence", KovaFieldOffset(&R::nStartSequence), 60, 60},
        {"nStartTimestamp", KovaFieldOffset(&R::nStartTimestamp), 64, 64},
        {"nOctetCount", KovaFieldOffset(&R::nOctetCount), 68, 68},
        {"nPacketCount", KovaFieldOffset(&R::nPacketCount), 72, 72},
        {"nSendBitrate", KovaFieldOffset(&R::nSendBitrate), 80, 80},
        {"nLastRtcpTime", KovaFieldOffset(&R::nLastRtcpTime), 88, 88},
        {"bKeyFrameFound", KovaFieldOffset(&R::bKeyFrameFound), 92, 92},
        {"nMeasureStartTime", KovaFieldOffset(&R::nMeasureStartTime), 96, 96},
        {"nMeasureBytes", KovaFieldOffset(&R::nMeasureBytes), 104, 104},
        {"bInterleaved", KovaFieldOffset(&R::bInterleaved), 108, 108},
        {"pTcpSocket", KovaFieldOffset(&R::pTcpSocket), 112, 112},
        {"nRtpChannel", KovaFieldOffset(&R::nRtpChannel), 120, 116},
        {"nRtcpChannel", KovaFieldOffset(&R::nRtcpChannel), 122, 118},
    });
}

TEST(RecordOffsets, KovaRtpSendGroup)
{
    using R = KovaRtpSendGroup;
    Expect({
        {"pSender", KovaFieldOffset(&R::pSender), 0, 0},
        {"nState", KovaFieldOffset(&R::nState), 8, 4},
        {"pPacketList", KovaFieldOffset(&R::pPacketList), 16, 8},
        {"pPacketListTail", KovaFieldOffset(&R::pPacketListTail), 24, 12},
        {"pClientList", KovaFieldOffset(&R::pClientList), 32, 16},
        {"packetMutex", KovaFieldOffset(&R::packetMutex), 40, 20},
        {"clientMutex", KovaFieldOffset(&R::clientMutex), 80, 44},
        {"nLastPts", KovaFieldOffset(&R::nLastPts), 120, 68},
    });
}

TEST(RecordOffsets, KovaRtpSender)
{
    using R = KovaRtpSender;
    Expect({
        {"pStreamer", KovaFieldOffset(&R::pStreamer), 0, 0},
        {"nPayloadId", KovaFieldOffset(&R::nPayloadId), 8, 4},
        {"nSendGroupCount", KovaFieldOffset(&R::nSendGroupCount), 12, 8},
        {"pSendGroupList", KovaFieldOffset(&R::pSendGroupList), 16, 12},
        {"pSendGroupListTail", KovaFieldOffset(&R::pSendGroupListTail), 24, 16},
        {"mutex", KovaFieldOffset(&R::mutex), 32, 20},
        {"nLastSequence", KovaFieldOffset(&R::nLastSequence), 72, 44},
        {"nLastTimestamp", KovaFieldOffset(&R::nLastTimestamp), 76, 48},
    });
}

TEST(RecordOffsets, KovaRtspRequestInfo)
{
    using R = KovaRtspRequestInfo;
    Expect({
        {"nMethod", KovaFieldOffset(&R::nMethod), 0, 0},
        {"szHostPort", KovaFieldOffset(&R::szHostPort), 4, 4},
        {"szUri", KovaFieldOffset(&R::szUri), 26, 26},
        {"nRtspVersion", KovaFieldOffset(&R::nRtspVersion), 1052, 1052},
        {"szCSeq", KovaFieldOffset(&R::szCSeq), 1056, 1056},
        {"nTrackId", KovaFieldOffset(&R::nTrackId), 1064, 1064},
        {"pTrackList", KovaFieldOffset(&R::pTrackList), 1072, 1068},
        {"nClientRtpPort", KovaFieldOffset(&R::nClientRtpPort), 1080, 1072},
        {"nClientRtcpPort", KovaFieldOffset(&R::nClientRtcpPort), 1082, 1074},
        {"nServerRtpPort", KovaFieldOffset(&R::nServerRtpPort), 1084, 1076},
        {"nServerRtcpPort", KovaFieldOffset(&R::nServerRtcpPort), 1086, 1078},
        {"nRtpChannel", KovaFieldOffset(&R::nRtpChannel), 1088, 1080},
        {"nRtcpChannel", KovaFieldOffset(&R::nRtcpChannel), 1090, 1082},
        {"nRtpSocket", KovaFieldOffset(&R::nRtpSocket), 1092, 1084},
        {"nRtcpSocket", KovaFieldOffset(&R::nRtcpSocket), 1096, 1088},
        {"szSessionId", KovaFieldOffset(&R::szSessionId), 1100, 1092},
        {"nSsrc", KovaFieldOffset(&R::nSsrc), 1112, 1104},
        {"nStatus", KovaFieldOffset(&R::nStatus), 1116, 1108},
        {"szReason", KovaFieldOffset(&R::szReason), 1120, 1112},
        {"nTransport", KovaFieldOffset(&R::nTransport), 1184, 1176},
        {"nTcpSocket", KovaFieldOffset(&R::nTcpSocket), 1188, 1180},
    });
}

TEST(RecordOffsets, KovaRtspTrackInfo)
{
    using R = KovaRtspTrackInfo;
    Expect({
        {"nTrackId", KovaFieldOffset(&R::nTrackId), 0, 0},
        {"nSeq", KovaFieldOffset(&R::nSeq), 4, 4},
        {"nRtpTime", KovaFieldOffset(&R::nRtpTime), 8, 8},
    });
}

TEST(RecordOffsets, KovaRtspServer)
{
    using R = KovaRtspServer;
    Expect({
        {"nListenSocket", KovaFieldOffset(&R::nListenSocket), 0, 0},
        {"szAddr", KovaFieldOffset(&R::szAddr), 4, 4},
        {"nPort", KovaFieldOffset(&R::nPort), 20, 20},
        {"nMaxClient", KovaFieldOffset(&R::nMaxClient), 24, 24},
        {"hListenThread", KovaFieldOffset(&R::hListenThread), 32, 28},
        {"hMonitorThread", KovaFieldOffset(&R::hMonitorThread), 40, 32},
        {"nListenState", KovaFieldOffset(&R::nListenState), 48, 36},
        {"nMonitorState", KovaFieldOffset(&R::nMonitorState), 52, 40},
        {"pHandlerList", KovaFieldOffset(&R::pHandlerList), 56, 44},
        {"pSessionList", KovaFieldOffset(&R::pSessionList), 64, 48},
        {"pStreamerList", KovaFieldOffset(&R::pStreamerList), 72, 52},
        {"mtxHandler", KovaFieldOffset(&R::mtxHandler), 80, 56},
        {"mtxSession", KovaFieldOffset(&R::mtxSession), 120, 80},
        {"mtxStreamer", KovaFieldOffset(&R::mtxStreamer), 160, 104},
    });
}

TEST(RecordOffsets, KovaRtspServerHandler)
{
    using R = KovaRtspServerHandler;
    Expect({
        {"pServer", KovaFieldOffset(&R::pServer), 0, 0},
        {"szLocalAddr", KovaFieldOffset(&R::szLocalAddr), 8, 4},
        {"nLocalPort", KovaFieldOffset(&R::nLocalPort), 24, 20},
        {"nSocket", KovaFieldOffset(&R::nSocket), 28, 24},
        {"peerAddr", KovaFieldOffset(&R::peerAddr), 32, 28},
        {"szPeerAddr", KovaFieldOffset(&R::szPeerAddr), 48, 44},
        {"nPeerPort", KovaFieldOffset(&R::nPeerPort), 64, 60},
        {"nState", KovaFieldOffset(&R::nState), 68, 64},
        {"nSpare", KovaFieldOffset(&R::nSpare), 72, 68},
        {"recvBuf", KovaFieldOffset(&R::recvBuf), 76, 72},
        {"spareBuf", KovaFieldOffset(&R::spareBuf), 8268, 8264},
        {"szSessionId", KovaFieldOffset(&R::szSessionId), 16460, 16456},
        {"mtxRequest", KovaFieldOffset(&R::mtxRequest), 16472, 16468},
    });
}

TEST(RecordOffsets, KovaRtspSession)
{
    using R = KovaRtspSession;
    Expect({
        {"szSessionId", KovaFieldOffset(&R::szSessionId), 0, 0},
        {"nTimeout", KovaFieldOffset(&R::nTimeout), 12, 12},
        {"tExpire", KovaFieldOffset(&R::tExpire), 16, 16},
        {"pTransportList", KovaFieldOffset(&R::pTransportList), 24, 20},
        {"nSpare", KovaFieldOffset(&R::nSpare), 32, 24},
        {"mtxTransport", KovaFieldOffset(&R::mtxTransport), 40, 28},
    });
}

TEST(RecordOffsets, KovaRtspStreamer)
{
    using R = KovaRtspStreamer;
    Expect({
        {"pServer", KovaFieldOffset(&R::pServer), 0, 0},
        {"szUri", KovaFieldOffset(&R::szUri), 8, 4},
        {"nLastPayloadId", KovaFieldOffset(&R::nLastPayloadId), 1032, 1028},
        {"pSdpGenerator", KovaFieldOffset(&R::pSdpGenerator), 1040, 1032},
        {"pMediaInfoList", KovaFieldOffset(&R::pMediaInfoList), 1048, 1036},
        {"pMediaInfoListTail", KovaFieldOffset(&R::pMediaInfoListTail), 1056, 1040},
        {"pPackerList", KovaFieldOffset(&R::pPackerList), 1064, 1044},
        {"pPackerListTail", KovaFieldOffset(&R::pPackerListTail), 1072, 1048},
        {"pSenderList", KovaFieldOffset(&R::pSenderList), 1080, 1052},
        {"pSenderListTail", KovaFieldOffset(&R::pSenderListTail), 1088, 1056},
        {"mediaInfoMutex", KovaFieldOffset(&R::mediaInfoMutex), 1096, 1060},
        {"packerMutex", KovaFieldOffset(&R::packerMutex), 1136, 1084},
        {"senderMutex", KovaFieldOffset(&R::senderMutex), 1176, 1108},
        {"nFirstRtpTimestamp", KovaFieldOffset(&R::nFirstRtpTimestamp), 1216, 1132},
        {"nFirstSendTime", KovaFieldOffset(&R::nFirstSendTime), 1224, 1136},
        {"firstSendMutex", KovaFieldOffset(&R::firstSendMutex), 1232, 1144},
        {"tCreated", KovaFieldOffset(&R::tCreated), 1272, 1168},
        {"nLastAudioTimestamp", KovaFieldOffset(&R::nLastAudioTimestamp), 1276, 1172},
        {"nLastVideoTimestamp", KovaFieldOffset(&R::nLastVideoTimestamp), 1280, 1176},
        {"nLastAudioPushTime", KovaFieldOffset(&R::nLastAudioPushTime), 1288, 1184},
        {"nLastVideoPushTime", KovaFieldOffset(&R::nLastVideoPushTime), 1296, 1192},
        {"nMaxAudioPushInterval", KovaFieldOffset(&R::nMaxAudioPushInterval), 1304, 1200},
        {"nMaxVideoPushInterval", KovaFieldOffset(&R::nMaxVideoPushInterval), 1312, 1208},
        {"videoRing", KovaFieldOffset(&R::videoRing), 1320, 1216},
        {"audioRing", KovaFieldOffset(&R::audioRing), 1344, 1232},
        {"ringMutex", KovaFieldOffset(&R::ringMutex), 1368, 1248},
        {"nAudioPackerState", KovaFieldOffset(&R::nAudioPackerState), 1408, 1272},
        {"nVideoPackerState", KovaFieldOffset(&R::nVideoPackerState), 1412, 1276},
        {"nAveThroughput", KovaFieldOffset(&R::nAveThroughput), 1416, 1280},
        {"nClientCount", KovaFieldOffset(&R::nClientCount), 1424, 1288},
        {"nServerStatus", KovaFieldOffset(&R::nServerStatus), 1428, 1292},
    });
}

TEST(RecordOffsets, KovaRtspSdpGenerator)
{
    using R = KovaRtspSdpGenerator;
    Expect({
        {"szUri", KovaFieldOffset(&R::szUri), 0, 0},
        {"szServerIp", KovaFieldOffset(&R::szServerIp), 1024, 1024},
        {"nServerPort", KovaFieldOffset(&R::nServerPort), 1040, 1040},
        {"szClientIp", KovaFieldOffset(&R::szClientIp), 1042, 1042},
        {"pMediaList", KovaFieldOffset(&R::pMediaList), 1064, 1060},
        {"sdpMutex", KovaFieldOffset(&R::sdpMutex), 1072, 1064},
    });
}

TEST(RecordOffsets, KovaRtspSdpMedia)
{
    using R = KovaRtspSdpMedia;
    Expect({
        {"nMediaType", KovaFieldOffset(&R::nMediaType), 0, 0},
        {"nPayloadId", KovaFieldOffset(&R::nPayloadId), 4, 4},
        {"pData", KovaFieldOffset(&R::pData), 8, 8},
    });
}

TEST(RecordOffsets, KovaRtspMediaInfo)
{
    using R = KovaRtspMediaInfo;
    Expect({
        {"nMediaType", KovaFieldOffset(&R::nMediaType), 0, 0},
        {"nPayloadId", KovaFieldOffset(&R::nPayloadId), 4, 4},
        {"pDescription", KovaFieldOffset(&R::pDescription), 8, 8},
    });
}

TEST(RecordOffsets, KovaSdpVideoData)
{
    using R = KovaSdpVideoData;
    Expect({
        {"szProfileLevelId", KovaFieldOffset(&R::szProfileLevelId), 0, 0},
        {"szSpropParameterSets", KovaFieldOffset(&R::szSpropParameterSets), 8, 8},
        {"szPpsBase64", KovaFieldOffset(&R::szPpsBase64), 264, 264},
        {"szSpsBase64", KovaFieldOffset(&R::szSpsBase64), 520, 520},
        {"pDescription", KovaFieldOffset(&R::pDescription), 776, 776},
    });
}

TEST(RecordOffsets, KovaSdpAudioData)
{
    using R = KovaSdpAudioData;
    Expect({
        {"szConfig", KovaFieldOffset(&R::szConfig), 0, 0},
        {"pDescription", KovaFieldOffset(&R::pDescription), 8, 8},
    });
}

TEST(RecordOffsets, KovaAudioDescription)
{
    using R = KovaAudioDescription;
    Expect({
        {"nBitrate", KovaFieldOffset(&R::nBitrate), 0, 0},
        {"nSampleRate", KovaFieldOffset(&R::nSampleRate), 4, 4},
        {"nChannels", KovaFieldOffset(&R::nChannels), 8, 8},
    });
}

TEST(RecordOffsets, KovaRtspStatus)
{
    using R = KovaRtspStatus;
    Expect({
        {"nType", KovaFieldOffset(&R::nType), 0, 0},
        {"value", KovaFieldOffset(&R::value), 4, 4},
    });
}

TEST(RecordOffsets, KovaVideoDescription)
{
    using R = KovaVideoDescription;
    Expect({
        {"nBitrate", KovaFieldOffset(&R::nBitrate), 0, 0},
    });
}

} // namespace
