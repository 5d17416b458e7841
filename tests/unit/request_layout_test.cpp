#include "rtsp/request_info.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>

/// Requests and tracks as they are handed from function to function.
namespace {

struct RequestMirror {
    int32_t nMethod;
    char szHostPort[22];
    char szUri[1026];
    int32_t nRtspVersion;
    char szCSeq[8];
    int32_t nTrackId;
    void *pTrackList;
    uint16_t nClientRtpPort;
    uint16_t nClientRtcpPort;
    uint16_t nServerRtpPort;
    uint16_t nServerRtcpPort;
    uint16_t nRtpChannel;
    uint16_t nRtcpChannel;
    int32_t nRtpSocket;
    int32_t nRtcpSocket;
    char szSessionId[12];
    uint32_t nSsrc;
    int32_t nStatus;
    char szReason[64];
    int32_t nTransport;
    int32_t nTcpSocket;
};

TEST(RequestLayout, RequestInfo)
{
    using R = KovaRtspRequestInfo;
    using M = RequestMirror;
    EXPECT_EQ(sizeof(R), sizeof(M));
    EXPECT_EQ(offsetof(R, nMethod), offsetof(M, nMethod));
    EXPECT_EQ(offsetof(R, szHostPort), offsetof(M, szHostPort));
    EXPECT_EQ(offsetof(R, szUri), offsetof(M, szUri));
    EXPECT_EQ(offsetof(R, nRtspVersion), offsetof(M, nRtspVersion));
    EXPECT_EQ(offsetof(R, szCSeq), offsetof(M, szCSeq));
    EXPECT_EQ(offsetof(R, nTrackId), offsetof(M, nTrackId));
    EXPECT_EQ(offsetof(R, pTrackList), offsetof(M, pTrackList));
    EXPECT_EQ(offsetof(R, nClientRtpPort), offsetof(M, nClientRtpPort));
    EXPECT_EQ(offsetof(R, nClientRtcpPort), offsetof(M, nClientRtcpPort));
    EXPECT_EQ(offsetof(R, nServerRtpPort), offsetof(M, nServerRtpPort));
    EXPECT_EQ(offsetof(R, nServerRtcpPort), offsetof(M, nServerRtcpPort));
    EXPECT_EQ(offsetof(R, nRtpChannel), offsetof(M, nRtpChannel));
    EXPECT_EQ(offsetof(R, nRtcpChannel), offsetof(M, nRtcpChannel));
    EXPECT_EQ(offsetof(R, nRtpSocket), offsetof(M, nRtpSocket));
    EXPECT_EQ(offsetof(R, nRtcpSocket), offsetof(M, nRtcpSocket));
    EXPECT_EQ(offsetof(R, szSessionId), offsetof(M, szSessionId));
    EXPECT_EQ(offsetof(R, nSsrc), offsetof(M, nSsrc));
    EXPECT_EQ(offsetof(R, nStatus), offsetof(M, nStatus));
    EXPECT_EQ(offsetof(R, szReason), offsetof(M, szReason));
    EXPECT_EQ(offsetof(R, nTransport), offsetof(M, nTransport));
    EXPECT_EQ(offsetof(R, nTcpSocket), offsetof(M, nTcpSocket));
}

TEST(RequestLayout, TrackInfoIsThreeWords)
{
    EXPECT_EQ(sizeof(KovaRtspTrackInfo), 12U);
    EXPECT_EQ(offsetof(KovaRtspTrackInfo, nTrackId), 0U);
    EXPECT_EQ(offsetof(KovaRtspTrackInfo, nSeq), 4U);
    EXPECT_EQ(offsetof(KovaRtspTrackInfo, nRtpTime), 8U);
}

} // namespace
