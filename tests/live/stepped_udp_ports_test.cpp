#include "live/engine/udp_ports.h"
#include "tests/live/stepped_server.h"
#include "tests/support/sockets.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

// Which ports a server takes of the host's range.

namespace {

/// What a SETUP is answered with while one port is taken, and its ports.
KovaLiveAnswer AnswerOf(uint16_t nFirst, uint16_t nLast, uint16_t nTaken)
{
    KovaSteppedServer server{1, [&](KovaLiveConfig *pConfig) {
                                 pConfig->udp_first = nFirst;
                                 pConfig->udp_last = nLast;
                             }};
    KovaLiveHost::AddVideo(server.AddStream("cam"));
    const int nSocket = KovaBind(SOCK_DGRAM, nTaken);
    EXPECT_GE(nSocket, 0);
    KovaLiveClient client;
    KovaLiveAnswer answer;
    server.Serve([&] {
        EXPECT_TRUE(client.Connect(server.Port()));
        answer = client.SetupUdp("cam", 1);
    });
    close(nSocket);
    return answer;
}

} // namespace

TEST(SteppedUdpPorts, BothLieInTheRange)
{
    EXPECT_EQ(AnswerOf(40002, 40004, 40003).nStatus, 503) << "40005 is not in it";
    EXPECT_EQ(AnswerOf(40002, 40005, 40003).Transport("server_port"), "40004-40005");
    EXPECT_EQ(AnswerOf(40002, 40005, 40002).Transport("server_port"), "40004-40005");
    EXPECT_EQ(AnswerOf(40002, 40005, 40004).Transport("server_port"), "40002-40003");
}

TEST(SteppedUdpPorts, MediaLeavesFromTheAddressThatThePlayerCameTo)
{
    KovaSteppedServer server{1, [](KovaLiveConfig *pConfig) { pConfig->address = nullptr; }};
    KovaLiveHost::AddVideo(server.AddStream("cam"));
    KovaLiveClient client;
    ASSERT_TRUE(server.Play(&client, true));
    KovaLiveClient other;
    ASSERT_TRUE(other.Connect(server.Port()));
    const int nSocket = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = KovaLoopback(server.Port());
    inet_pton(AF_INET, "127.0.0.2", &address.sin_addr);
    ASSERT_EQ(connect(nSocket, KovaPlain(address), sizeof(address)), 0);
    other.Rtsp().Adopt(nSocket);
    KovaLiveAnswer answer;
    server.Serve([&] { answer = other.SetupUdp("cam", 1); });
    EXPECT_EQ(answer.Transport("source"), "127.0.0.2");
    const KovaUdpPorts *pPorts = server.Loop()->pSessions->pPorts;
    EXPECT_EQ(pPorts->nAddress, address.sin_addr.s_addr);
    EXPECT_NE(pPorts, server.Loop()->pSessions->pNext->pPorts);
    ASSERT_NE(server.Loop()->pUdpPorts->pNext, nullptr);
    // A third one finds what is there.
    KovaLiveClient third;
    ASSERT_TRUE(server.Play(&third, true));
    EXPECT_EQ(server.Loop()->pSessions->pPorts->nAddress, htonl(INADDR_LOOPBACK));
    EXPECT_EQ(server.Loop()->pUdpPorts->pNext->pNext, nullptr);
}
