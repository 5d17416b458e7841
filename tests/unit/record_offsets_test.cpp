#include "rtp/aac_packer.h"
#include "rtp/h264_packer.h"
#include "rtp/send_group.h"
#include "rtp/sender.h"
#include "rtsp/request_info.h"
#include "sdp/sdp_generator.h"
#include "server/server.h"

#include <gtest/gtest.h>

#include <pthread.h>

#include <cstddef>
#include <cstdint>
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

template <typename Record, typename Field> size_t Offset(Field Record::*pField)
{
    alignas(Record) static const unsigned char bytes[sizeof(Record)] = {};
    const Record &record = *reinterpret_cast<const Record *>(bytes);
    return reinterpret_cast<uintptr_t>(&(record.*pField)) - reinterpret_cast<uintptr_t>(bytes);
}

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
        {"data", Offset(&R::data), 0, 0},
        {"prev", Offset(&R::prev), 8, 4},
        {"next", Offset(&R::next), 16, 8},
    });
}

TEST(RecordOffsets, KovaRingbuffer)
{
    using R = KovaRingbuffer;
    Expect({
        {"pBuffer", Offset(&R::pBuffer), 0, 0},
        {"nSize", Offset(&R::nSize), 8, 4},
        {"nReadPos", Offset(&R::nReadPos), 12, 8},
        {"nWritePos", Offset(&R::nWritePos), 16, 12},
    });
}

TEST(RecordOffsets, KovaRtpPacket)
{
    using R = KovaRtpPacket;
    Expect({
        {"pData", Offset(&R::pData), 0, 0},
        {"nSize", Offset(&R::nSize), 8, 4},
        {"nRefCount", Offset(&R::nRefCount), 12, 8},
        {"nFrameType", Offset(&R::nFrameType), 16, 12},
        {"nPts", Offset(&R::nPts), 20, 16},
        {"mutex", Offset(&R::mutex), 24, 20},
    });
}

TEST(RecordOffsets, KovaRtpPacker)
{
    using R = KovaRtpPacker;
    Expect({
        {"nPayloadType", Offset(&R::nPayloadType), 0, 0},
        {"nCodec", Offset(&R::nCodec), 4, 4},
        {"nSsrc", Offset(&R::nSsrc), 8, 8},
        {"nPts", Offset(&R::nPts), 12, 12},
        {"nTimestamp", Offset(&R::nTimestamp), 16, 16},
        {"bMarker", Offset(&R::bMarker), 20, 20},
        {"nSequence", Offset(&R::nSequence), 24, 24},
        {"pfnStreamInfo", Offset(&R::pfnStreamInfo), 32, 28},
        {"pStreamInfoContext", Offset(&R::pStreamInfoContext), 40, 32},
    });
}

TEST(RecordOffsets, KovaRtpH264Packer)
{
    using R = KovaRtpH264Packer;
    Expect({
        {"head", Offset(&R::head), 0, 0},
        {"nFragmentOffset", Offset(&R::nFragmentOffset), 48, 36},
        {"nPayloadBytes", Offset(&R::nPayloadBytes), 52, 40},
        {"nNalCount", Offset(&R::nNalCount), 56, 44},
        {"pFragmentNal", Offset(&R::pFragmentNal), 64, 48},
        {"pNalList", Offset(&R::pNalList), 72, 52},
        {"pNalListTail", Offset(&R::pNalListTail), 80, 56},
    });
}

TEST(RecordOffsets, KovaRtpAacPacker)
{
    using R = KovaRtpAacPacker;
    Expect({
        {"head", Offset(&R::head), 0, 0},
        {"nSampleRate", Offset(&R::nSampleRate), 48, 36},
        {"nFragmentOffset", Offset(&R::nFragmentOffset), 52, 40},
        {"nFragmentSize", Offset(&R::nFragmentSize), 56, 44},
        {"bWholeUnit", Offset(&R::bWholeUnit), 60, 48},
        {"pFragmentUnit", Offset(&R::pFragmentUnit), 64, 52},
        {"pAuList", Offset(&R::pAuList), 72, 56},
        {"pAuListTail", Offset(&R::pAuListTail), 80, 60},
    });
}

