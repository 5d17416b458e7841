#include "classic/rtsp/server_calls.h"
#include "classic/streamer/registries.h"
#include "tests/protocol/protocol_fixture.h"
#include "tests/support/fake_clock.h"

#include <arpa/inet.h>
#include <fcntl.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

const std::string kHead =
    "RTSP/1.0 200 OK\r\nCSeq: 1\r\nServer: Brisklane/1.0.0.1\r\nCache-Control: no-cache\r\n";

class Setup : public ProtocolTest {
protected:
    std::string Udp(const std::string &track, const std::string &ports,
                    const std::string &lines = {})
    {
        return Answer("SETUP rtsp://h/live/" + track + " RTSP/1.0",
                      "Transport: RTP/AVP;unicast;client_port=" + ports + "\r\n" + lines);
    }
    std::string Tcp(const std::string &track, const std::string &channels,
                    const std::string &lines = {})
    {
        return Answer("SETUP rtsp://h/live/" + track + " RTSP/1.0",
                      "Transport: RTP/AVP/TCP;unicast;interleaved=" + channels + "\r\n" + lines);
    }
    /// Id of the only session.
    std::string OnlySession()
    {
        EXPECT_EQ(server.SessionCount(), 1u);
        const KovaList *pList = server.Server()->pSessionList;
        return pList == nullptr ? "" : static_cast<KovaRtspSession *>(pList->data)->szSessionId;
    }
    std::string UdpAnswer(const std::string &clientPorts, unsigned nPort, uint32_t nSsrc,
                          const std::string &session) const
    {
        return kHead + "Transport: RTP/AVP/UDP;unicast;client_port=" + clientPorts +
               ";server_port=" + std::to_string(nPort) + "-" +
               std::to_string(nPort == 0 ? 0 : nPort + 1) + ";ssrc=" + std::to_string(nSsrc) +
               "\r\nSession: " + session + ";timeout=60\r\n\r\n";
    }
    std::string TcpAnswer(const std::string &channels, uint32_t nSsrc,
                          const std::string &session) const
    {
        return kHead +
               "Transport: RTP/AVP/TCP;unicast;destination=127.0.0.1;source=127.0.0.1;"
               "interleaved=" +
               channels + ";ssrc=" + std::to_string(nSsrc) + "\r\nSession: " + session +
               ";timeout=60\r\n\r\n";
    }
    /// The session is known only once the answer is there.
    void ExpectUdp(const std::string &answer, const std::string &clientPorts, unsigned nPort,
                   uint32_t nSsrc)
    {
        EXPECT_EQ(answer, UdpAnswer(clientPorts, nPort, nSsrc, OnlySession()));
    }
    void ExpectTcp(const std::string &answer, const std::string &channels, uint32_t nSsrc)
    {
        EXPECT_EQ(answer, TcpAnswer(channels, nSsrc, OnlySession()));
    }
};

TEST_F(Setup, UdpGetsAPortPairAndASession)
{
    const unsigned nPort = KovaFirstFreePair();
    const std::string answer = Udp("trackID=97", "5000-5001");
    const auto clients = server.Clients(97);
    ASSERT_EQ(clients.size(), 1u);
    const std::string session = OnlySession();
    EXPECT_EQ(answer, UdpAnswer("5000-5001", nPort, server.Ssrc(97), session));
    EXPECT_EQ(session.size(), 11u);
    EXPECT_EQ(session.find_first_not_of("0123456789"), std::string::npos);
    EXPECT_EQ(Printed(), "Client: 5000-5001, Server: " + std::to_string(nPort) + "-" +
                             std::to_string(nPort + 1) +
                             ", Client Socket: " + std::to_string(clients[0].nRtpSocket) + "-" +
                             std::to_string(clients[0].nRtcpSocket) +
                             "\nKovaRtpSenderAddRtpClient, Now Client Count: 0\n");
}

