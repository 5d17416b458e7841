#include "tests/support/test_server.h"

#include <gtest/gtest.h>

namespace {

TEST(Options, AnswersWithTheMethods)
{
    KovaTestServer server({"live", 64, false});
    ASSERT_TRUE(server.IsUp());
    KovaRtspTestClient client;
    ASSERT_TRUE(server.Connect(&client));
    EXPECT_EQ(client.Exchange("OPTIONS rtsp://10.0.0.1:554/live RTSP/1.0\r\nCSeq: 1\r\n\r\n").text,
              "RTSP/1.0 200 OK\r\nCSeq: 1\r\n"
              "Public: DESCRIBE,SETUP,TEARDOWN,PLAY,GET_PARAMETER\r\n\r\n");
}

TEST(Options, StartedServer)
{
    KovaTestServer server;
    ASSERT_TRUE(server.IsUp());
    KovaRtspTestClient client;
    ASSERT_TRUE(server.Connect(&client));
    ASSERT_TRUE(server.PushReady());
    EXPECT_EQ(client.Options("live").nStatus, 200);
    EXPECT_NE(client.Describe("live").body, "");
    EXPECT_EQ(client.SetupTcp("live", 97, 0).nStatus, 200);
    EXPECT_EQ(server.Clients(97).size(), 1u);
    EXPECT_EQ(client.Play("live").nStatus, 200);
    EXPECT_EQ(client.Teardown("live").nStatus, 200);
}

} // namespace
