#include "tests/robustness/expected_answers.h"

#include <gtest/gtest.h>

namespace {

constexpr size_t kRead = 8192; ///< what one read takes
constexpr size_t kAlmostRead = 8191;

/// Values that just fit their fields, just do not, and fill a whole read.
class FieldSizes : public ExpectedAnswers {
protected:
    void SetUp() override
    {
        ExpectedAnswers::SetUp();
        ASSERT_TRUE(server->Connect(&player));
    }

    std::string Send(const std::string &request)
    {
        return player.Exchange(request).text;
    }
    std::string Options(const std::string &uri)
    {
        return Send("OPTIONS " + uri + " RTSP/1.0\r\nCSeq: 1\r\n\r\n");
    }
    std::string Setup(const std::string &track, const std::string &transport)
    {
        return Send("SETUP rtsp://h/live/trackID=" + track +
                    " RTSP/1.0\r\nCSeq: 1\r\nTransport: " + transport + "\r\n\r\n");
    }
    /// The value that makes the text as long as a read less one, in place of '*'.
    static std::string Filled(std::string text, char nByte)
    {
        const size_t nAt = text.find('*');
        return text.replace(nAt, 1, std::string(kAlmostRead + 1 - text.size(), nByte));
    }

    const std::string options = Answer("OPTIONS", "1", "");
    KovaRtspTestClient player;
};

TEST_F(FieldSizes, Method)
{
    for (const size_t nSize : {31U, 32U, 33U}) {
        const std::string method = "OPTIONS" + std::string(nSize - 7, 'x');
        EXPECT_EQ(Send(method + " rtsp://h/live RTSP/1.0\r\nCSeq: 1\r\n\r\n"),
                  nSize == 31 ? options : kBadRequest);
    }
    EXPECT_EQ(Send(Filled("OPTIONS* rtsp://h/live RTSP/1.0\r\nCSeq: 1\r\n\r\n", 'x')), kBadRequest);
    EXPECT_EQ(Send(std::string(kAlmostRead, 'x')), kBadRequest);
}

TEST_F(FieldSizes, Host)
{
    for (const size_t nSize : {0U, 21U, 22U, 23U, 1000U})
        EXPECT_EQ(Options("rtsp://" + std::string(nSize, 'h') + "/live"), options) << nSize;
    EXPECT_EQ(Send(Filled("OPTIONS rtsp://*/live RTSP/1.0\r\nCSeq: 1\r\n\r\n", 'h')), options);
}

TEST_F(FieldSizes, Path)
{
    ASSERT_NE(server->AddStream(std::string(1023, 'a')), nullptr);
    ASSERT_NE(server->AddStream(std::string(1024, 'a')), nullptr);
    for (const size_t nSize : {1022U, 1023U, 1024U, 1025U, 1026U, 1027U})
        EXPECT_EQ(Options("rtsp://h/" + std::string(nSize, 'a')),
                  nSize == 1023 || nSize == 1024 ? options : kNotFound)
            << nSize;
    EXPECT_EQ(Send(Filled("OPTIONS rtsp://h/* RTSP/1.0\r\nCSeq: 1\r\n\r\n", 'a')), kNotFound);
}

TEST_F(FieldSizes, CSeq)
{
    for (const size_t nSize : {0U, 6U, 7U, 8U, 9U}) {
        const std::string cseq(nSize, '7');
        EXPECT_EQ(Send("OPTIONS rtsp://h/live RTSP/1.0\r\nCSeq: " + cseq + "\r\n\r\n"),
                  nSize <= 7 ? Answer("OPTIONS", cseq, "") : kBadRequest)
            << nSize;
    }
    EXPECT_EQ(Send(Filled("OPTIONS rtsp://h/live RTSP/1.0\r\nCSeq: *\r\n\r\n", '7')), kBadRequest);
}

TEST_F(FieldSizes, SessionId)
{
    ASSERT_EQ(player.SetupTcp("live", 97, 0).nStatus, 200);
    const std::string id = player.Session();
    const std::string begin = "GET_PARAMETER rtsp://h/live RTSP/1.0\r\nCSeq: 1\r\nSession: ";
    EXPECT_EQ(Send(begin + id + "\r\n\r\n"), Answer("GET_PARAMETER", "1", id));
    for (const std::string &wrong :
         {std::string(), id.substr(0, 10), id + "0", id + "00", id + ";timeout=60"})
        EXPECT_EQ(Send(begin + wrong + "\r\n\r\n"), kSessionNotFound) << wrong;
    // A zero byte ends the text: the line has no end then, and counts for nothing.
    EXPECT_EQ(Send(begin + std::string(1, '\0') + id + "\r\n\r\n"),
              Answer("GET_PARAMETER", "1", ""));
    EXPECT_EQ(Send(Filled(begin + "*\r\n\r\n", '1')), kSessionNotFound);
    EXPECT_EQ(Send(Filled(begin + id + "*\r\n\r\n", '1')), kSessionNotFound);
}

TEST_F(FieldSizes, TrackNumber)
{
    const std::string transport = "RTP/AVP/TCP;unicast;interleaved=4-5";
    const std::string known = Answer("SETUP", "1", "");
    std::string unknown = known;
    const std::string ssrc = "ssrc=" + std::to_string(server->Ssrc(97));
    unknown.replace(unknown.find(ssrc), ssrc.size(), "ssrc=0");
    for (const char *szTrack : {"97", "097", "0097"})
        EXPECT_EQ(Masked(Setup(szTrack, transport), ""), known) << szTrack;
    for (const char *szTrack : {"7", "98", "9999", "00097", "000097", "9x", "-1", "%n%n"})
        EXPECT_EQ(Masked(Setup(szTrack, transport), ""), unknown) << szTrack;
    const std::string rest = " RTSP/1.0\r\nCSeq: 1\r\nTransport: " + transport + "\r\n\r\n";
    EXPECT_EQ(Masked(Send(Filled("SETUP rtsp://h/live/trackID=*" + rest, '9')), ""), unknown);
    EXPECT_EQ(server->Clients(97).size(), 3U);
    EXPECT_EQ(server->Clients(96).size(), 0U);
}

TEST_F(FieldSizes, InterleavedChannel)
{
    const std::string known = Answer("SETUP", "1", "");
    const auto answer = [&](const std::string &channels) {
        std::string text = known;
        return text.replace(text.find("4-5"), 3, channels);
    };
    EXPECT_EQ(Masked(Setup("97", "interleaved=-"), ""), answer("0-1"));
    EXPECT_EQ(Masked(Setup("97", "interleaved=9999-"), ""), answer("9999-10000"));
    EXPECT_EQ(Masked(Setup("97", "interleaved=65535-0"), ""), answer("65535-0"));
    EXPECT_EQ(Masked(Setup("97", "interleaved=65536-0"), ""), answer("0-1"));
    EXPECT_EQ(Setup("97", "interleaved=000001-2"), kBadRequest);
    EXPECT_EQ(Setup("97", "interleaved=1234567-8"), kBadRequest);
    EXPECT_EQ(Setup("97", "interleaved="), kBadRequest);
    EXPECT_EQ(Setup("97", "interleaved"), kBadRequest);
    EXPECT_EQ(Send(Filled("SETUP rtsp://h/live/trackID=97 RTSP/1.0\r\nCSeq: 1\r\n"
                          "Transport: interleaved=*-2\r\n\r\n",
                          '1')),
              kBadRequest);
    EXPECT_EQ(server->Clients(97).size(), 4U);
}

TEST_F(FieldSizes, ClientPort)
{
    const auto answers = [&](const std::string &ports, const std::string &expected) {
        return Setup("97", "RTP/AVP;unicast;client_port=" + ports)
                   .find("RTP/AVP/UDP;unicast;client_port=" + expected + ";server_port=") !=
               std::string::npos;
    };
    EXPECT_TRUE(answers("-", "0-1"));
    EXPECT_TRUE(answers("9999-1", "9999-10000"));
    EXPECT_TRUE(answers("65535-1", "65535-0"));
    EXPECT_TRUE(answers("65536-1", "0-1"));
    EXPECT_EQ(Setup("97", "client_port=005000-1"), kBadRequest);
    EXPECT_EQ(Setup("97", "client_port=1234567-8"), kBadRequest);
    for (const char *szMethod : {"SETUP", "OPTIONS", "DESCRIBE", "PLAY", "TEARDOWN"})
        EXPECT_EQ(Send(Filled(std::string(szMethod) + " rtsp://h/live RTSP/1.0\r\nCSeq: 1\r\n"
                                                      "Transport: client_port=*-2\r\n\r\n",
                              '1')),
                  szMethod == std::string("SETUP") ? kNotFound : kBadRequest)
            << szMethod;
    EXPECT_EQ(server->Clients(97).size(), 4U);
}

TEST_F(FieldSizes, WholeRequest)
{
    const std::string request = "OPTIONS rtsp://h/live RTSP/1.0\r\nCSeq: 1\r\nX: *\r\n\r\n";
    EXPECT_EQ(Send(Filled(request, 'x')), options);
    const std::string full = Filled(request, 'x').insert(50, "x");
    ASSERT_EQ(full.size(), kRead);
    EXPECT_EQ(Send(full), options);
    // What does not fit is read as a request of its own.
    EXPECT_EQ(Send(full + "x"), options);
    EXPECT_EQ(player.Receive().text, kBadRequest);
    ASSERT_TRUE(player.Send(std::string(kAlmostRead, '\0')));
    EXPECT_EQ(player.Receive().text, kBadRequest);
    EXPECT_EQ(Options("rtsp://h/live"), options);
    player.Close();
    ExpectNothingLeft();
}

} // namespace