TEST_F(Setup, UdpClientIsMadeFromTheRequest)
{
    const auto sequence = static_cast<uint16_t>(4711);
    KovaList *pSenders = server.Stream()->pSenderList;
    static_cast<KovaRtpSender *>(pSenders->next->data)->nLastSequence = sequence;
    static_cast<KovaRtpSender *>(pSenders->next->data)->nLastTimestamp = 0xFEDCBA98;
    Udp("trackID=97", "5000-5001");
    ASSERT_EQ(server.Clients(96).size(), 0u);
    const auto clients = server.Clients(97);
    ASSERT_EQ(clients.size(), 1u);
    EXPECT_EQ(clients[0].session, OnlySession());
    EXPECT_EQ(clients[0].nState, kClientSetUp);
    EXPECT_EQ(clients[0].nClientRtpPort, 5000);
    EXPECT_EQ(clients[0].nClientRtcpPort, 5001);
    EXPECT_EQ(clients[0].bInterleaved, 0);
    EXPECT_EQ(clients[0].nStartSequence, sequence);
    EXPECT_EQ(clients[0].nStartTimestamp, 0xFEDCBA98);
    EXPECT_EQ(ntohl(clients[0].rtpAddress.sin_addr.s_addr), INADDR_LOOPBACK);
    EXPECT_EQ(ntohs(clients[0].rtpAddress.sin_port), 5000);
    EXPECT_EQ(ntohl(clients[0].rtcpAddress.sin_addr.s_addr), INADDR_LOOPBACK);
    EXPECT_EQ(ntohs(clients[0].rtcpAddress.sin_port), 5001);
    EXPECT_NE(fcntl(clients[0].nRtpSocket, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_NE(fcntl(clients[0].nRtcpSocket, F_GETFL) & O_NONBLOCK, 0);
}

TEST_F(Setup, SecondClientPortIsIgnored)
{
    const unsigned nPort = KovaFirstFreePair();
    ExpectUdp(Udp("trackID=96", "5000-6000"), "5000-5001", nPort, server.Ssrc(96));
}

TEST_F(Setup, PortsWrapAtSixteenBits)
{
    const unsigned nPort = KovaFirstFreePair();
    ExpectUdp(Udp("trackID=96", "65535-65536"), "65535-0", nPort, server.Ssrc(96));
    const unsigned nNext = KovaFirstFreePair();
    ExpectUdp(Udp("trackID=96", "65537-1", "Session: " + OnlySession() + "\r\n"), "1-2", nNext,
              server.Ssrc(96));
}

TEST_F(Setup, InterleavedEchoesTheFirstChannel)
{
    ExpectTcp(Tcp("trackID=97", "4-9"), "4-5", server.Ssrc(97));
    EXPECT_EQ(Printed(), "KovaRtpSenderAddRtpClient, Now Client Count: 0\n");
    const auto clients = server.Clients(97);
    ASSERT_EQ(clients.size(), 1u);
    EXPECT_NE(clients[0].bInterleaved, 0);
    EXPECT_EQ(clients[0].nTcpSocket, server.Handler(client)->nSocket.load());
    EXPECT_EQ(clients[0].nRtpChannel, 4);
    EXPECT_EQ(clients[0].nRtcpChannel, 5);
    EXPECT_EQ(clients[0].nRtpSocket, 0);
    EXPECT_EQ(clients[0].nRtcpSocket, 0);
}

TEST_F(Setup, TwoTracksShareASession)
{
    Udp("trackID=96", "5000-5001");
    const std::string session = OnlySession();
    const unsigned nPort = KovaFirstFreePair();
    EXPECT_EQ(Udp("trackID=97", "5002-5003", "Session: " + session + "\r\n"),
              UdpAnswer("5002-5003", nPort, server.Ssrc(97), session));
    EXPECT_EQ(OnlySession(), session);
    ASSERT_EQ(server.Clients(96).size(), 1u);
    ASSERT_EQ(server.Clients(97).size(), 1u);
    EXPECT_EQ(server.Clients(97)[0].session, session);
}

TEST_F(Setup, SessionLastsSixtySecondsAndIsNotRefreshedBySetup)
{
    KovaFakeClock clock;
    clock.Fix(1795169472LL * 1000000);
    Tcp("trackID=96", "0-1");
    EXPECT_EQ(server.Expiry(OnlySession()), 1795169472 + 60);
    clock.Advance(10 * 1000000);
    Tcp("trackID=97", "2-3", "Session: " + OnlySession() + "\r\n");
    EXPECT_EQ(server.Expiry(OnlySession()), 1795169472 + 60);
}

TEST_F(Setup, TrackIdsOfOneOrFiveDigitsAreNotFound)
{
    for (const char *szTrack : {"trackID=1", "trackID=00097", "trackID=", "track"}) {
        const int nBefore = KovaOpenDescriptors();
        const unsigned nPort = KovaFirstFreePair();
        const std::string answer = Udp(szTrack, "5000-5001");
        const std::string session = OnlySession();
        EXPECT_EQ(answer, UdpAnswer("5000-5001", nPort, 0, session)) << szTrack;
        EXPECT_EQ(Printed().substr(0, 40), "Not find track id !!!\nGet SSRC fail !!!\n") << szTrack;
        EXPECT_EQ(Printed().find("Now Client Count"), std::string::npos);
        EXPECT_TRUE(KovaWaitUntil(2000, [&] { return KovaOpenDescriptors() == nBefore; }));
        EXPECT_EQ(KovaFirstFreePair(), nPort);
        EXPECT_EQ(KovaRtspServerRemoveSessionBySessionId(server.Server(), session.c_str()), 0);
    }
}

TEST_F(Setup, TrackIdsOfTwoToFourDigitsAreRead)
{
    ExpectTcp(Tcp("trackID=0097", "0-1"), "0-1", server.Ssrc(97));
    ExpectTcp(Tcp("trackID=097", "0-1", "Session: " + OnlySession() + "\r\n"), "0-1",
              server.Ssrc(97));
    EXPECT_EQ(server.Clients(97).size(), 2u);
}

TEST_F(Setup, UnknownTrackGetsASessionButNoClient)
{
    ExpectTcp(Tcp("trackID=98", "0-1"), "0-1", 0);
    EXPECT_EQ(Printed(), "Get SSRC fail !!!\n");
    EXPECT_EQ(server.Clients(96).size() + server.Clients(97).size(), 0u);
}

TEST_F(Setup, StreamWithoutANameTellsNoSsrc)
{
    KovaRtspStreamer *pStream = server.AddStream("");
    ASSERT_NE(pStream, nullptr);
    ASSERT_NE(KovaRtspStreamerGetRtpPackerByPayloadId(pStream, 97)->nSsrc, 0U);
    const std::string answer = Answer("SETUP rtsp://h/trackID=97 RTSP/1.0",
                                      "Transport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n");
    EXPECT_NE(answer.find(";ssrc=0\r\n"), std::string::npos) << answer;
    EXPECT_EQ(Printed().substr(0, 18), "Get SSRC fail !!!\n");
}

TEST_F(Setup, TrackPrefixIsSkippedWithoutALook)
{
    ExpectTcp(Tcp("anything97", "0-1"), "0-1", server.Ssrc(97));
}

TEST_F(Setup, MissingTrackSegmentNamesAnotherStream)
{
    EXPECT_EQ(Answer("SETUP rtsp://h/live RTSP/1.0", "Transport: interleaved=0-1\r\n"), k404);
    EXPECT_EQ(Printed(), "Not find track id !!!\nGet SSRC fail !!!\nParse Track Id or Uri fail\n");
}

TEST_F(Setup, WithoutTransportIsRefused)
{
    EXPECT_EQ(Answer("SETUP rtsp://h/live/trackID=97 RTSP/1.0"), k400);
    EXPECT_EQ(Printed(), "Parse Client Port fail\n");
    EXPECT_EQ(server.SessionCount(), 0u);
}

TEST_F(Setup, InterleavedWithoutEqualsOrDashIsRefusedWithoutAMessage)
{
    for (const char *szLine : {"Transport: interleaved\r\n", "Transport: interleaved=0\r\n",
                               "Transport: interleaved 0-1\r\n"}) {
        EXPECT_EQ(Answer("SETUP rtsp://h/live/trackID=97 RTSP/1.0", szLine), k400) << szLine;
        EXPECT_EQ(Printed(), "") << szLine;
    }
    EXPECT_EQ(server.SessionCount(), 0u);
}

TEST_F(Setup, ClientPortWithoutDashLeavesTheUdpFieldsAtZero)
{
    const int nBefore = KovaOpenDescriptors();
    ExpectUdp(Answer("SETUP rtsp://h/live/trackID=97 RTSP/1.0", "Transport: client_port=5000\r\n"),
              "0-0", 0, server.Ssrc(97));
    ASSERT_EQ(server.Clients(97).size(), 1u);
    EXPECT_EQ(server.Clients(97)[0].nRtpSocket, 0);
    EXPECT_EQ(KovaOpenDescriptors(), nBefore);
}

TEST_F(Setup, ClientPortWinsOverInterleaved)
{
    const unsigned nPort = KovaFirstFreePair();
    ExpectUdp(Answer("SETUP rtsp://h/live/trackID=97 RTSP/1.0",
                     "Transport: interleaved=0-1;client_port=5000-5001\r\n"),
              "5000-5001", nPort, server.Ssrc(97));
}

TEST_F(Setup, NumbersThatDoNotFitTheirBufferAreRefused)
{
    EXPECT_EQ(Udp("trackID=97", "050000-050001"), k400);
    EXPECT_EQ(Tcp("trackID=97", "000000-1"), k400);
    EXPECT_EQ(server.SessionCount(), 0u);
    ExpectTcp(Tcp("trackID=97", "00007-1"), "7-8", server.Ssrc(97));
}

TEST_F(Setup, UnknownSessionIsRefused)
{
    EXPECT_EQ(Tcp("trackID=97", "0-1", "Session: 12345678901\r\n"), k454);
    EXPECT_EQ(Printed(), "Session Id: 12345678901\n");
    EXPECT_EQ(server.SessionCount(), 0u);
    EXPECT_EQ(server.Clients(97).size(), 0u);
}

TEST_F(Setup, PlayersOfOneSecondGetDifferentIds)
{
    KovaFakeClock clock;
    clock.Fix(1795169472LL * 1000000);
    std::vector<std::string> ids;
    for (int i = 0; i < 200; i++) {
        KovaRtspTestClient player;
        ASSERT_TRUE(server.Connect(&player));
        ASSERT_EQ(player.SetupTcp("live", 97, 0).nStatus, 200);
        ids.push_back(player.Session());
        EXPECT_NE(server.Expiry(ids.back()), 0);
    }
    std::sort(ids.begin(), ids.end());
    EXPECT_EQ(std::unique(ids.begin(), ids.end()), ids.end());
    EXPECT_EQ(server.SessionCount(), 200u);
}

} // namespace
