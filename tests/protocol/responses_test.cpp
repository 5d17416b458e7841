#include "classic/rtsp/request_info.h"
#include "classic/rtsp/responses.h"
#include "foundation/heap.h"
#include "tests/protocol/handler_pair.h"
#include "tests/support/stdout_capture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

using Response = void (*)(KovaRtspServerHandler *, KovaRtspRequestInfo);

class Responses : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_NE(pair.pHandler, nullptr);
        strcpy(pair.pHandler->szLocalAddr, "10.0.0.1");
        pair.pHandler->nLocalPort = 65535;
        strcpy(pair.pHandler->szPeerAddr, "192.168.100.200");
        info.nStatus = 200;
        strcpy(info.szUri, "live");
        strcpy(info.szCSeq, "1234567");
        strcpy(info.szSessionId, "01234567890");
    }
    std::string Sent(Response pfnResponse)
    {
        pfnResponse(pair.pHandler, info);
        return pair.player.Receive().text;
    }
    void AddTrack(uint32_t nTrackId, uint32_t nSequence, uint32_t nTime)
    {
        auto *pTrack = KovaHeapNew<KovaRtspTrackInfo>();
        *pTrack = {nTrackId, nSequence, nTime};
        ASSERT_TRUE(KovaListPush(&info.pTrackList, pTrack));
    }

    KovaStdoutCapture capture;
    KovaTestServer server{{"live", 64, false}};
    KovaHandlerPair pair{server.Server()};
    KovaRtspRequestInfo info = {};
};

TEST_F(Responses, Options)
{
    EXPECT_EQ(Sent(RequestOptionsResponse),
              "RTSP/1.0 200 OK\r\nCSeq: 1234567\r\n"
              "Public: DESCRIBE,SETUP,TEARDOWN,PLAY,GET_PARAMETER\r\n\r\n");
}

TEST_F(Responses, DescribeOfAStreamThatIsNotReady)
{
    EXPECT_EQ(Sent(RequestDescribeResponse),
              "RTSP/1.0 200 OK\r\nCSeq: 1234567\r\nServer: Brisklane/1.0.0.1\r\n"
              "Cache-Control: no-cache\r\nContent-Type: application/sdp\r\n"
              "Content-Length: 0\r\n\r\n");
}

TEST_F(Responses, DescribeOfNoStreamKeepsTheStatus)
{
    strcpy(info.szUri, "none");
    info.nStatus = 500;
    EXPECT_EQ(Sent(RequestDescribeResponse),
              "RTSP/1.0 500 Internal Server Error\r\nCSeq: 1234567\r\n"
              "Server: Brisklane/1.0.0.1\r\nCache-Control: no-cache\r\n"
              "Content-Type: application/sdp\r\nContent-Length: 0\r\n\r\n");
}

TEST_F(Responses, DescribeTellsTheLengthOfItsBody)
{
    server.MakeReady();
    RequestDescribeResponse(pair.pHandler, info);
    const KovaTestResponse response = pair.player.Receive();
    EXPECT_EQ(response.Header("Content-Length"), std::to_string(response.body.size()));
    EXPECT_EQ(response.body.substr(0, 9), "v=0\r\no=- ");
    EXPECT_TRUE(pair.player.IsSilent(50));
}

TEST_F(Responses, SetupOverUdp)
{
    info.nClientRtpPort = 65535;
    info.nClientRtcpPort = 0;
    info.nServerRtpPort = 6970;
    info.nServerRtcpPort = 6971;
    info.nSsrc = 0xFFFFFFFF;
    EXPECT_EQ(Sent(RequestSetupResponse),
              "RTSP/1.0 200 OK\r\nCSeq: 1234567\r\nServer: Brisklane/1.0.0.1\r\n"
              "Cache-Control: no-cache\r\nTransport: RTP/AVP/UDP;unicast;client_port=65535-0;"
              "server_port=6970-6971;ssrc=4294967295\r\nSession: 01234567890;timeout=60\r\n\r\n");
}

TEST_F(Responses, SetupInterleaved)
{
    info.nTransport = 1;
    info.nRtpChannel = 4;
    info.nRtcpChannel = 5;
    info.nSsrc = 7;
    const std::string expected =
        "RTSP/1.0 200 OK\r\nCSeq: 1234567\r\nServer: Brisklane/1.0.0.1\r\n"
        "Cache-Control: no-cache\r\nTransport: RTP/AVP/TCP;unicast;destination=192.168.100.200;"
        "source=10.0.0.1;interleaved=4-5;ssrc=7\r\nSession: 01234567890;timeout=60\r\n\r\n";
    EXPECT_EQ(Sent(RequestSetupResponse), expected);
    info.nTransport = -1; // whatever is not 0
    EXPECT_EQ(Sent(RequestSetupResponse), expected);
}

TEST_F(Responses, PlayWithTracks)
{
    AddTrack(96, 0x1FFFF, 0xFFFFFFFF); // only the low 16 bits of a sequence number are shown
    AddTrack(97, 0, 0);
    EXPECT_EQ(Sent(RequestPlayResponse),
              "RTSP/1.0 200 OK\r\nCSeq: 1234567\r\nCache-Control: no-cache\r\n"
              "RTP-Info: url=rtsp://10.0.0.1:65535/live/trackID=96;seq=65535;rtptime=4294967295, "
              "url=rtsp://10.0.0.1:65535/live/trackID=97;seq=0;rtptime=0\r\n"
              "Session: 01234567890;timeout=60\r\n\r\n");
}

