#include "tests/hostile_client/scenarios.h"
#include "tests/live/good_players.h"
#include "tests/robustness/process_state.h"
#include "tests/support/rtsp_text.h"
#include "tests/support/sockets.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <vector>

// Whatever strangers do, those who play miss nothing, and everything is given back.

namespace {

constexpr uint32_t kMostSessions = 64;

struct LiveAttack : testing::Test {
    int nDescriptors = KovaDescriptorCount();
    KovaLiveHost host{[](KovaLiveConfig *pConfig) {
        pConfig->session_ms = 3000;
        pConfig->player_stall_ms = 1500;
        pConfig->request_ms = 1500;
        pConfig->idle_ms = 3000;
        pConfig->max_connections = 4096;
        pConfig->max_sessions = kMostSessions;
        pConfig->log_level = KOVA_LIVE_LOG_WARNING;
    }};
    KovaLiveStream *pStream = host.AddStream("live");
    KovaLiveTrack *pVideo = KovaLiveHost::AddVideo(pStream);
    std::unique_ptr<KovaGoodPlayers> good = std::make_unique<KovaGoodPlayers>(host, pVideo);
    KovaHostileTarget target = {"127.0.0.1", host.Port(), "live", 100, 300};

    void SetUp() override
    {
        ASSERT_TRUE(good->Begun());
    }
    /// A connection that did not fit the queue of those that want in comes some seconds later, when
    /// its peer tries again.
    bool OnlyTheGoodOnesAreLeft()
    {
        return KovaWaitUntil(30000, [this] {
            const KovaLiveServerNumbers numbers = host.Figures();
            return numbers.connections == 2 && numbers.sessions == 2 && numbers.players == 2;
        });
    }
    void TearDown() override
    {
        EXPECT_TRUE(OnlyTheGoodOnesAreLeft())
            << host.Figures().connections << " " << host.Figures().sessions;
        good->ExpectNothingMissed();
        good.reset();
        EXPECT_TRUE(KovaWaitUntil([this] { return host.Figures().connections == 0; }));
        EXPECT_EQ(host.Figures().sessions, 0U);
        EXPECT_EQ(KovaLiveFiguresOf(pStream).players, 0U);
        EXPECT_LT(host.Close(), 5000);
        EXPECT_EQ(KovaDescriptorCount(), nDescriptors);
    }
    void Suffer(const std::vector<KovaHostileScenario> &scenarios)
    {
        target.nCount = 30;
        for (const KovaHostileScenario &scenario : scenarios) {
            SCOPED_TRACE(scenario.szName);
            EXPECT_TRUE(scenario.pfnRun(target));
            EXPECT_TRUE(KovaHostileServerAnswers(target));
        }
    }
    std::string SetupText(const std::string &transport, const std::string &session = "") const
    {
        return KovaHostileRequest("SETUP", target,
                                  KovaTransportLine(transport) +
                                      (session.empty() ? "" : "Session: " + session + "\r\n"),
                                  "/track1");
    }
};

} // namespace

TEST_F(LiveAttack, BrokenRequestsHarmNobody)
{
    Suffer(KovaHostileRequestScenarios());
}

TEST_F(LiveAttack, BrokenConnectionsHarmNobody)
{
    Suffer(KovaHostileConnectionScenarios());
}

TEST_F(LiveAttack, BrokenPlayersHarmNobody)
{
    Suffer(KovaHostileMediaScenarios());
}

