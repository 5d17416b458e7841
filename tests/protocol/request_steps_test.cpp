#include "classic/rtsp/request_handler.h"
#include "foundation/log.h"
#include "tests/protocol/protocol_fixture.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <algorithm>

namespace {

class RequestSteps : public ProtocolTest {
protected:
    void TearDown() override
    {
        RTSP_SetLogLevel(2);
    }
    void Set(const char *szRequest, const std::string &response, const std::string &printed)
    {
        capture.Clear();
        EXPECT_EQ(client.Exchange(szRequest).text, response) << szRequest;
        EXPECT_EQ(Printed(), printed) << szRequest;
    }
};

TEST_F(RequestSteps, TheFirstFaultDecides)
{
    Set("pause\n", k400, "Parse Request fail\n");
    Set("pause http://h/x\n", k400, "Not Support Request Command\n");
    Set("SETUP http://h/x/trackID=1 RTSP/1.0\n", k400, "Parse HostPort fail\n");
    Set("SETUP rtsp://h/nope/trackID=1 RTSP/1.0\n\n", k404,
        "Not find track id !!!\nCan't find Uri !!!\n");
    Set("SETUP rtsp://h/nope/trackID=97 RTSP/1.0\n\n", k404, "Can't find Uri !!!\n");
    Set("SETUP rtsp://h/live/trackID=97 RTSP/1.0\nSession: 1\n\n", k400, "Parse CSeq fail\n");
    Set("SETUP rtsp://h/live/trackID=97 RTSP/1.0\nCSeq: 1\nSession: 1\n\n", k454,
        "Session Id: 1\n");
    Set("SETUP rtsp://h/live/trackID=97 RTSP/1.0\nCSeq: 1\n\n", k400, "Parse Client Port fail\n");
    server.Server()->nMaxClient = 0;
    Set("SETUP rtsp://h/live/trackID=97 RTSP/1.0\nCSeq: 1\n\n", k400, "Parse Client Port fail\n");
    Set("SETUP rtsp://h/live/trackID=97 RTSP/1.0\nCSeq: 1\ninterleaved=0-1\n\n", k403, "");
    Set("SETUP rtsp://h/live/trackID=97 RTSP/1.0\nCSeq: 1\nSession: 1\ninterleaved=0-1\n\n", k454,
        "Session Id: 1\n");
}

TEST_F(RequestSteps, LineEndsMayBeBareLineFeeds)
{
    EXPECT_EQ(client.Exchange("OPTIONS rtsp://h/live RTSP/1.0\nCSeq: 1\n\n").text, kOptionsAnswer);
}

TEST_F(RequestSteps, MethodMayEndWithATab)
{
    EXPECT_EQ(Answer("OPTIONS\t \trtsp://h/live RTSP/1.0"), kOptionsAnswer);
}

TEST_F(RequestSteps, SchemeInAnyCase)
{
    EXPECT_EQ(Answer("OPTIONS RTSP://10.0.0.1/live RTSP/1.0"), kOptionsAnswer);
    EXPECT_EQ(Answer("OPTIONS rTsP://10.0.0.1/live RTSP/1.0"), kOptionsAnswer);
}

TEST_F(RequestSteps, SingleSlashHasNoHost)
{
    EXPECT_EQ(Answer("OPTIONS rtsp:/live RTSP/1.0"), kOptionsAnswer);
}

TEST_F(RequestSteps, SchemeIsLookedForBeyondTheRequestLine)
{
    EXPECT_EQ(client.Exchange("OPTIONS *\r\nX: rtsp://h/live RTSP/1.0\r\nCSeq: 1\r\n\r\n").text,
              kOptionsAnswer);
}

TEST_F(RequestSteps, LongHostIsCutAndTheRequestGoesOn)
{
    EXPECT_EQ(Answer("OPTIONS rtsp://" + std::string(21, 'h') + "/live RTSP/1.0"), kOptionsAnswer);
    EXPECT_EQ(Answer("OPTIONS rtsp://" + std::string(22, 'h') + "/live RTSP/1.0"), kOptionsAnswer);
    EXPECT_EQ(Answer("OPTIONS rtsp://" + std::string(5000, 'h') + "/live RTSP/1.0"),
              kOptionsAnswer);
}

TEST_F(RequestSteps, SeveralBlanksBehindTheUri)
{
    EXPECT_EQ(Answer("OPTIONS rtsp://h/live    RTSP/1.0"), kOptionsAnswer);
}

TEST_F(RequestSteps, VersionIsRecordedOnly)
{
    for (const char *szVersion : {"RTSP/2.0", "RTSP/9", "RTSP/"})
        EXPECT_EQ(Answer(std::string("OPTIONS rtsp://h/live ") + szVersion), kOptionsAnswer);
}

TEST_F(RequestSteps, StreamOfSeveralSegments)
{
    ASSERT_NE(server.AddStream("a/b/c"), nullptr);
    EXPECT_EQ(Answer("OPTIONS rtsp://h/a/b/c RTSP/1.0"), kOptionsAnswer);
    EXPECT_EQ(client.SetupTcp("a/b/c", 97, 0).nStatus, 200);
}

TEST_F(RequestSteps, CSeqIsEchoedAsItStands)
{
    const std::string tail = "\r\nPublic: DESCRIBE,SETUP,TEARDOWN,PLAY,GET_PARAMETER\r\n\r\n";
    for (const char *szValue : {"1234567", "abc", "1 2", ""})
        EXPECT_EQ(client
                      .Exchange(std::string("OPTIONS rtsp://h/live RTSP/1.0\r\nCSeq: \t ") +
                                szValue + "\r\n\r\n")
                      .text,
                  "RTSP/1.0 200 OK\r\nCSeq: " + std::string(szValue) + tail);
}

TEST_F(RequestSteps, SessionIsFoundAnywhere)
{
    ASSERT_EQ(client.SetupTcp("live", 97, 0).nStatus, 200);
    EXPECT_EQ(Answer("OPTIONS rtsp://h/live RTSP/1.0", "X-Session " + client.Session() + "\r\n"),
              kOptionsAnswer);
    EXPECT_EQ(Printed(), "Session Id: " + client.Session() + "\n");
    EXPECT_EQ(Answer("OPTIONS rtsp://h/live RTSP/1.0", "session: 1\r\n"), kOptionsAnswer);
    EXPECT_EQ(Printed(), "");
}

TEST_F(RequestSteps, SessionLineThatDoesNotEndCountsForNothing)
{
    EXPECT_EQ(client.Exchange("OPTIONS rtsp://h/live RTSP/1.0\nCSeq: 1\nSession: 99").text,
              kOptionsAnswer);
}

TEST_F(RequestSteps, MethodsAreTestedInAFixedOrder)
{
    EXPECT_EQ(Answer("TEARDOWNPLAYOPTIONS rtsp://h/live RTSP/1.0"), kOptionsAnswer);
    EXPECT_NE(Answer("PLAYDESCRIBE rtsp://h/live RTSP/1.0").find("Content-Length: 0\r\n"),
              std::string::npos);
    EXPECT_NE(Answer("TEARDOWNGET_PARAMETER rtsp://h/live RTSP/1.0").find("Session: ;timeout=60"),
              std::string::npos);
    // A method that contains SETUP loses its track segment, whatever it is taken for.
    EXPECT_EQ(Answer("OPTIONSSETUP rtsp://h/live/trackID=97 RTSP/1.0", "interleaved=0-1\r\n"),
              kOptionsAnswer);
    EXPECT_EQ(server.SessionCount(), 0u);
}

TEST_F(RequestSteps, ClientPortOpensSocketsForEveryMethodAndRefusal)
{
    const int nBefore = KovaOpenDescriptors();
    const std::string transport = "Transport: client_port=5000-5001\r\n";
    for (const char *szMethod : {"OPTIONS", "DESCRIBE", "PLAY", "GET_PARAMETER", "TEARDOWN"}) {
        EXPECT_EQ(
            Answer(std::string(szMethod) + " rtsp://h/live RTSP/1.0", transport).substr(0, 15),
            "RTSP/1.0 200 OK");
        EXPECT_NE(Printed().find("Client: 5000-5001, Server: "), std::string::npos) << szMethod;
    }
    server.Server()->nMaxClient = 0;
    EXPECT_EQ(Answer("SETUP rtsp://h/live/trackID=97 RTSP/1.0", transport), k403);
    server.Server()->nMaxClient = 10;
    EXPECT_EQ(Answer("SETUP rtsp://h/live/trackID=99 RTSP/1.0", transport).substr(0, 15),
              "RTSP/1.0 200 OK");
    EXPECT_EQ(Answer("OPTIONS rtsp://h/live RTSP/1.0"), kOptionsAnswer);
    EXPECT_EQ(KovaOpenDescriptors(), nBefore);
}

/// Counted the moment that the answer is there, again and again: a late close is seen now and then
/// only. Without opening anything itself, which would get the numbers of what the server closes.
TEST_F(RequestSteps, SocketsOfASetupThatGotNoClientAreClosedBeforeTheAnswer)
{
    const auto descriptors = [] {
        int nCount = 0;
        for (int nDescriptor = 0; nDescriptor < 100; nDescriptor++)
            nCount += fcntl(nDescriptor, F_GETFD) != -1;
        return nCount;
    };
    constexpr char kRequest[] = "SETUP rtsp://h/live/trackID=99 RTSP/1.0\r\nCSeq: 1\r\n"
                                "Transport: client_port=5000-5001\r\n\r\n";
    const int nBefore = descriptors();
    for (const int32_t nMaxClient : {10, 0}) { // answered, refused
        server.Server()->nMaxClient = nMaxClient;
        for (int i = 0; i < 300; i++) {
            char szAnswer[512];
            ASSERT_EQ(send(client.Socket(), kRequest, sizeof(kRequest) - 1, 0),
                      ssize_t{sizeof(kRequest) - 1});
            ASSERT_GT(recv(client.Socket(), szAnswer, sizeof(szAnswer), 0), 0);
            ASSERT_EQ(descriptors(), nBefore) << nMaxClient << " " << i;
        }
    }
}

TEST_F(RequestSteps, ClientPortThatDoesNotFitIsRefusedForEveryMethod)
{
    EXPECT_EQ(Answer("OPTIONS rtsp://h/live RTSP/1.0", "client_port=500000-1\r\n"), k400);
    EXPECT_EQ(Printed(), "");
}

TEST_F(RequestSteps, ReceivedRequestIsLoggedAtLevelFour)
{
    RTSP_SetLogLevel(4);
    EXPECT_EQ(client.Exchange("OPTIONS rtsp://h/%n%s RTSP/1.0\r\nCSeq: 1\r\n\r\n").text, k404);
    EXPECT_NE(Printed().find(" pHandleRequestProc, Recv: OPTIONS rtsp://h/%n%s RTSP/1.0\r\n"
                             "CSeq: 1\r\n\r\n, Len: 43\n\n"),
              std::string::npos);
}

TEST_F(RequestSteps, NullArgumentsAreRefused)
{
    const uint8_t bytes[] = {'x'};
    KovaRtspServerHandler *pHandler = server.Handler(client);
    EXPECT_EQ(HandleRtspRequest(nullptr, bytes, 1), 2);
    EXPECT_EQ(HandleRtspRequest(pHandler, nullptr, 1), 2);
    EXPECT_TRUE(client.IsSilent(50));
}

} // namespace
