#include "classic/rtsp/server_calls.h"
#include "tests/protocol/protocol_fixture.h"
#include "tests/support/fake_clock.h"

#include "foundation/log.h"

#include <algorithm>

namespace {

constexpr int64_t kSecond = 1000000;
constexpr int32_t kNow = 1795169472;

class GetParameter : public ProtocolTest {
protected:
    void TearDown() override
    {
        RTSP_SetLogLevel(2);
    }
    static std::string Expected(const std::string &session)
    {
        return "RTSP/1.0 200 OK\r\nCSeq: 1\r\nCache-Control: no-cache\r\nSession: " + session +
               ";timeout=60\r\n\r\n";
    }
    std::string SessionLine() const
    {
        return "Session: " + client.Session() + "\r\n";
    }
};

TEST_F(GetParameter, MovesTheExpiryToNinetySecondsFromNow)
{
    KovaFakeClock clock;
    clock.Fix(kNow * kSecond);
    ASSERT_EQ(client.SetupTcp("live", 96, 0).nStatus, 200);
    EXPECT_EQ(server.Expiry(client.Session()), kNow + 60);
    clock.Advance(25 * kSecond);
    EXPECT_EQ(Answer("GET_PARAMETER rtsp://h/live RTSP/1.0", SessionLine()),
              Expected(client.Session()));
    EXPECT_EQ(server.Expiry(client.Session()), kNow + 25 + 60 + 30);
    EXPECT_EQ(Printed(), "Session Id: " + client.Session() + "\n");
}

TEST_F(GetParameter, OtherMethodsDoNotRefresh)
{
    KovaFakeClock clock;
    clock.Fix(kNow * kSecond);
    ASSERT_EQ(client.SetupTcp("live", 96, 0).nStatus, 200);
    clock.Advance(5 * kSecond);
    for (const char *szMethod : {"OPTIONS", "DESCRIBE", "PLAY"}) {
        Answer(std::string(szMethod) + " rtsp://h/live RTSP/1.0", SessionLine());
        EXPECT_EQ(server.Expiry(client.Session()), kNow + 60) << szMethod;
    }
}

TEST_F(GetParameter, WithoutASessionAnswersWithAnEmptyId)
{
    EXPECT_EQ(Answer("GET_PARAMETER rtsp://h/live RTSP/1.0"), Expected(""));
}

TEST_F(GetParameter, UnknownSessionIsRefused)
{
    EXPECT_EQ(Answer("GET_PARAMETER rtsp://h/live RTSP/1.0", "Session: 00000000000\r\n"), k454);
}

TEST_F(GetParameter, SessionThatIsOnlyTheBeginningOfAnIdIsNotMeant)
{
    ASSERT_EQ(client.SetupTcp("live", 96, 0).nStatus, 200);
    const std::string lines = "Session: " + client.Session();
    EXPECT_EQ(Answer("GET_PARAMETER rtsp://h/live RTSP/1.0", lines + "0\r\n"), k454);
    EXPECT_EQ(Answer("GET_PARAMETER rtsp://h/live RTSP/1.0", lines + "00\r\n"), k454);
}

TEST_F(GetParameter, SaysSoAtLevelFour)
{
    ASSERT_EQ(client.SetupTcp("live", 96, 0).nStatus, 200);
    RTSP_SetLogLevel(4);
    Answer("GET_PARAMETER rtsp://h/live RTSP/1.0", SessionLine());
    const auto lines = capture.Messages();
    const std::string expected = "HandleRtspRequest, UpdateSession: " + client.Session();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), expected), 1);
}

TEST_F(GetParameter, ControlBytesOfTheIdArePrintedAsQuestionMarksAndKept)
{
    char szId[kSessionIdSize] = "1\n2\x1b[m\x7f";
    const std::string id = szId;
    KovaRtspSession *pSession = KovaRtspSessionCreate(szId, 60);
    ASSERT_EQ(KovaRtspServerAddSession(server.Server(), pSession), KOVA_OK);
    RTSP_SetLogLevel(4);
    EXPECT_EQ(Answer("GET_PARAMETER rtsp://h/live RTSP/1.0", "Session: " + id + "\r\n"),
              Expected(id));
    EXPECT_TRUE(capture.WaitFor("HandleRtspRequest, UpdateSession: 1?2?[m?\n", 5000));
    // The dump of what came shows the bytes as they are.
    const std::string printed = Printed();
    EXPECT_NE(printed.find("\nSession Id: 1?2?[m?\n"), std::string::npos);
    EXPECT_NE(printed.find("\r\nSession: " + id + "\r\n"), std::string::npos);
}

TEST_F(GetParameter, BodyBehindTheHeadIsIgnored)
{
    EXPECT_EQ(client
                  .Exchange("GET_PARAMETER rtsp://h/live RTSP/1.0\r\nCSeq: 1\r\n"
                            "Content-Length: 6\r\n\r\nping\r\n")
                  .text,
              Expected(""));
}

} // namespace