TEST_F(LiveAttack, TwoThousandConnectionsHarmNobody)
{
    constexpr int kConnections = 2000;
    rlimit limit = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    limit.rlim_cur = limit.rlim_max;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    ASSERT_GT(limit.rlim_cur, 2U * kConnections + 200);
    const std::string request = KovaHostileRequest("OPTIONS", target);
    std::string many;
    while (many.size() < 30000)
        many += request;
    std::vector<int> sockets;
    for (int nSocket = 0; nSocket < kConnections; nSocket++) {
        sockets.push_back(KovaConnect(host.Port(), {nSocket % 4 == 3 ? 2048 : 0, 0}));
        ASSERT_GE(sockets.back(), 0);
        const std::string bytes[] = {"", request.substr(0, request.size() / 2),
                                     std::string(700, static_cast<char>(nSocket % 250 + 1)), many};
        const std::string &mine = bytes[nSocket % 4];
        // Who is late is sent away with it.
        send(sockets.back(), mine.data(), mine.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    }
    EXPECT_TRUE(KovaWaitUntil([this] { return host.Figures().connections > 100; }));
    // Some dribble on; the answer to nothing at all is the end.
    for (int nRound = 0; nRound < 4; nRound++) {
        for (size_t nSocket = 1; nSocket < sockets.size(); nSocket += 4)
            send(sockets[nSocket], "x", 1, MSG_NOSIGNAL | MSG_DONTWAIT);
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
    }
    EXPECT_TRUE(OnlyTheGoodOnesAreLeft()) << host.Figures().connections;
    for (const int nSocket : sockets)
        close(nSocket);
}

TEST_F(LiveAttack, FloodsHarmNobody)
{
    for (int nRound = 0; nRound < 200; nRound++) {
        KovaHostileConnection closing(target);
        KovaHostileConnection asking(target);
        asking.Send(KovaHostileRequest("DESCRIBE", target));
        KovaHostileConnection setting(target);
        const char *szTransport = nRound % 2 == 0 ? "RTP/AVP;unicast;client_port=4000-4001"
                                                  : "RTP/AVP/TCP;unicast;interleaved=0-1";
        for (int nSession = 0; nSession < 4; nSession++)
            setting.Send(SetupText(szTransport));
        if (nRound % 3 == 0)
            setting.Reset();
    }
    EXPECT_TRUE(KovaHostileServerAnswers(target));
}

TEST_F(LiveAttack, SessionsThatAreUsedUpAreHadAgain)
{
    std::vector<std::unique_ptr<KovaLiveClient>> clients;
    uint32_t nSet = 0;
    for (uint32_t nClient = 0; nClient < kMostSessions + 10; nClient++) {
        clients.push_back(std::make_unique<KovaLiveClient>());
        ASSERT_TRUE(clients.back()->Connect(host.Port()));
        const int nStatus = clients.back()->SetupTcp("live", 1).nStatus;
        nSet += nStatus == 200 ? 1 : 0;
        EXPECT_EQ(nStatus, nClient + 2 < kMostSessions ? 200 : 503);
    }
    EXPECT_EQ(nSet, kMostSessions - 2);
    clients.clear();
    EXPECT_TRUE(OnlyTheGoodOnesAreLeft());
    KovaLiveClient client;
    EXPECT_TRUE(KovaLivePlayTcp(&client, host, "live"));
}

TEST_F(LiveAttack, StalledAndSlowReadersHarmNobody)
{
    std::vector<int> sockets;
    for (int nSocket = 0; nSocket < 20; nSocket++) {
        const int nPlayer = KovaConnect(host.Port(), {2048, 500});
        ASSERT_GE(nPlayer, 0);
        sockets.push_back(nPlayer);
        const std::string setup = SetupText("RTP/AVP/TCP;unicast;interleaved=0-1");
        ASSERT_EQ(send(nPlayer, setup.data(), setup.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(setup.size()));
        ASSERT_TRUE(KovaWaitReadable(nPlayer, kLiveWaitMs));
        char answer[2048] = {};
        ASSERT_GT(recv(nPlayer, answer, sizeof(answer) - 1, 0), 0);
        const std::string play =
            KovaHostileRequest("PLAY", target, "Session: " + KovaHostileSession(answer) + "\r\n");
        ASSERT_EQ(send(nPlayer, play.data(), play.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(play.size()));
    }
    EXPECT_TRUE(KovaWaitUntil([this] { return host.Figures().players == 22; }));
    // Half of them take a little now and then.
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(4);
    while (std::chrono::steady_clock::now() < end) {
        char bytes[300];
        for (size_t nSocket = 0; nSocket < sockets.size(); nSocket += 2)
            recv(sockets[nSocket], bytes, sizeof(bytes), MSG_DONTWAIT);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    for (const int nSocket : sockets)
        close(nSocket);
}

TEST_F(LiveAttack, PlayersThatVanishEndByTime)
{
    for (int nPlayer = 0; nPlayer < 20; nPlayer++) {
        KovaLiveClient client;
        ASSERT_TRUE(KovaLivePlayUdp(&client, host, "live"));
        client.Close(nPlayer % 2 == 0);
    }
    EXPECT_GE(host.Figures().players, 2U);
    EXPECT_TRUE(OnlyTheGoodOnesAreLeft());
    EXPECT_EQ(host.Events(KOVA_LIVE_EVENT_PLAYER_WENT).size(), 20U);
    EXPECT_EQ(host.WaitEvent(KOVA_LIVE_EVENT_PLAYER_WENT).nReason,
              uint32_t{KOVA_LIVE_WENT_SILENCE});
}

TEST_F(LiveAttack, GarbageAtTheMediaPortsHarmsNobody)
{
    KovaLiveClient stranger;
    ASSERT_TRUE(stranger.Connect(host.Port()));
    const std::string ports = stranger.SetupUdp("live", 1).Transport("server_port");
    ASSERT_NE(ports, "");
    const uint16_t nRtp = static_cast<uint16_t>(atoi(ports.c_str()));
    KovaUdpPair other;
    for (unsigned nRound = 0; nRound < 2000; nRound++) {
        std::string bytes = KovaLiveReport(nRound, 255, true, true);
        if (nRound % 3 != 0)
            bytes[nRound * 7 % bytes.size()] ^= static_cast<char>(1U << (nRound % 8));
        if (nRound % 5 == 0)
            bytes.resize(nRound % 60);
        other.SendRtcp(static_cast<uint16_t>(nRtp + 1), bytes);
        other.SendRtp(nRtp, bytes);
    }
}
