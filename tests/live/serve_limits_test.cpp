#include "tests/live/live_host.h"
#include "tests/support/sockets.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <thread>

// Several loops, limits on connections, and what happens when the system has no more.

namespace {

std::vector<std::unique_ptr<KovaLiveClient>> Connections(uint16_t nPort, size_t nCount)
{
    std::vector<std::unique_ptr<KovaLiveClient>> clients;
    for (size_t nClient = 0; nClient < nCount; nClient++) {
        clients.push_back(std::make_unique<KovaLiveClient>());
        EXPECT_TRUE(clients.back()->Connect(nPort));
    }
    return clients;
}

/// Connects from another address of this machine.
int ConnectFrom(const char *szAddress, uint16_t nPort)
{
    const int nSocket = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in own = KovaLoopback();
    inet_pton(AF_INET, szAddress, &own.sin_addr);
    const sockaddr_in server = KovaLoopback(nPort);
    if (bind(nSocket, KovaPlain(own), sizeof(own)) == 0 &&
        connect(nSocket, KovaPlain(server), sizeof(server)) == 0)
        return nSocket;
    close(nSocket);
    return -1;
}

/// Takes all descriptors but a few while it lives.
class FewDescriptors {
public:
    explicit FewDescriptors(int nLeft)
    {
        getrlimit(RLIMIT_NOFILE, &m_before);
        rlimit limit = m_before;
        limit.rlim_cur = 200;
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
        for (int nTaken; (nTaken = open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;)
            m_taken.push_back(nTaken);
        for (; nLeft > 0 && !m_taken.empty(); nLeft--)
            GiveOne();
    }
    ~FewDescriptors()
    {
        while (!m_taken.empty())
            GiveOne();
        setrlimit(RLIMIT_NOFILE, &m_before);
    }
    FewDescriptors(const FewDescriptors &) = delete;
    FewDescriptors &operator=(const FewDescriptors &) = delete;
    void GiveOne()
    {
        close(m_taken.back());
        m_taken.pop_back();
    }

private:
    rlimit m_before = {};
    std::vector<int> m_taken;
};

} // namespace

TEST(LiveLimits, ConnectionsBeyondTheLimitAreSentAway)
{
    KovaLiveHost host([](KovaLiveConfig *pConfig) { pConfig->max_connections = 3; });
    auto clients = Connections(host.Port(), 3);
    for (const auto &pClient : clients)
        EXPECT_EQ(pClient->Options().nStatus, 200);
    KovaLiveClient client;
    ASSERT_TRUE(client.Connect(host.Port()));
    const KovaLiveAnswer answer = client.Receive();
    EXPECT_EQ(answer.nStatus, 503);
    EXPECT_EQ(answer.Header("Retry-After"), "5");
    EXPECT_EQ(answer.Header("Connection"), "close");
    EXPECT_TRUE(client.WaitClosed());
    EXPECT_EQ(host.Figures().refused, 1U);
    clients.pop_back();
    EXPECT_TRUE(KovaWaitUntil([&] { return host.Figures().connections == 2; }));
    ASSERT_TRUE(client.Connect(host.Port()));
    EXPECT_EQ(client.Options().nStatus, 200);
}

TEST(LiveLimits, ConnectionsOfOneAddressAreLimitedOnAllLoopsTogether)
{
    for (const uint32_t nThreads : {1U, 3U}) {
        KovaLiveHost host([nThreads](KovaLiveConfig *pConfig) {
            pConfig->max_connections_per_address = 3;
            pConfig->threads = nThreads;
        });
        auto clients = Connections(host.Port(), 3);
        for (const auto &pClient : clients)
            EXPECT_EQ(pClient->Options().nStatus, 200);
        KovaLiveClient client;
        ASSERT_TRUE(client.Connect(host.Port()));
        EXPECT_EQ(client.Receive().nStatus, 503) << nThreads;
        const int nOther = ConnectFrom("127.0.0.2", host.Port());
        ASSERT_GE(nOther, 0);
        client.Rtsp().Adopt(nOther);
        EXPECT_EQ(client.Options().nStatus, 200) << "another address";
        clients.pop_back();
        EXPECT_TRUE(KovaWaitUntil([&] {
            KovaLiveClient again;
            return again.Connect(host.Port()) && again.Options().nStatus == 200;
        }));
    }
}

TEST(LiveLimits, SessionsAreBoundToTheirPlayersAddress)
{
    KovaLiveHost host;
    KovaLiveHost::AddVideo(host.AddStream("cam"));
    KovaLiveClient player;
    ASSERT_TRUE(KovaLivePlayUdp(&player, host));
    KovaLiveClient thief;
    ASSERT_TRUE(thief.Connect(host.Port()));
    thief.Rtsp().Adopt(ConnectFrom("127.0.0.2", host.Port()));
    thief.SetSession(player.Session());
    for (const char *szMethod : {"PLAY", "PAUSE", "TEARDOWN", "GET_PARAMETER", "OPTIONS"})
        EXPECT_EQ(thief.Request(szMethod, "cam").nStatus, 454) << szMethod;
    EXPECT_EQ(player.Request("GET_PARAMETER", "cam").nStatus, 200);
}

TEST(LiveLoops, ConnectionsGoToTheLeastBusyLoop)
{
    KovaLiveHost host([](KovaLiveConfig *pConfig) { pConfig->threads = 4; });
    KovaLiveStream *pStream = host.AddStream("cam");
    KovaLiveTrack *pVideo = KovaLiveHost::AddVideo(pStream);
    // Each loop has its own UDP ports: they tell loops apart.
    std::vector<std::unique_ptr<KovaLiveClient>> clients;
    std::map<std::string, int> loops;
    for (int nClient = 0; nClient < 12; nClient++) {
        clients.push_back(std::make_unique<KovaLiveClient>());
        ASSERT_TRUE(clients.back()->Connect(host.Port()));
        const KovaLiveAnswer answer = clients.back()->SetupUdp("cam", 1);
        ASSERT_EQ(answer.nStatus, 200);
        loops[answer.Transport("server_port")]++;
        ASSERT_EQ(clients.back()->Play("cam").nStatus, 200);
    }
    EXPECT_EQ(loops.size(), 4U);
    for (const auto &loop : loops)
        EXPECT_EQ(loop.second, 3) << loop.first;
    for (unsigned nPicture = 0; nPicture < 5; nPicture++) {
        ASSERT_EQ(KovaLivePushText(pVideo, KovaLiveKey(3000, nPicture), 40000 * nPicture),
                  KOVA_LIVE_OK);
        for (const auto &pClient : clients)
            EXPECT_EQ(KovaLiveSlice(KovaLiveNextUnit(pClient.get(), 1)),
                      KovaMediaNal(0x65, 3000, nPicture));
    }
    EXPECT_EQ(KovaLiveFiguresOf(pStream).players, 12U);
    EXPECT_EQ(KovaLiveFiguresOf(pStream).packets, 12U * 5 * 4);
    uint32_t nCount = 0;
    EXPECT_EQ(KovaLivePlayers(host.Live(), nullptr, 0, &nCount), KOVA_LIVE_OK);
    EXPECT_EQ(nCount, 12U);
    EXPECT_EQ(host.Events(KOVA_LIVE_EVENT_PLAYER_CAME).size(), 12U);
    EXPECT_LT(host.Close(), 1000);
}

TEST(LiveLoops, PlayersComeAndGoWhileStreamsDoAndSeveralThreadsPush)
{
    KovaLiveHost host([](KovaLiveConfig *pConfig) { pConfig->threads = 2; });
    KovaLiveStream *pStream = host.AddStream("cam");
    KovaLiveTrack *tracks[] = {KovaLiveHost::AddVideo(pStream), KovaLiveHost::AddVideo(pStream)};
    std::atomic<bool> bStop{false};
    std::vector<std::thread> threads;
    for (KovaLiveTrack *pTrack : tracks)
        threads.emplace_back([&bStop, pTrack] {
            for (unsigned nPicture = 0; !bStop; nPicture++) {
                KovaLivePushText(pTrack, KovaLiveKey(80000, nPicture), 4000 * nPicture);
                std::this_thread::sleep_for(std::chrono::milliseconds(4));
            }
        });
    threads.emplace_back([&host, &bStop] {
        while (!bStop) {
            KovaLiveStream *pOne = host.AddStream("one");
            KovaLiveTrack *pTrack = KovaLiveHost::AddVideo(pOne);
            for (unsigned nPicture = 0; nPicture < 5; nPicture++)
                KovaLivePushText(pTrack, KovaLiveKey(1000, nPicture), 4000 * nPicture);
            std::this_thread::sleep_for(std::chrono::milliseconds(3));
            EXPECT_EQ(KovaLiveRemoveStream(pOne), KOVA_LIVE_OK);
        }
    });
    threads.emplace_back([&host, &bStop, pStream] {
        while (!bStop) {
            KovaLivePlayer players[8] = {};
            players[0].size = sizeof(players[0]);
            uint32_t nCount = 0;
            EXPECT_EQ(KovaLivePlayers(host.Live(), players, 8, &nCount), KOVA_LIVE_OK);
            KovaLiveFiguresOf(pStream);
            host.Figures();
            if (nCount > 3)
                KovaLiveDisconnect(host.Live(), players[0].player);
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    });
    int nPlayed = 0;
    for (int nTurn = 0; nTurn < 60; nTurn++) {
        KovaLiveClient players[4];
        for (int nPlayer = 0; nPlayer < 4; nPlayer++) {
            const char *szPath = nPlayer == 3 ? "one" : "cam";
            if (nPlayer % 2 == 0 ? KovaLivePlayTcp(&players[nPlayer], host, szPath)
                                 : KovaLivePlayUdp(&players[nPlayer], host, szPath))
                nPlayed++;
        }
        KovaLiveRtp packet;
        players[0].NextRtp(1, &packet, 200);
        players[nTurn % 4].Close(nTurn % 2 == 0);
        players[1].Teardown("cam");
    }
    EXPECT_GT(nPlayed, 60);
    bStop = true;
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_LT(host.Close(), 1000);
}

TEST(LiveShortage, WithoutDescriptorsNewcomersAreSentAwayAndPlayersPlayOn)
{
    KovaLiveHost host;
    KovaLiveTrack *pVideo = KovaLiveHost::AddVideo(host.AddStream("cam"));
    KovaLiveClient player;
    ASSERT_TRUE(KovaLivePlayTcp(&player, host));
    {
        FewDescriptors few(1);
        KovaLiveClient newcomer;
        ASSERT_TRUE(newcomer.Connect(host.Port()));
        EXPECT_TRUE(newcomer.WaitClosed()) << "sent away at once";
        for (unsigned nPicture = 0; nPicture < 10; nPicture++) {
            ASSERT_EQ(KovaLivePushText(pVideo, KovaLiveKey(3000, nPicture), 40000 * nPicture),
                      KOVA_LIVE_OK);
            EXPECT_EQ(KovaLiveSlice(KovaLiveNextUnit(&player, 1)),
                      KovaMediaNal(0x65, 3000, nPicture));
        }
        EXPECT_EQ(player.Options().nStatus, 200);
    }
    EXPECT_TRUE(KovaWaitUntil([&] {
        KovaLiveClient newcomer;
        return newcomer.Connect(host.Port()) && newcomer.Options().nStatus == 200;
    }));
    EXPECT_LT(host.Lines().size(), 200U) << "no flood of lines";
}

TEST(LiveShortage, DescriptorThatIsKeptForNewcomersIsFoundAgain)
{
    // The server is opened with everything but the one that it keeps.
    KovaLive *pLive = nullptr;
    for (int nMore = 0; nMore < 20 && pLive == nullptr; nMore++) {
        FewDescriptors fewer(nMore);
        KovaLiveConfig config;
        KovaLiveConfigInit(&config, sizeof(config));
        config.address = "127.0.0.1";
        if (KovaLiveOpen(&config, &pLive) != KOVA_LIVE_OK)
            pLive = nullptr;
    }
    ASSERT_NE(pLive, nullptr);
    uint16_t nPort = 0;
    EXPECT_EQ(KovaLivePort(pLive, &nPort), KOVA_LIVE_OK);
    const auto isSentAway = [nPort] {
        KovaLiveClient client;
        return client.Connect(nPort) && client.WaitClosed(300);
    };
    {
        // One for the newcomer itself: it waits, unless the server had one to give up.
        FewDescriptors none(1);
        isSentAway();
    }
    KovaLiveClient client;
    ASSERT_TRUE(client.Connect(nPort));
    ASSERT_EQ(client.Options().nStatus, 200);
    {
        FewDescriptors none(1);
        EXPECT_TRUE(isSentAway()) << "it has one again";
    }
    EXPECT_EQ(client.Options().nStatus, 200);
    EXPECT_EQ(KovaLiveClose(pLive), KOVA_LIVE_OK);
}

TEST(LiveShortage, SetupOverUdpWithoutDescriptorsIsRefusedAndWorksLater)
{
    KovaLiveHost host;
    KovaLiveHost::AddVideo(host.AddStream("cam"));
    KovaLiveClient client;
    ASSERT_TRUE(client.Connect(host.Port()));
    ASSERT_EQ(client.Options().nStatus, 200);
    client.Ports(1);
    {
        FewDescriptors few(1);
        EXPECT_EQ(client.SetupUdp("cam", 1).nStatus, 503);
        EXPECT_EQ(client.SetupTcp("cam", 1).nStatus, 200) << "needs none";
    }
    client.SetSession("");
    EXPECT_EQ(client.SetupUdp("cam", 1).nStatus, 200);
}

TEST(LiveShortage, ServerCannotBeOpenedWithoutDescriptorsAndLeavesNone)
{
    for (int nLeft = 0; nLeft < 8; nLeft++) {
        FewDescriptors few(nLeft);
        KovaLiveConfig config;
        KovaLiveConfigInit(&config, sizeof(config));
        config.threads = 2;
        KovaLive *pLive = nullptr;
        const int32_t nResult = KovaLiveOpen(&config, &pLive);
        EXPECT_TRUE(nResult == KOVA_LIVE_OK || nResult == KOVA_LIVE_ERROR_SYSTEM ||
                    nResult == KOVA_LIVE_ERROR_MEMORY)
            << nLeft << " " << nResult;
        if (nResult == KOVA_LIVE_OK) {
            EXPECT_EQ(KovaLiveClose(pLive), KOVA_LIVE_OK);
        }
        int nFound = 0;
        std::vector<int> again;
        for (int nTaken; (nTaken = open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0; nFound++)
            again.push_back(nTaken);
        for (const int nTaken : again)
            close(nTaken);
        EXPECT_EQ(nFound, nLeft) << "all are given back";
    }
}