TEST(RecordOffsets, KovaRtpClient)
{
    using R = KovaRtpClient;
    Expect({
        {"nState", Offset(&R::nState), 0, 0},
        {"szSessionId", Offset(&R::szSessionId), 4, 4},
        {"nRtpSocket", Offset(&R::nRtpSocket), 16, 16},
        {"nRtcpSocket", Offset(&R::nRtcpSocket), 20, 20},
        {"nClientRtpPort", Offset(&R::nClientRtpPort), 24, 24},
        {"nClientRtcpPort", Offset(&R::nClientRtcpPort), 26, 26},
        {"rtpAddress", Offset(&R::rtpAddress), 28, 28},
        {"rtcpAddress", Offset(&R::rtcpAddress), 44, 44},
        {"nStartSequence", Offset(&R::nStartSequence), 60, 60},
        {"nStartTimestamp", Offset(&R::nStartTimestamp), 64, 64},
        {"nOctetCount", Offset(&R::nOctetCount), 68, 68},
        {"nPacketCount", Offset(&R::nPacketCount), 72, 72},
        {"nSendBitrate", Offset(&R::nSendBitrate), 80, 80},
        {"nLastRtcpTime", Offset(&R::nLastRtcpTime), 88, 88},
        {"bKeyFrameFound", Offset(&R::bKeyFrameFound), 92, 92},
        {"nMeasureStartTime", Offset(&R::nMeasureStartTime), 96, 96},
        {"nMeasureBytes", Offset(&R::nMeasureBytes), 104, 104},
        {"bInterleaved", Offset(&R::bInterleaved), 108, 108},
        {"pTcpSocket", Offset(&R::pTcpSocket), 112, 112},
        {"nRtpChannel", Offset(&R::nRtpChannel), 120, 116},
        {"nRtcpChannel", Offset(&R::nRtcpChannel), 122, 118},
    });
}

TEST(RecordOffsets, KovaRtpSendGroup)
{
    using R = KovaRtpSendGroup;
    Expect({
        {"pSender", Offset(&R::pSender), 0, 0},
        {"nState", Offset(&R::nState), 8, 4},
        {"pPacketList", Offset(&R::pPacketList), 16, 8},
        {"pPacketListTail", Offset(&R::pPacketListTail), 24, 12},
        {"pClientList", Offset(&R::pClientList), 32, 16},
        {"packetMutex", Offset(&R::packetMutex), 40, 20},
        {"clientMutex", Offset(&R::clientMutex), 80, 44},
        {"nLastPts", Offset(&R::nLastPts), 120, 68},
    });
}

TEST(RecordOffsets, KovaRtpSender)
{
    using R = KovaRtpSender;
    Expect({
        {"pStreamer", Offset(&R::pStreamer), 0, 0},
        {"nPayloadId", Offset(&R::nPayloadId), 8, 4},
        {"nSendGroupCount", Offset(&R::nSendGroupCount), 12, 8},
        {"pSendGroupList", Offset(&R::pSendGroupList), 16, 12},
        {"pSendGroupListTail", Offset(&R::pSendGroupListTail), 24, 16},
        {"mutex", Offset(&R::mutex), 32, 20},
        {"nLastSequence", Offset(&R::nLastSequence), 72, 44},
        {"nLastTimestamp", Offset(&R::nLastTimestamp), 76, 48},
    });
}

TEST(RecordOffsets, KovaRtspRequestInfo)
{
    using R = KovaRtspRequestInfo;
    Expect({
        {"nMethod", Offset(&R::nMethod), 0, 0},
        {"szHostPort", Offset(&R::szHostPort), 4, 4},
        {"szUri", Offset(&R::szUri), 26, 26},
        {"nRtspVersion", Offset(&R::nRtspVersion), 1052, 1052},
        {"szCSeq", Offset(&R::szCSeq), 1056, 1056},
        {"nTrackId", Offset(&R::nTrackId), 1064, 1064},
        {"pTrackList", Offset(&R::pTrackList), 1072, 1068},
        {"nClientRtpPort", Offset(&R::nClientRtpPort), 1080, 1072},
        {"nClientRtcpPort", Offset(&R::nClientRtcpPort), 1082, 1074},
        {"nServerRtpPort", Offset(&R::nServerRtpPort), 1084, 1076},
        {"nServerRtcpPort", Offset(&R::nServerRtcpPort), 1086, 1078},
        {"nRtpChannel", Offset(&R::nRtpChannel), 1088, 1080},
        {"nRtcpChannel", Offset(&R::nRtcpChannel), 1090, 1082},
        {"nRtpSocket", Offset(&R::nRtpSocket), 1092, 1084},
        {"nRtcpSocket", Offset(&R::nRtcpSocket), 1096, 1088},
        {"szSessionId", Offset(&R::szSessionId), 1100, 1092},
        {"nSsrc", Offset(&R::nSsrc), 1112, 1104},
        {"nStatus", Offset(&R::nStatus), 1116, 1108},
        {"szReason", Offset(&R::szReason), 1120, 1112},
        {"nTransport", Offset(&R::nTransport), 1184, 1176},
        {"nTcpSocket", Offset(&R::nTcpSocket), 1188, 1180},
    });
}