TEST_F(Responses, PlayWithOneTrackHasNoComma)
{
    AddTrack(97, 1, 2);
    EXPECT_EQ(Sent(RequestPlayResponse),
              "RTSP/1.0 200 OK\r\nCSeq: 1234567\r\nCache-Control: no-cache\r\n"
              "RTP-Info: url=rtsp://10.0.0.1:65535/live/trackID=97;seq=1;rtptime=2\r\n"
              "Session: 01234567890;timeout=60\r\n\r\n");
}

TEST_F(Responses, PlayWithoutTracksOrSession)
{
    info.szSessionId[0] = '\0';
    EXPECT_EQ(Sent(RequestPlayResponse), "RTSP/1.0 200 OK\r\nCSeq: 1234567\r\n"
                                         "Cache-Control: no-cache\r\nSession: ;timeout=60\r\n\r\n");
}

TEST_F(Responses, PlayLeavesOutWholeEntriesThatDoNotFit)
{
    memset(info.szUri, 'u', 1000);
    info.szUri[1000] = '\0';
    for (uint32_t nTrack = 60; nTrack < 80; nTrack++)
        AddTrack(nTrack, 1, 2);
    const std::string sent = Sent(RequestPlayResponse);
    EXPECT_LT(sent.size(), 8192u);
    EXPECT_GT(sent.size(), 6000u);
    const std::string entry = "url=rtsp://10.0.0.1:65535/" + std::string(1000, 'u') + "/trackID=";
    size_t nEntries = 0;
    for (size_t nAt = sent.find(entry); nAt != std::string::npos; nAt = sent.find(entry, nAt + 1)) {
        EXPECT_EQ(sent.substr(nAt + entry.size() + 2, 16), ";seq=1;rtptime=2");
        nEntries++;
    }
    EXPECT_EQ(nEntries, 7u);
    const std::string tail = "rtptime=2\r\nSession: 01234567890;timeout=60\r\n\r\n";
    EXPECT_EQ(sent.substr(sent.size() - tail.size()), tail);
}

TEST_F(Responses, PlayKeepsRoomForItsSessionWhateverTheEntriesFill)
{
    const std::string tail = "rtptime=2\r\nSession: 01234567890;timeout=60\r\n\r\n";
    for (size_t nUri = 900; nUri < 1020; nUri++) { // each entry one byte longer
        memset(info.szUri, 'u', nUri);
        info.szUri[nUri] = '\0';
        info.pTrackList = nullptr;
        for (uint32_t nTrack = 60; nTrack < 70; nTrack++)
            AddTrack(nTrack, 1, 2);
        const std::string sent = Sent(RequestPlayResponse);
        ASSERT_GT(sent.size(), tail.size());
        ASSERT_EQ(sent.substr(sent.size() - tail.size()), tail) << nUri;
    }
}

TEST_F(Responses, GetParameter)
{
    EXPECT_EQ(Sent(RequestGetParameterResponse),
              "RTSP/1.0 200 OK\r\nCSeq: 1234567\r\nCache-Control: no-cache\r\n"
              "Session: 01234567890;timeout=60\r\n\r\n");
}

TEST_F(Responses, Teardown)
{
    EXPECT_EQ(Sent(RequestTeardownResponse),
              "RTSP/1.0 200 OK\r\nCSeq: 1234567\r\nCache-Control: no-cache\r\n\r\n");
}

TEST_F(Responses, RefusalIsTheStatusLineAlone)
{
    info.nStatus = 400;
    EXPECT_EQ(Sent(RequestNotOKResponse), "RTSP/1.0 400 Bad Request\r\n\r\n");
    info.nStatus = 551;
    EXPECT_EQ(Sent(RequestNotOKResponse), "RTSP/1.0 551 Option not supported\r\n\r\n");
    info.nStatus = 999;
    EXPECT_EQ(Sent(RequestNotOKResponse), "RTSP/1.0 999 \r\n\r\n");
    info.nStatus = -1;
    EXPECT_EQ(Sent(RequestNotOKResponse), "RTSP/1.0 -1 \r\n\r\n");
}

TEST_F(Responses, CodeWithoutAReason)
{
    info.nStatus = 299;
    EXPECT_EQ(Sent(RequestTeardownResponse),
              "RTSP/1.0 299 \r\nCSeq: 1234567\r\nCache-Control: no-cache\r\n\r\n");
}

TEST_F(Responses, PercentSignsAreNoFormats)
{
    strcpy(info.szCSeq, "%s%n%d");
    EXPECT_EQ(Sent(RequestTeardownResponse),
              "RTSP/1.0 200 OK\r\nCSeq: %s%n%d\r\nCache-Control: no-cache\r\n\r\n");
}

TEST_F(Responses, NullHandlerIsIgnored)
{
    capture.Clear();
    for (const Response pfnResponse :
         {RequestOptionsResponse, RequestDescribeResponse, RequestSetupResponse,
          RequestPlayResponse, RequestGetParameterResponse, RequestTeardownResponse,
          RequestNotOKResponse})
        pfnResponse(nullptr, info);
    EXPECT_TRUE(pair.player.IsSilent(20));
}

} // namespace
