#include "tests/protocol/protocol_fixture.h"
#include "tests/support/c_calls.h"

#include <sys/socket.h>

#include <atomic>
#include <deque>

namespace {

std::atomic<int> g_nUdpSockets{0};

int CountedSocket(int nDomain, int nType, int nProtocol)
{
    if ((nType & SOCK_DGRAM) != 0)
        g_nUdpSockets++;
    return __real_socket(nDomain, nType, nProtocol);
}

/// Players on UDP, and the sockets that a request opens meanwhile.
class HeldPorts : public ProtocolTest {
protected:
    static constexpr int kPlayers = 40;

    void SetUp() override
    {
        ProtocolTest::SetUp();
        nFirst = KovaFirstFreePair();
        for (int nPlayer = 0; nPlayer < kPlayers; nPlayer++) {
            ASSERT_TRUE(server.Connect(&players.emplace_back()));
            ASSERT_EQ(players.back().SetupUdp("live", 97, 5000).nStatus, 200);
        }
    }

    /// The server's RTP port in the answer to a SETUP, and how many UDP sockets
    /// the SETUP opened.
    std::string SetupAnswer(int *pOpened)
    {
        KovaReplaceCall<__real_socket>(CountedSocket);
        g_nUdpSockets = 0;
        const std::string text = Answer("SETUP rtsp://127.0.0.1/live/trackID=97 RTSP/1.0",
                                        "Transport: RTP/AVP;unicast;client_port=5000-5001\r\n");
        *pOpened = g_nUdpSockets;
        KovaReplaceCall<__real_socket>(nullptr);
        const std::string name = "server_port=";
        const size_t nAt = text.find(name);
        return nAt != std::string::npos ? text.substr(nAt + name.size(), 4) : text;
    }

    unsigned nFirst = 0; ///< the first player's port
    std::deque<KovaRtspTestClient> players;
};

TEST_F(HeldPorts, AreSteppedOverWithoutAskingTheSystem)
{
    int nOpened = 0;
    EXPECT_EQ(SetupAnswer(&nOpened), std::to_string(nFirst + 2 * kPlayers));
    EXPECT_EQ(nOpened, 2);
}

TEST_F(HeldPorts, AreTheFirstAgainOnceTheirPlayerHasLeft)
{
    ASSERT_EQ(players[3].Teardown("live").nStatus, 200);
    int nOpened = 0;
    EXPECT_EQ(SetupAnswer(&nOpened), std::to_string(nFirst + 2 * 3));
    EXPECT_EQ(nOpened, 2);
}

} // namespace
