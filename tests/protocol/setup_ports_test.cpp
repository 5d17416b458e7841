#include "classic/server/session_registry.h"
#include "tests/protocol/protocol_fixture.h"
#include "tests/support/c_calls.h"

#include <atomic>
#include <string>

#include <fcntl.h>

/// The ports that a SETUP has opened and no client takes.
namespace {

class PortsOfASetup : public ProtocolTest {
protected:
    std::string Udp(int nTrack, const std::string &lines = {})
    {
        return Answer("SETUP rtsp://h/live/trackID=" + std::to_string(nTrack) + " RTSP/1.0",
                      "Transport: RTP/AVP;unicast;client_port=5000-5001\r\n" + lines);
    }
};

/// As many as are open the moment that an answer is sent: what is closed afterwards is closed late.
std::atomic<int> g_nOpenAtAnswer{0};

ssize_t CountAndSend(int nSocket, const void *pData, size_t nSize, int nFlags)
{
    int nCount = 0;
    for (int nDescriptor = 0; nDescriptor < 100; nDescriptor++)
        nCount += fcntl(nDescriptor, F_GETFD) != -1;
    g_nOpenAtAnswer = nCount;
    return __real_send(nSocket, pData, nSize, nFlags);
}

TEST_F(PortsOfASetup, OfAnUnknownTrackAreFreeAgainWithTheAnswer)
{
    KovaReplaceCall<__real_send>(CountAndSend);
    Answer("OPTIONS rtsp://h/live RTSP/1.0");
    const int nBefore = g_nOpenAtAnswer;
    Udp(98);
    EXPECT_EQ(g_nOpenAtAnswer, nBefore);
    KovaReplaceCall<__real_send>(nullptr);
}

/// Ends the only session in the middle of a SETUP of its own.
KovaRtspServer *g_pEnding = nullptr;

int EndAndBind(int nSocket, const sockaddr *pAddress, socklen_t nSize)
{
    KovaRtspServerRemoveAllSession(g_pEnding);
    return __real_bind(nSocket, pAddress, nSize);
}

TEST_F(PortsOfASetup, AreForNobodyWhenTheSessionEndsMeanwhile)
{
    ASSERT_EQ(client.SetupTcp("live", 96, 0).nStatus, 200);
    const std::string session = "Session: " + client.Session() + "\r\n";
    g_pEnding = server.Server();
    KovaReplaceCall<__real_bind>(EndAndBind);
    EXPECT_EQ(Udp(97, session), k454);
    KovaReplaceCall<__real_bind>(nullptr);
    EXPECT_EQ(server.Clients(97).size(), 0U);
}

TEST_F(PortsOfASetup, ThatIsRefusedAreFreeAgainWithTheAnswer)
{
    KovaReplaceCall<__real_send>(CountAndSend);
    Answer("OPTIONS rtsp://h/live RTSP/1.0");
    const int nBefore = g_nOpenAtAnswer;
    server.Server()->nMaxClient = 0;
    EXPECT_EQ(Udp(97), k403);
    EXPECT_EQ(g_nOpenAtAnswer, nBefore);
    KovaReplaceCall<__real_send>(nullptr);
}

} // namespace