TEST(RecordOffsets, KovaRtspTrackInfo)
{
    using R = KovaRtspTrackInfo;
    Expect({
        {"nTrackId", Offset(&R::nTrackId), 0, 0},
        {"nSeq", Offset(&R::nSeq), 4, 4},
        {"nRtpTime", Offset(&R::nRtpTime), 8, 8},
    });
}

TEST(RecordOffsets, KovaRtspServer)
{
    using R = KovaRtspServer;
    Expect({
        {"nListenSocket", Offset(&R::nListenSocket), 0, 0},
        {"szAddr", Offset(&R::szAddr), 4, 4},
        {"nPort", Offset(&R::nPort), 20, 20},
        {"nMaxClient", Offset(&R::nMaxClient), 24, 24},
        {"hListenThread", Offset(&R::hListenThread), 32, 28},
        {"hMonitorThread", Offset(&R::hMonitorThread), 40, 32},
        {"nListenState", Offset(&R::nListenState), 48, 36},
        {"nMonitorState", Offset(&R::nMonitorState), 52, 40},
        {"pHandlerList", Offset(&R::pHandlerList), 56, 44},
        {"pSessionList", Offset(&R::pSessionList), 64, 48},
        {"pStreamerList", Offset(&R::pStreamerList), 72, 52},
        {"mtxHandler", Offset(&R::mtxHandler), 80, 56},
        {"mtxSession", Offset(&R::mtxSession), 120, 80},
        {"mtxStreamer", Offset(&R::mtxStreamer), 160, 104},
    });
}

TEST(RecordOffsets, KovaRtspServerHandler)
{
    using R = KovaRtspServerHandler;
    Expect({
        {"pServer", Offset(&R::pServer), 0, 0},
        {"szLocalAddr", Offset(&R::szLocalAddr), 8, 4},
        {"nLocalPort", Offset(&R::nLocalPort), 24, 20},
        {"nSocket", Offset(&R::nSocket), 28, 24},
        {"peerAddr", Offset(&R::peerAddr), 32, 28},
        {"szPeerAddr", Offset(&R::szPeerAddr), 48, 44},
        {"nPeerPort", Offset(&R::nPeerPort), 64, 60},
        {"nState", Offset(&R::nState), 68, 64},
        {"nSpare", Offset(&R::nSpare), 72, 68},
        {"recvBuf", Offset(&R::recvBuf), 76, 72},
        {"spareBuf", Offset(&R::spareBuf), 8268, 8264},
        {"szSessionId", Offset(&R::szSessionId), 16460, 16456},
        {"mtxRequest", Offset(&R::mtxRequest), 16472, 16468},
    });
}

TEST(RecordOffsets, KovaRtspSession)
{
    using R = KovaRtspSession;
    Expect({
        {"szSessionId", Offset(&R::szSessionId), 0, 0},
        {"nTimeout", Offset(&R::nTimeout), 12, 12},
        {"tExpire", Offset(&R::tExpire), 16, 16},
        {"pTransportList", Offset(&R::pTransportList), 24, 20},
        {"nSpare", Offset(&R::nSpare), 32, 24},
        {"mtxTransport", Offset(&R::mtxTransport), 40, 28},
    });
}

