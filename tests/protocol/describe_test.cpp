#include "tests/protocol/protocol_fixture.h"
#include "tests/support/fake_clock.h"

namespace {

/// The description with "#" for the four random digits of the session string.
std::string Masked(std::string text)
{
    for (size_t nAt = text.find("20261120101112"); nAt != std::string::npos;
         nAt = text.find("20261120101112", nAt + 14))
        text.replace(nAt + 14, 4, "####");
    return text;
}

std::string Description(const std::string &address, const std::string &url)
{
    return "v=0\r\no=- 20261120101112#### 20261120101112#### IN IP4 " + address +
           "\r\ns= Unnamed\r\nc=IN IP4 0.0.0.0\r\na=control:" + url +
           "\r\na=recvonly\r\na=type:broadcast\r\nt=0 0\r\n"
           "m=audio 0 RTP/AVP 96\r\nb=AS:64\r\nb=RR:0\r\n"
           "a=rtpmap:96 mpeg4-generic/44100/2\r\na=control:trackID=96\r\n"
           "a=fmtp:96 streamtype=5;profile-level-id=15;mode=AAC-hbr;config=1210;sizeLength=13;"
           "indexLength=3;indexDeltaLength=3;Profile=1;\r\n"
           "m=video 0 RTP/AVP 97\r\nb=AS:2000\r\na=rtpmap:97 H264/90000\r\n"
           "a=control:trackID=97\r\na=fmtp:97 packetization-mode=1;profile-level-id=42C01E;"
           "sprop-parameter-sets=Z0LAHtkAoEf+yA==,aM48gA==;\r\n";
}

/// 2026-11-20 10:11:12 UTC.
constexpr int64_t kInstant = 1795169472LL * 1000000;

class Describe : public ProtocolTest {
protected:
    void Expect(const std::string &description)
    {
        KovaFakeClock clock;
        clock.Fix(kInstant);
        const std::string answer = Answer("DESCRIBE rtsp://h/live RTSP/1.0");
        EXPECT_EQ(Masked(answer),
                  "RTSP/1.0 200 OK\r\nCSeq: 1\r\nServer: Brisklane/1.0.0.1\r\n"
                  "Cache-Control: no-cache\r\nContent-Type: application/sdp\r\nContent-Length: " +
                      std::to_string(description.size()) + "\r\n\r\n" + description);
        EXPECT_EQ(Printed(), "");
    }
};

TEST_F(Describe, StreamThatIsNotReadyHasAnEmptyBody)
{
    Expect("");
}

TEST_F(Describe, ReadyStreamBeforeAnyOptions)
{
    server.MakeReady();
    Expect(Description("", "rtsp://:0/live"));
}

TEST_F(Describe, ReadyStreamCarriesTheAddressesOfTheLastOptions)
{
    server.MakeReady();
    ASSERT_EQ(client.Options("live").nStatus, 200);
    Expect(Description("127.0.0.1", "rtsp://127.0.0.1:" + std::to_string(server.Port()) + "/live"));
}

TEST_F(Describe, PushedMediaMakeTheStreamReady)
{
    ASSERT_TRUE(server.PushReady());
    Expect(Description("", "rtsp://:0/live"));
}

TEST_F(Describe, UnknownStreamIsNotFound)
{
    EXPECT_EQ(Answer("DESCRIBE rtsp://h/live2 RTSP/1.0"), k404);
    EXPECT_EQ(Answer("DESCRIBE rtsp://h/LIVE RTSP/1.0"), k404);
    EXPECT_EQ(Answer("DESCRIBE rtsp://h/live/ RTSP/1.0"), k404);
    EXPECT_EQ(Printed(), "Can't find Uri !!!\n");
}

TEST_F(Describe, UriOfTheLongestLengthWorks)
{
    const std::string uri(1024, 'u');
    KovaRtspStreamer *pStream = server.AddStream(uri);
    ASSERT_NE(pStream, nullptr);
    server.MakeReady(pStream);
    const std::string answer = Answer("DESCRIBE rtsp://h/" + uri + " RTSP/1.0");
    EXPECT_NE(answer.find("a=control:rtsp://:0/" + uri + "\r\na=recvonly"), std::string::npos);
    EXPECT_EQ(Answer("DESCRIBE rtsp://h/" + uri + "u RTSP/1.0"), k404);
    EXPECT_EQ(Answer("DESCRIBE rtsp://h/" + std::string(4000, 'u') + " RTSP/1.0"), k404);
    EXPECT_EQ(Printed(), "Can't find Uri !!!\n");
}

TEST_F(Describe, CarriesTheSessionNowhere)
{
    ASSERT_EQ(client.SetupTcp("live", 97, 0).nStatus, 200);
    EXPECT_EQ(Answer("DESCRIBE rtsp://h/live RTSP/1.0", "Session: " + client.Session() + "\r\n"),
              "RTSP/1.0 200 OK\r\nCSeq: 1\r\nServer: Brisklane/1.0.0.1\r\n"
              "Cache-Control: no-cache\r\nContent-Type: application/sdp\r\n"
              "Content-Length: 0\r\n\r\n");
    EXPECT_EQ(Printed(), "Session Id: " + client.Session() + "\n");
}

} // namespace
