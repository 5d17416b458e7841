#include "tests/support/live_client.h"
#include "tests/support/sockets.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <thread>

// The player that the other tests of the live engine use, against answers that are written here.

namespace {

using namespace std::string_literals;

/// Accepts one connection and answers each request, whatever it is, with the next text.
class Scripted {
public:
    explicit Scripted(std::vector<std::string> answers)
        : m_nListen(KovaListen()), m_thread([this, answers = std::move(answers)] { Run(answers); })
    {}
    ~Scripted()
    {
        m_thread.join();
        close(m_nListen);
    }
    Scripted(const Scripted &) = delete;
    Scripted &operator=(const Scripted &) = delete;
    uint16_t Port() const
    {
        return KovaPortOf(m_nListen);
    }

private:
    void Run(const std::vector<std::string> &answers) const
    {
        if (!KovaWaitReadable(m_nListen, kLiveWaitMs))
            return;
        const int nSocket = accept(m_nListen, nullptr, nullptr);
        for (const std::string &answer : answers) {
            std::string got;
            char bytes[4096];
            while (got.find("\r\n\r\n") == std::string::npos) {
                if (!KovaWaitReadable(nSocket, kLiveWaitMs))
                    break;
                const ssize_t nGot = recv(nSocket, bytes, sizeof(bytes), 0);
                if (nGot <= 0)
                    break;
                got.append(bytes, static_cast<size_t>(nGot));
            }
            if (send(nSocket, answer.data(), answer.size(), MSG_NOSIGNAL) < 0)
                break;
        }
        close(nSocket);
    }
    int m_nListen;
    std::thread m_thread;
};

std::string Rtp(uint8_t nSequence, const std::string &payload)
{
    return "\x80\x60\0"s + static_cast<char>(nSequence) + "\0\0\0\x09\0\0\0\x0A"s + payload;
}

} // namespace

TEST(LiveClient, ReadsAnswersAndFramesInAnyMixture)
{
    Scripted server({"RTSP/1.0 200 OK\r\ncseq: 1\r\nSession: 77;timeout=60\r\n"
                     "Transport: RTP/AVP/TCP;interleaved=0-1;ssrc=0000000A\r\n\r\n",
                     KovaInterleaved(0, Rtp(1, "one")) + KovaInterleaved(3, "report") +
                         "RTSP/1.0 200 OK\r\nCSeq: 2\r\nContent-Length: 2\r\n\r\nok" +
                         KovaInterleaved(0, Rtp(2, "two"))});
    KovaLiveClient client;
    ASSERT_TRUE(client.Connect(server.Port()));
    const KovaLiveAnswer setup = client.SetupTcp("cam", 1);
    EXPECT_EQ(setup.nStatus, 200) << setup.text;
    EXPECT_EQ(setup.Transport("ssrc"), "0000000A");
    EXPECT_EQ(client.Session(), "77");
    const KovaLiveAnswer play = client.Play("cam");
    EXPECT_EQ(play.nStatus, 200) << play.text;
    EXPECT_EQ(play.reason, "OK");
    EXPECT_EQ(play.body, "ok");
    std::string report;
    EXPECT_TRUE(client.NextRtcp(2, &report));
    EXPECT_EQ(report, "report");
    KovaLiveRtp packet;
    ASSERT_TRUE(client.NextRtp(1, &packet));
    EXPECT_EQ(packet.payload, "one");
    ASSERT_TRUE(client.NextRtp(1, &packet));
    EXPECT_EQ(packet.payload, "two");
    EXPECT_EQ(packet.header.nSequence, 2);
    EXPECT_TRUE(client.WaitClosed());
    EXPECT_FALSE(client.NextRtp(1, &packet, 10));
}

TEST(LiveClient, ReceivesOverUdp)
{
    KovaUdpPair server;
    Scripted control({"RTSP/1.0 200 OK\r\nCSeq: 1\r\nSession: 1\r\nTransport: RTP/AVP;unicast;"
                      "server_port=" +
                      std::to_string(server.RtpPort()) + "-" + std::to_string(server.RtcpPort()) +
                      "\r\n\r\n"});
    KovaLiveClient client;
    ASSERT_TRUE(client.Connect(control.Port()));
    ASSERT_EQ(client.SetupUdp("cam", 2).nStatus, 200);
    ASSERT_TRUE(server.SendRtp(client.Ports(2).RtpPort(), Rtp(5, "five")));
    KovaLiveRtp packet;
    ASSERT_TRUE(client.NextRtp(2, &packet));
    EXPECT_EQ(packet.payload, "five");
    ASSERT_TRUE(client.SendRtcp(2, "report"));
    std::string report;
    ASSERT_TRUE(server.ReceiveRtcp(&report, kLiveWaitMs));
    EXPECT_EQ(report, "report");
}

TEST(LiveClient, RefusesAnswersThatAreNotExact)
{
    for (const char *szText :
         {"RTSP/1.0 200 OK\nCSeq: 1\n\n", "RTSP/1.0 200 OK\r\nCSeq:1\r\n\r\n",
          "RTSP/1.0 20 OK\r\n\r\n", "RTSP/1.0 200\r\n\r\n", "HTTP/1.0 200 OK\r\n\r\n",
          "RTSP/1.0 200 OK\r\nCSeq: 1\r\n", "RTSP/1.0 200 OK\r\nA: b\nc: d\r\n\r\n",
          "RTSP/1.0 200 OK\r\nCSeq: 1\r\n\r\nbody", ""})
        EXPECT_EQ(KovaReadLiveAnswer(szText).nStatus, -1) << szText;
    Scripted server({"RTSP/1.0 200 OK\r\nCSeq: 2\r\n\r\n"});
    KovaLiveClient client;
    ASSERT_TRUE(client.Connect(server.Port()));
    EXPECT_EQ(client.Options().nStatus, -1);
}
