#include "tests/protocol/protocol_fixture.h"

#include <fcntl.h>
#include <sys/socket.h>

namespace {

using Options = ProtocolTest;

TEST_F(Options, AnswersWithTheMethodsOnly)
{
    EXPECT_EQ(Answer("OPTIONS rtsp://10.0.0.1:554/live RTSP/1.0"), kOptionsAnswer);
    EXPECT_EQ(Printed(), "");
}

TEST_F(Options, UnregisteredStreamIsNotFound)
{
    EXPECT_EQ(Answer("OPTIONS rtsp://10.0.0.1:554/dead RTSP/1.0"), k404);
    EXPECT_EQ(Printed(), "Can't find Uri !!!\n");
}

TEST_F(Options, NoPathIsNotFound)
{
    EXPECT_EQ(Answer("OPTIONS rtsp://10.0.0.1:554/ RTSP/1.0"), k404);
    EXPECT_EQ(Printed(), "Parse Track Id or Uri fail\n");
    EXPECT_EQ(Answer("OPTIONS rtsp://10.0.0.1:554 RTSP/1.0"), k404);
    EXPECT_EQ(Printed(), "Parse Track Id or Uri fail\n");
    EXPECT_EQ(Answer("OPTIONS * RTSP/1.0"), k400);
    EXPECT_EQ(Printed(), "Parse HostPort fail\n");
}

/// Ports are opened for whatever method names them, and are free again with the answer. Counted the
/// moment that the answer is there, again and again: a late close is seen now and then only.
TEST_F(Options, ClosesTheSocketsOfAClientPortBeforeItAnswers)
{
    constexpr char kRequest[] = "OPTIONS rtsp://10.0.0.1:554/live RTSP/1.0\r\nCSeq: 1\r\n"
                                "Transport: client_port=5000-5001\r\n\r\n";
    const int nSocket = client.Socket();
    // Without opening anything itself, which would get the numbers of what the server closes.
    const auto descriptors = [] {
        int nCount = 0;
        for (int nDescriptor = 0; nDescriptor < 100; nDescriptor++)
            nCount += fcntl(nDescriptor, F_GETFD) != -1;
        return nCount;
    };
    const int nBefore = descriptors();
    for (int i = 0; i < 500; i++) {
        char szAnswer[512];
        ASSERT_EQ(send(nSocket, kRequest, sizeof(kRequest) - 1, 0), ssize_t{sizeof(kRequest) - 1});
        ASSERT_GT(recv(nSocket, szAnswer, sizeof(szAnswer), 0), 0);
        ASSERT_EQ(descriptors(), nBefore) << i;
    }
}

TEST_F(Options, PathOfOneByteIsNoPath)
{
    ASSERT_NE(server.AddStream("x"), nullptr);
    ASSERT_NE(server.AddStream("xy"), nullptr);
    EXPECT_EQ(Answer("OPTIONS rtsp://h/x RTSP/1.0"), k404);
    EXPECT_EQ(Printed(), "Parse Track Id or Uri fail\n");
    EXPECT_EQ(Answer("OPTIONS rtsp://h/xy RTSP/1.0"), kOptionsAnswer);
}

TEST_F(Options, LetsTheDescriptionCarryTheConnection)
{
    KovaRtspSdpGenerator *pGenerator = server.Stream()->pSdpGenerator;
    EXPECT_STREQ(pGenerator->szServerIp, "");
    EXPECT_EQ(pGenerator->nServerPort, 0);
    EXPECT_EQ(Answer("DESCRIBE rtsp://h/live RTSP/1.0").substr(0, 15), "RTSP/1.0 200 OK");
    EXPECT_STREQ(pGenerator->szServerIp, "");
    EXPECT_EQ(Answer("OPTIONS rtsp://10.0.0.1:554/live RTSP/1.0"), kOptionsAnswer);
    EXPECT_STREQ(pGenerator->szServerIp, "127.0.0.1");
    EXPECT_EQ(pGenerator->nServerPort, server.Port());
    EXPECT_STREQ(pGenerator->szClientIp, "127.0.0.1");
}

TEST_F(Options, NeitherRefreshesNorCreatesSessions)
{
    EXPECT_EQ(Answer("OPTIONS rtsp://h/live RTSP/1.0"), kOptionsAnswer);
    EXPECT_EQ(server.SessionCount(), 0u);
    ASSERT_EQ(client.SetupTcp("live", 97, 0).nStatus, 200);
    const int32_t tExpire = server.Expiry(client.Session());
    EXPECT_EQ(Answer("OPTIONS rtsp://h/live RTSP/1.0", "Session: " + client.Session() + "\r\n"),
              kOptionsAnswer);
    EXPECT_EQ(server.Expiry(client.Session()), tExpire);
}

} // namespace
