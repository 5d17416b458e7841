#include "foundation/list.h"
#include "foundation/ring_buffer.h"
#include "rtp/aac_packer.h"
#include "rtp/h264_packer.h"
#include "rtp/rtp_client.h"
#include "rtp/rtp_packer.h"
#include "rtp/rtp_packet.h"
#include "rtp/send_group.h"
#include "rtp/sender.h"
#include "tests/unit/field_offset.h"

#include <gtest/gtest.h>

#include <netinet/in.h>
#include <pthread.h>

#include <cstddef>
#include <cstdint>

/// Hosts were built against these records: the listed fields stand in this
/// order with the C compiler's alignment; private fields only behind them.
namespace {

/// Compares the fields of a record with those of a plain C record, one by one.
template <typename Record, typename Mirror> struct Layout {
    template <typename A, typename B>
    void Check(A Record::*pField, B Mirror::*pExpected, const char *szName) const
    {
        EXPECT_EQ(KovaFieldOffset(pField), KovaFieldOffset(pExpected)) << szName;
        EXPECT_EQ(sizeof(A), sizeof(B)) << szName;
        EXPECT_EQ(alignof(A), alignof(B)) << szName;
    }
};

struct ListMirror {
    void *data;
    void *prev;
    void *next;
};

TEST(RecordLayout, List)
{
    const Layout<KovaList, ListMirror> layout;
    layout.Check(&KovaList::data, &ListMirror::data, "data");
    layout.Check(&KovaList::prev, &ListMirror::prev, "prev");
    layout.Check(&KovaList::next, &ListMirror::next, "next");
    EXPECT_EQ(sizeof(KovaList), sizeof(ListMirror));
}

struct RingMirror {
    unsigned char *pBuffer;
    int32_t nSize;
    int32_t nReadPos;
    int32_t nWritePos;
};

TEST(RecordLayout, RingBuffer)
{
    const Layout<KovaRingbuffer, RingMirror> layout;
    layout.Check(&KovaRingbuffer::pBuffer, &RingMirror::pBuffer, "pBuffer");
    layout.Check(&KovaRingbuffer::nSize, &RingMirror::nSize, "nSize");
    layout.Check(&KovaRingbuffer::nReadPos, &RingMirror::nReadPos, "nReadPos");
    layout.Check(&KovaRingbuffer::nWritePos, &RingMirror::nWritePos, "nWritePos");
}

struct PacketMirror {
    unsigned char *pData;
    uint32_t nSize;
    int32_t nRefCount;
    uint32_t nFrameType;
    uint32_t nPts;
    pthread_mutex_t mutex;
};

TEST(RecordLayout, RtpPacket)
{
    const Layout<KovaRtpPacket, PacketMirror> layout;
    layout.Check(&KovaRtpPacket::pData, &PacketMirror::pData, "pData");
    layout.Check(&KovaRtpPacket::nSize, &PacketMirror::nSize, "nSize");
    layout.Check(&KovaRtpPacket::nRefCount, &PacketMirror::nRefCount, "nRefCount");
    layout.Check(&KovaRtpPacket::nFrameType, &PacketMirror::nFrameType, "nFrameType");
    layout.Check(&KovaRtpPacket::nPts, &PacketMirror::nPts, "nPts");
    layout.Check(&KovaRtpPacket::mutex, &PacketMirror::mutex, "mutex");
}

struct PackerMirror {
    uint32_t nPayloadType;
    uint32_t nCodec;
    uint32_t nSsrc;
    uint32_t nPts;
    uint32_t nTimestamp;
    uint32_t bMarker;
    uint32_t nSequence;
    void (*pfnStreamInfo)();
    void *pStreamInfoContext;
};

TEST(RecordLayout, RtpPacker)
{
    const Layout<KovaRtpPacker, PackerMirror> layout;
    layout.Check(&KovaRtpPacker::nPayloadType, &PackerMirror::nPayloadType, "nPayloadType");
    layout.Check(&KovaRtpPacker::nCodec, &PackerMirror::nCodec, "nCodec");
    layout.Check(&KovaRtpPacker::nSsrc, &PackerMirror::nSsrc, "nSsrc");
    layout.Check(&KovaRtpPacker::nPts, &PackerMirror::nPts, "nPts");
    layout.Check(&KovaRtpPacker::nTimestamp, &PackerMirror::nTimestamp, "nTimestamp");
    layout.Check(&KovaRtpPacker::bMarker, &PackerMirror::bMarker, "bMarker");
    layout.Check(&KovaRtpPacker::nSequence, &PackerMirror::nSequence, "nSequence");
    layout.Check(&KovaRtpPacker::pfnStreamInfo, &PackerMirror::pfnStreamInfo, "pfnStreamInfo");
    layout.Check(&KovaRtpPacker::pStreamInfoContext, &PackerMirror::pStreamInfoContext,
                 "pStreamInfoContext");
    // The codec's part follows at once.
    EXPECT_EQ(sizeof(KovaRtpPacker), sizeof(PackerMirror));
}

struct H264Mirror {
    PackerMirror head;
    uint32_t nFragmentOffset;
    uint32_t nPayloadBytes;
    uint32_t nNalCount;
    void *pFragmentNal;
    void *pNalList;
    void *pNalListTail;
};

TEST(RecordLayout, RtpH264Packer)
{
    const Layout<KovaRtpH264Packer, H264Mirror> layout;
    layout.Check(&KovaRtpH264Packer::head, &H264Mirror::head, "head");
    layout.Check(&KovaRtpH264Packer::nFragmentOffset, &H264Mirror::nFragmentOffset,
                 "nFragmentOffset");
    layout.Check(&KovaRtpH264Packer::nPayloadBytes, &H264Mirror::nPayloadBytes, "nPayloadBytes");
    layout.Check(&KovaRtpH264Packer::nNalCount, &H264Mirror::nNalCount, "nNalCount");
    layout.Check(&KovaRtpH264Packer::pFragmentNal, &H264Mirror::pFragmentNal, "pFragmentNal");
    layout.Check(&KovaRtpH264Packer::pNalList, &H264Mirror::pNalList, "pNalList");
    layout.Check(&KovaRtpH264Packer::pNalListTail, &H264Mirror::pNalListTail, "pNalListTail");
}

struct AacMirror {
    PackerMirror head;
    uint32_t nSampleRate;
    uint32_t nFragmentOffset;
    uint32_t nFragmentSize;
    uint32_t bWholeUnit;
    void *pFragmentUnit;
    void *pAuList;
    void *pAuListTail;
};

TEST(RecordLayout, RtpAacPacker)
{
    const Layout<KovaRtpAacPacker, AacMirror> layout;
    layout.Check(&KovaRtpAacPacker::head, &AacMirror::head, "head");
    layout.Check(&KovaRtpAacPacker::nSampleRate, &AacMirror::nSampleRate, "nSampleRate");
    layout.Check(&KovaRtpAacPacker::nFragmentOffset, &AacMirror::nFragmentOffset,
                 "nFragmentOffset");
    layout.Check(&KovaRtpAacPacker::nFragmentSize, &AacMirror::nFragmentSize, "nFragmentSize");
    layout.Check(&KovaRtpAacPacker::bWholeUnit, &AacMirror::bWholeUnit, "bWholeUnit");
    layout.Check(&KovaRtpAacPacker::pFragmentUnit, &AacMirror::pFragmentUnit, "pFragmentUnit");
    layout.Check(&KovaRtpAacPacker::pAuList, &AacMirror::pAuList, "pAuList");
    layout.Check(&KovaRtpAacPacker::pAuListTail, &AacMirror::pAuListTail, "pAuListTail");
}

struct ClientMirror {
    int32_t nState;
    char szSessionId[12];
    int nRtpSocket;
    int nRtcpSocket;
    uint16_t nClientRtpPort;
    uint16_t nClientRtcpPort;
    struct sockaddr_in rtpAddress;
    struct sockaddr_in rtcpAddress;
    uint16_t nStartSequence;
    uint32_t nStartTimestamp;
    uint32_t nOctetCount;
    uint32_t nPacketCount;
    uint64_t nSendBitrate;
    int32_t nLastRtcpTime;
    int32_t bKeyFrameFound;
    uint64_t nMeasureStartTime;
    uint32_t nMeasureBytes;
    int32_t bInterleaved;
    int *pTcpSocket;
    uint16_t nRtpChannel;
    uint16_t nRtcpChannel;
};

TEST(RecordLayout, RtpClient)
{
    using Record = KovaRtpClient;
    using Mirror = ClientMirror;
    const Layout<Record, Mirror> layout;
    layout.Check(&Record::nState, &Mirror::nState, "nState");
    layout.Check(&Record::szSessionId, &Mirror::szSessionId, "szSessionId");
    layout.Check(&Record::nRtpSocket, &Mirror::nRtpSocket, "nRtpSocket");
    layout.Check(&Record::nRtcpSocket, &Mirror::nRtcpSocket, "nRtcpSocket");
    layout.Check(&Record::nClientRtpPort, &Mirror::nClientRtpPort, "nClientRtpPort");
    layout.Check(&Record::nClientRtcpPort, &Mirror::nClientRtcpPort, "nClientRtcpPort");
    layout.Check(&Record::rtpAddress, &Mirror::rtpAddress, "rtpAddress");
    layout.Check(&Record::rtcpAddress, &Mirror::rtcpAddress, "rtcpAddress");
    layout.Check(&Record::nStartSequence, &Mirror::nStartSequence, "nStartSequence");
    layout.Check(&Record::nStartTimestamp, &Mirror::nStartTimestamp, "nStartTimestamp");
    layout.Check(&Record::nOctetCount, &Mirror::nOctetCount, "nOctetCount");
    layout.Check(&Record::nPacketCount, &Mirror::nPacketCount, "nPacketCount");
    layout.Check(&Record::nSendBitrate, &Mirror::nSendBitrate, "nSendBitrate");
    layout.Check(&Record::nLastRtcpTime, &Mirror::nLastRtcpTime, "nLastRtcpTime");
    layout.Check(&Record::bKeyFrameFound, &Mirror::bKeyFrameFound, "bKeyFrameFound");
    layout.Check(&Record::nMeasureStartTime, &Mirror::nMeasureStartTime, "nMeasureStartTime");
    layout.Check(&Record::nMeasureBytes, &Mirror::nMeasureBytes, "nMeasureBytes");
    layout.Check(&Record::bInterleaved, &Mirror::bInterleaved, "bInterleaved");
    layout.Check(&Record::pTcpSocket, &Mirror::pTcpSocket, "pTcpSocket");
    layout.Check(&Record::nRtpChannel, &Mirror::nRtpChannel, "nRtpChannel");
    layout.Check(&Record::nRtcpChannel, &Mirror::nRtcpChannel, "nRtcpChannel");
}

struct GroupMirror {
    void *pSender;
    uint32_t nState;
    void *pPacketList;
    void *pPacketListTail;
    void *pClientList;
    pthread_mutex_t packetMutex;
    pthread_mutex_t clientMutex;
    uint32_t nLastPts;
};

TEST(RecordLayout, RtpSendGroup)
{
    using Record = KovaRtpSendGroup;
    using Mirror = GroupMirror;
    const Layout<Record, Mirror> layout;
    layout.Check(&Record::pSender, &Mirror::pSender, "pSender");
    layout.Check(&Record::nState, &Mirror::nState, "nState");
    layout.Check(&Record::pPacketList, &Mirror::pPacketList, "pPacketList");
    layout.Check(&Record::pPacketListTail, &Mirror::pPacketListTail, "pPacketListTail");
    layout.Check(&Record::pClientList, &Mirror::pClientList, "pClientList");
    layout.Check(&Record::packetMutex, &Mirror::packetMutex, "packetMutex");
    layout.Check(&Record::clientMutex, &Mirror::clientMutex, "clientMutex");
    layout.Check(&Record::nLastPts, &Mirror::nLastPts, "nLastPts");
}

struct SenderMirror {
    void *pStreamer;
    uint32_t nPayloadId;
    uint32_t nSendGroupCount;
    void *pSendGroupList;
    void *pSendGroupListTail;
    pthread_mutex_t mutex;
    uint16_t nLastSequence;
    uint32_t nLastTimestamp;
};

TEST(RecordLayout, RtpSender)
{
    using Record = KovaRtpSender;
    using Mirror = SenderMirror;
    const Layout<Record, Mirror> layout;
    layout.Check(&Record::pStreamer, &Mirror::pStreamer, "pStreamer");
    layout.Check(&Record::nPayloadId, &Mirror::nPayloadId, "nPayloadId");
    layout.Check(&Record::nSendGroupCount, &Mirror::nSendGroupCount, "nSendGroupCount");
    layout.Check(&Record::pSendGroupList, &Mirror::pSendGroupList, "pSendGroupList");
    layout.Check(&Record::pSendGroupListTail, &Mirror::pSendGroupListTail, "pSendGroupListTail");
    layout.Check(&Record::mutex, &Mirror::mutex, "mutex");
    layout.Check(&Record::nLastSequence, &Mirror::nLastSequence, "nLastSequence");
    layout.Check(&Record::nLastTimestamp, &Mirror::nLastTimestamp, "nLastTimestamp");
}

} // namespace