TEST(RecordOffsets, KovaRtspStreamer)
{
    using R = KovaRtspStreamer;
    Expect({
        {"pServer", Offset(&R::pServer), 0, 0},
        {"szUri", Offset(&R::szUri), 8, 4},
        {"nLastPayloadId", Offset(&R::nLastPayloadId), 1032, 1028},
        {"pSdpGenerator", Offset(&R::pSdpGenerator), 1040, 1032},
        {"pMediaInfoList", Offset(&R::pMediaInfoList), 1048, 1036},
        {"pMediaInfoListTail", Offset(&R::pMediaInfoListTail), 1056, 1040},
        {"pPackerList", Offset(&R::pPackerList), 1064, 1044},
        {"pPackerListTail", Offset(&R::pPackerListTail), 1072, 1048},
        {"pSenderList", Offset(&R::pSenderList), 1080, 1052},
        {"pSenderListTail", Offset(&R::pSenderListTail), 1088, 1056},
        {"mediaInfoMutex", Offset(&R::mediaInfoMutex), 1096, 1060},
        {"packerMutex", Offset(&R::packerMutex), 1136, 1084},
        {"senderMutex", Offset(&R::senderMutex), 1176, 1108},
        {"nFirstRtpTimestamp", Offset(&R::nFirstRtpTimestamp), 1216, 1132},
        {"nFirstSendTime", Offset(&R::nFirstSendTime), 1224, 1136},
        {"firstSendMutex", Offset(&R::firstSendMutex), 1232, 1144},
        {"tCreated", Offset(&R::tCreated), 1272, 1168},
        {"nLastAudioTimestamp", Offset(&R::nLastAudioTimestamp), 1276, 1172},
        {"nLastVideoTimestamp", Offset(&R::nLastVideoTimestamp), 1280, 1176},
        {"nLastAudioPushTime", Offset(&R::nLastAudioPushTime), 1288, 1184},
        {"nLastVideoPushTime", Offset(&R::nLastVideoPushTime), 1296, 1192},
        {"nMaxAudioPushInterval", Offset(&R::nMaxAudioPushInterval), 1304, 1200},
        {"nMaxVideoPushInterval", Offset(&R::nMaxVideoPushInterval), 1312, 1208},
        {"videoRing", Offset(&R::videoRing), 1320, 1216},
        {"audioRing", Offset(&R::audioRing), 1344, 1232},
        {"ringMutex", Offset(&R::ringMutex), 1368, 1248},
        {"nAudioPackerState", Offset(&R::nAudioPackerState), 1408, 1272},
        {"nVideoPackerState", Offset(&R::nVideoPackerState), 1412, 1276},
        {"nAveThroughput", Offset(&R::nAveThroughput), 1416, 1280},
        {"nClientCount", Offset(&R::nClientCount), 1424, 1288},
        {"nServerStatus", Offset(&R::nServerStatus), 1428, 1292},
    });
}

TEST(RecordOffsets, KovaRtspSdpGenerator)
{
    using R = KovaRtspSdpGenerator;
    Expect({
        {"szUri", Offset(&R::szUri), 0, 0},
        {"szServerIp", Offset(&R::szServerIp), 1024, 1024},
        {"nServerPort", Offset(&R::nServerPort), 1040, 1040},
        {"szClientIp", Offset(&R::szClientIp), 1042, 1042},
        {"pMediaList", Offset(&R::pMediaList), 1064, 1060},
        {"sdpMutex", Offset(&R::sdpMutex), 1072, 1064},
    });
}

TEST(RecordOffsets, KovaRtspSdpMedia)
{
    using R = KovaRtspSdpMedia;
    Expect({
        {"nMediaType", Offset(&R::nMediaType), 0, 0},
        {"nPayloadId", Offset(&R::nPayloadId), 4, 4},
        {"pData", Offset(&R::pData), 8, 8},
    });
}

TEST(RecordOffsets, KovaRtspMediaInfo)
{
    using R = KovaRtspMediaInfo;
    Expect({
        {"nMediaType", Offset(&R::nMediaType), 0, 0},
        {"nPayloadId", Offset(&R::nPayloadId), 4, 4},
        {"pDescription", Offset(&R::pDescription), 8, 8},
    });
}

TEST(RecordOffsets, KovaSdpVideoData)
{
    using R = KovaSdpVideoData;
    Expect({
        {"szProfileLevelId", Offset(&R::szProfileLevelId), 0, 0},
        {"szSpropParameterSets", Offset(&R::szSpropParameterSets), 8, 8},
        {"szPpsBase64", Offset(&R::szPpsBase64), 264, 264},
        {"szSpsBase64", Offset(&R::szSpsBase64), 520, 520},
        {"pDescription", Offset(&R::pDescription), 776, 776},
    });
}

TEST(RecordOffsets, KovaSdpAudioData)
{
    using R = KovaSdpAudioData;
    Expect({
        {"szConfig", Offset(&R::szConfig), 0, 0},
        {"pDescription", Offset(&R::pDescription), 8, 8},
    });
}

TEST(RecordOffsets, KovaAudioDescription)
{
    using R = KovaAudioDescription;
    Expect({
        {"nBitrate", Offset(&R::nBitrate), 0, 0},
        {"nSampleRate", Offset(&R::nSampleRate), 4, 4},
        {"nChannels", Offset(&R::nChannels), 8, 8},
    });
}

TEST(RecordOffsets, KovaRtspStatus)
{
    using R = KovaRtspStatus;
    Expect({
        {"nType", Offset(&R::nType), 0, 0},
        {"value", Offset(&R::value), 4, 4},
    });
}

TEST(RecordOffsets, KovaVideoDescription)
{
    using R = KovaVideoDescription;
    Expect({
        {"nBitrate", Offset(&R::nBitrate), 0, 0},
    });
}

} // namespace
