#include "tests/live/live_host.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>

// What the host is told, what it may call where, and how things end.

namespace {

KovaLivePlayer PlayerRecord()
{
    KovaLivePlayer player = {};
    player.size = sizeof(player);
    return player;
}

struct LiveHostTest : testing::Test {
    KovaLiveHost host;
    KovaLiveStream *pStream = host.AddStream("cam");
    KovaLiveTrack *pVideo = KovaLiveHost::AddVideo(pStream);
    KovaLiveClient client;
};

} // namespace

TEST_F(LiveHostTest, EventsTellAPlayersWholeLifeInOrder)
{
    ASSERT_EQ(KovaLivePushText(pVideo, KovaLiveKey(), 0), KOVA_LIVE_OK);
    EXPECT_EQ(host.WaitEvent(KOVA_LIVE_EVENT_STREAM_READY).pStream, pStream);
    ASSERT_TRUE(KovaLivePlayUdp(&client, host));
    const KovaToldEvent came = host.WaitEvent(KOVA_LIVE_EVENT_PLAYER_CAME);
    EXPECT_EQ(came.pStream, pStream);
    EXPECT_EQ(came.pTrack, nullptr);
    EXPECT_NE(came.nPlayer, 0U);
    EXPECT_EQ(came.nPlayers, 1U);
    EXPECT_EQ(came.address, "127.0.0.1");
    EXPECT_EQ(came.nPort, client.Rtsp().LocalPort());
    EXPECT_FALSE(came.bInterleaved);
    KovaLiveClient other;
    ASSERT_TRUE(KovaLivePlayTcp(&other, host));
    const KovaToldEvent second = host.WaitEvent(KOVA_LIVE_EVENT_PLAYER_CAME, 2);
    EXPECT_NE(second.nPlayer, came.nPlayer);
    EXPECT_EQ(second.nPlayers, 2U);
    EXPECT_TRUE(second.bInterleaved);
    ASSERT_EQ(client.Teardown("cam").nStatus, 200);
    const KovaToldEvent went = host.WaitEvent(KOVA_LIVE_EVENT_PLAYER_WENT);
    EXPECT_EQ(went.nPlayer, came.nPlayer);
    EXPECT_EQ(went.nReason, KOVA_LIVE_WENT_TEARDOWN);
    EXPECT_EQ(went.nPlayers, 1U);
    EXPECT_EQ(went.nPort, came.nPort);
    EXPECT_EQ(host.Events()[0].nType, KOVA_LIVE_EVENT_STREAM_READY);
    EXPECT_EQ(host.Events()[1].nType, KOVA_LIVE_EVENT_PLAYER_CAME);
    EXPECT_EQ(host.Events()[2].nType, KOVA_LIVE_EVENT_KEY_FRAME);
}

TEST_F(LiveHostTest, CallbacksMayCallWhatTheyLike)
{
    std::atomic<int> nCalled{0};
    std::atomic<int> nWrong{0};
    host.onEvent = [&](const KovaLiveEvent &event) {
        uint32_t nCount = 0;
        KovaLivePlayer player = PlayerRecord();
        KovaLiveStreamNumbers stream = {};
        stream.size = sizeof(stream);
        KovaLiveServerNumbers server = {};
        server.size = sizeof(server);
        KovaLiveStream *pNew = nullptr;
        KovaLiveTrack *pTrack = nullptr;
        const std::string path = "new" + std::to_string(nCalled++);
        const KovaLiveTrackConfig config = KovaMediaConfig(KOVA_LIVE_H264);
        for (const int32_t nResult :
             {KovaLivePlayers(host.Live(), &player, 1, &nCount),
              KovaLiveStreamFigures(event.stream, &stream),
              KovaLiveServerFigures(host.Live(), &server),
              KovaLiveAddStream(host.Live(), path.c_str(), nullptr, &pNew),
              KovaLiveAddTrack(pNew, &config, &pTrack), KovaLivePushText(pVideo, KovaLiveKey(), 0)})
            nWrong += nResult == KOVA_LIVE_OK ? 0 : 1;
        nWrong += KovaLiveClose(host.Live()) == KOVA_LIVE_ERROR_IN_CALLBACK ? 0 : 1;
        nWrong += KovaLiveRemoveStream(event.stream) == KOVA_LIVE_ERROR_IN_CALLBACK ? 0 : 1;
        if (event.type == KOVA_LIVE_EVENT_PLAYER_CAME)
            nWrong += KovaLiveDisconnect(host.Live(), event.player) == KOVA_LIVE_OK ? 0 : 1;
    };
    ASSERT_TRUE(KovaLivePlayTcp(&client, host));
    EXPECT_EQ(host.WaitEvent(KOVA_LIVE_EVENT_PLAYER_WENT).nReason, KOVA_LIVE_WENT_DISCONNECTED);
    EXPECT_GE(nCalled, 2);
    EXPECT_EQ(nWrong, 0);
    EXPECT_EQ(host.Close() < 1000, true);
}

TEST_F(LiveHostTest, DisconnectLetsOnePlayerGoAndLeavesItsConnection)
{
    KovaLiveClient other;
    ASSERT_TRUE(KovaLivePlayTcp(&client, host));
    ASSERT_TRUE(KovaLivePlayTcp(&other, host));
    const uint64_t nPlayer = host.WaitEvent(KOVA_LIVE_EVENT_PLAYER_CAME).nPlayer;
    EXPECT_EQ(KovaLiveDisconnect(host.Live(), nPlayer), KOVA_LIVE_OK);
    EXPECT_EQ(host.WaitEvent(KOVA_LIVE_EVENT_PLAYER_WENT).nReason, KOVA_LIVE_WENT_DISCONNECTED);
    EXPECT_EQ(KovaLiveDisconnect(host.Live(), nPlayer), KOVA_LIVE_ERROR_NOT_FOUND);
    EXPECT_EQ(KovaLiveDisconnect(host.Live(), 0), KOVA_LIVE_ERROR_ARGUMENT);
    EXPECT_EQ(KovaLiveDisconnect(host.Live(), 99999), KOVA_LIVE_ERROR_NOT_FOUND);
    EXPECT_EQ(client.Play("cam").nStatus, 454);
    ASSERT_EQ(KovaLivePushText(pVideo, KovaLiveKey(), 0), KOVA_LIVE_OK);
    KovaLiveRtp packet;
    EXPECT_TRUE(other.NextRtp(1, &packet));
}

TEST_F(LiveHostTest, RemovedStreamEndsItsPlayersAndItsNameIsFree)
{
    ASSERT_TRUE(KovaLivePlayTcp(&client, host));
    ASSERT_EQ(KovaLivePushText(pVideo, KovaLiveKey(), 0), KOVA_LIVE_OK);
    KovaLiveRtp packet;
    ASSERT_TRUE(client.NextRtp(1, &packet));
    KovaLiveStream *pOther = nullptr;
    EXPECT_EQ(KovaLiveAddStream(host.Live(), "/cam/", nullptr, &pOther), KOVA_LIVE_ERROR_EXISTS);
    ASSERT_EQ(KovaLiveRemoveStream(pStream), KOVA_LIVE_OK);
    const KovaToldEvent went = host.WaitEvent(KOVA_LIVE_EVENT_PLAYER_WENT);
    EXPECT_EQ(went.nReason, KOVA_LIVE_WENT_STREAM);
    EXPECT_EQ(went.pStream, pStream);
    std::string report;
    ASSERT_TRUE(client.NextRtcp(1, &report));
    ASSERT_TRUE(client.NextRtcp(1, &report));
    EXPECT_EQ(KovaRtcpParts(report).size(), 3U) << "with a BYE";
    client.SetSession("");
    EXPECT_EQ(client.Describe("cam").nStatus, 404);
    KovaLiveHost::AddVideo(host.AddStream("cam"));
    EXPECT_EQ(client.Describe("cam").nStatus, 200);
}

TEST_F(LiveHostTest, RemoveWaitsForAPushInProgress)
{
    for (int nTurn = 0; nTurn < 20; nTurn++) {
        KovaLiveStream *pOne = host.AddStream("one");
        KovaLiveTrack *pTrack = KovaLiveHost::AddVideo(pOne);
        KovaLiveClient player;
        ASSERT_TRUE(KovaLivePlayTcp(&player, host, "one"));
        const std::string picture = KovaLiveKey(2000000);
        std::atomic<bool> bBegins{false};
        std::thread pusher([&] {
            bBegins = true;
            KovaLivePushText(pTrack, picture, 0);
        });
        while (!bBegins)
            std::this_thread::yield();
        std::this_thread::sleep_for(std::chrono::microseconds(300));
        EXPECT_EQ(KovaLiveRemoveStream(pOne), KOVA_LIVE_OK);
        pusher.join();
    }
}

TEST_F(LiveHostTest, PlayersAreListed)
{
    uint32_t nCount = 99;
    EXPECT_EQ(KovaLivePlayers(host.Live(), nullptr, 0, &nCount), KOVA_LIVE_OK);
    EXPECT_EQ(nCount, 0U);
    KovaLiveClient players[3];
    for (int nPlayer = 0; nPlayer < 3; nPlayer++)
        ASSERT_TRUE(nPlayer == 0 ? KovaLivePlayUdp(&players[nPlayer], host)
                                 : KovaLivePlayTcp(&players[nPlayer], host));
    ASSERT_TRUE(client.Connect(host.Port()));
    ASSERT_EQ(client.SetupTcp("cam", 1).nStatus, 200); // does not play
    ASSERT_EQ(players[2].Pause("cam").nStatus, 200);
    KovaLivePlayer records[4] = {};
    records[0].size = sizeof(records[0]);
    EXPECT_EQ(KovaLivePlayers(host.Live(), records, 4, &nCount), KOVA_LIVE_OK);
    ASSERT_EQ(nCount, 3U);
    int nPaused = 0;
    int nUdp = 0;
    for (uint32_t nRecord = 0; nRecord < 3; nRecord++) {
        EXPECT_EQ(records[nRecord].size, sizeof(records[0]));
        EXPECT_STREQ(records[nRecord].address, "127.0.0.1");
        EXPECT_EQ(records[nRecord].stream, pStream);
        EXPECT_NE(records[nRecord].player, 0U);
        nPaused += static_cast<int>(records[nRecord].paused);
        nUdp += records[nRecord].interleaved == 0 ? 1 : 0;
    }
    EXPECT_EQ(nPaused, 1);
    EXPECT_EQ(nUdp, 1);
    EXPECT_EQ(KovaLivePlayers(host.Live(), records, 1, &nCount), KOVA_LIVE_OK);
    EXPECT_EQ(nCount, 3U) << "there are more than there was room for";
}

TEST_F(LiveHostTest, RecordsOfAnotherSizeKeepTheirDistance)
{
    KovaLiveClient players[2];
    for (KovaLiveClient &player : players)
        ASSERT_TRUE(KovaLivePlayTcp(&player, host));
    struct Larger {
        KovaLivePlayer player;
        uint64_t nLater[3];
    } records[3];
    memset(records, 0x55, sizeof(records));
    records[0].player.size = sizeof(Larger);
    uint32_t nCount = 0;
    EXPECT_EQ(KovaLivePlayers(host.Live(), &records[0].player, 3, &nCount), KOVA_LIVE_OK);
    EXPECT_EQ(nCount, 2U);
    for (const Larger &record : {records[0], records[1]}) {
        EXPECT_EQ(record.player.size, sizeof(Larger));
        EXPECT_STREQ(record.player.address, "127.0.0.1");
        EXPECT_EQ(record.nLater[0], 0x5555555555555555U) << "not ours";
    }
    records[0].player.size = sizeof(KovaLivePlayer) - 1;
    EXPECT_EQ(KovaLivePlayers(host.Live(), &records[0].player, 1, &nCount),
              KOVA_LIVE_ERROR_ARGUMENT);
    KovaLiveServerNumbers numbers = {};
    numbers.size = sizeof(numbers) - 8;
    EXPECT_EQ(KovaLiveServerFigures(host.Live(), &numbers), KOVA_LIVE_ERROR_ARGUMENT);
}

TEST_F(LiveHostTest, FiguresCountWhatHappened)
{
    ASSERT_TRUE(KovaLivePlayTcp(&client, host));
    ASSERT_EQ(KovaLivePushText(pVideo, KovaLiveKey(5000), 0), KOVA_LIVE_OK);
    const std::vector<KovaLiveRtp> unit = KovaLiveNextUnit(&client, 1);
    uint64_t nBytes = 0;
    for (const KovaLiveRtp &packet : unit)
        nBytes += packet.packet.size();
    const KovaLiveStreamNumbers stream = KovaLiveFiguresOf(pStream);
    EXPECT_EQ(stream.players, 1U);
    EXPECT_EQ(stream.ready, 1U);
    EXPECT_EQ(stream.tracks, 1U);
    EXPECT_EQ(stream.units, 1U);
    EXPECT_EQ(stream.unit_bytes, KovaLiveKey(5000).size());
    EXPECT_EQ(stream.dropped_units, 0U);
    EXPECT_EQ(stream.packets, unit.size());
    EXPECT_EQ(stream.bytes, nBytes);
    EXPECT_EQ(stream.late_packets, 0U);
    const KovaLiveServerNumbers server = host.Figures();
    EXPECT_EQ(server.connections, 1U);
    EXPECT_EQ(server.sessions, 1U);
    EXPECT_EQ(server.players, 1U);
    EXPECT_EQ(server.packets, unit.size());
    EXPECT_EQ(server.bytes, nBytes);
    KovaLivePlayer player = PlayerRecord();
    uint32_t nCount = 0;
    ASSERT_EQ(KovaLivePlayers(host.Live(), &player, 1, &nCount), KOVA_LIVE_OK);
    EXPECT_EQ(player.packets, unit.size());
    EXPECT_EQ(player.bytes, nBytes);
}

TEST_F(LiveHostTest, CloseEndsEverythingWithinASecond)
{
    KovaLiveHost::AddVideo(host.AddStream("new"), false);
    KovaLiveClient udp;
    KovaLiveClient tcp;
    KovaLiveClient waits;
    KovaLiveClient half;
    KovaLiveClient full;
    ASSERT_TRUE(KovaLivePlayUdp(&udp, host));
    ASSERT_TRUE(KovaLivePlayTcp(&tcp, host));
    ASSERT_TRUE(waits.Connect(host.Port()));
    ASSERT_TRUE(waits.Send(waits.Text("DESCRIBE", "new")));
    ASSERT_TRUE(half.Connect(host.Port()));
    ASSERT_TRUE(half.Send("OPTIONS * RTSP"));
    ASSERT_TRUE(full.Connect(host.Port(), 4096));
    ASSERT_EQ(full.SetupTcp("cam", 1).nStatus, 200);
    ASSERT_EQ(full.Play("cam").nStatus, 200);
    for (int nPicture = 0; nPicture < 20; nPicture++)
        ASSERT_EQ(KovaLivePushText(pVideo, KovaLiveKey(500000), 40000 * nPicture), KOVA_LIVE_OK);
    EXPECT_LT(host.Close(), 1000);
    EXPECT_TRUE(waits.WaitClosed());
    EXPECT_TRUE(half.WaitClosed());
    EXPECT_TRUE(full.WaitClosed());
    const std::vector<KovaToldEvent> went = host.Events(KOVA_LIVE_EVENT_PLAYER_WENT);
    EXPECT_EQ(went.size(), 3U);
    for (const KovaToldEvent &event : went)
        EXPECT_EQ(event.nReason, KOVA_LIVE_WENT_STREAM);
}

TEST_F(LiveHostTest, ClosedWithAUnitOnItsWayOfAStreamThatIsGone)
{
    // The unit's message holds the stream's last reference.
    for (int nTurn = 0; nTurn < 200; nTurn++) {
        KovaLiveHost brief;
        KovaLiveStream *pOne = brief.AddStream("one");
        KovaLiveTrack *pTrack = KovaLiveHost::AddVideo(pOne);
        KovaLiveClient player;
        ASSERT_TRUE(KovaLivePlayTcp(&player, brief, "one"));
        for (int nPicture = 0; nPicture < 3; nPicture++)
            EXPECT_EQ(KovaLivePushText(pTrack, KovaLiveKey(20000), 40000 * nPicture), KOVA_LIVE_OK);
        EXPECT_EQ(KovaLiveRemoveStream(pOne), KOVA_LIVE_OK);
        EXPECT_LT(brief.Close(), 1000);
    }
}

TEST_F(LiveHostTest, ServersOfOneProcessDoNotKnowEachOther)
{
    KovaLiveHost other;
    KovaLiveHost::AddVideo(other.AddStream("cam"));
    EXPECT_NE(other.Port(), host.Port());
    ASSERT_TRUE(KovaLivePlayTcp(&client, host));
    EXPECT_EQ(other.Figures().connections, 0U);
    KovaLiveClient player;
    ASSERT_TRUE(player.Connect(other.Port()));
    player.SetSession(client.Session());
    EXPECT_EQ(player.Play("cam").nStatus, 454);
    EXPECT_LT(host.Close(), 1000);
    player.SetSession("");
    EXPECT_EQ(player.Describe("cam").nStatus, 200);
    EXPECT_TRUE(other.Events().empty());
}

TEST_F(LiveHostTest, PortThatIsTakenIsTold)
{
    KovaLiveConfig config;
    KovaLiveConfigInit(&config, sizeof(config));
    config.address = "127.0.0.1";
    config.port = host.Port();
    KovaLive *pLive = nullptr;
    EXPECT_EQ(KovaLiveOpen(&config, &pLive), KOVA_LIVE_ERROR_PORT);
    EXPECT_EQ(pLive, nullptr);
    config.port = 0;
    config.address = "192.0.2.1";
    EXPECT_EQ(KovaLiveOpen(&config, &pLive), KOVA_LIVE_ERROR_ADDRESS);
    EXPECT_EQ(KovaLiveOpen(&config, nullptr), KOVA_LIVE_ERROR_ARGUMENT);
    config.size = 8;
    EXPECT_EQ(KovaLiveOpen(&config, &pLive), KOVA_LIVE_ERROR_ARGUMENT);
    EXPECT_EQ(KovaLiveClose(nullptr), KOVA_LIVE_OK);
}

TEST_F(LiveHostTest, ArgumentsAreChecked)
{
    KovaLiveStream *pOther = nullptr;
    for (const char *szPath : {"", "/", "a?b", "a#b", "a\nb"})
        EXPECT_EQ(KovaLiveAddStream(host.Live(), szPath, nullptr, &pOther),
                  KOVA_LIVE_ERROR_ARGUMENT)
            << szPath;
    EXPECT_EQ(KovaLiveAddStream(host.Live(), std::string(256, 'a').c_str(), nullptr, &pOther),
              KOVA_LIVE_ERROR_ARGUMENT);
    EXPECT_EQ(KovaLiveAddStream(host.Live(), std::string(255, 'a').c_str(), nullptr, &pOther),
              KOVA_LIVE_OK);
    KovaLiveTrack *pTrack = nullptr;
    KovaLiveTrackConfig config = KovaMediaConfig(KOVA_LIVE_H265);
    EXPECT_EQ(KovaLiveAddTrack(pOther, &config, &pTrack), KOVA_LIVE_ERROR_CODEC);
    config = KovaMediaConfig(KOVA_LIVE_H264);
    for (const uint32_t nType : {1U, 95U, 128U}) {
        config.payload_type = nType;
        EXPECT_EQ(KovaLiveAddTrack(pOther, &config, &pTrack), KOVA_LIVE_ERROR_ARGUMENT) << nType;
    }
    config.payload_type = 127;
    EXPECT_EQ(KovaLiveAddTrack(pOther, &config, &pTrack), KOVA_LIVE_OK);
    EXPECT_EQ(KovaLiveAddTrack(pOther, &config, &pTrack), KOVA_LIVE_ERROR_ARGUMENT) << "twice";
    config.payload_type = 0;
    for (int nTrack = 1; nTrack < 8; nTrack++)
        EXPECT_EQ(KovaLiveAddTrack(pOther, &config, &pTrack), KOVA_LIVE_OK);
    EXPECT_EQ(KovaLiveAddTrack(pOther, &config, &pTrack), KOVA_LIVE_ERROR_TOO_LARGE);
    EXPECT_EQ(KovaLivePush(pTrack, "", 0, 0), KOVA_LIVE_ERROR_ARGUMENT);
    EXPECT_EQ(KovaLivePush(pTrack, nullptr, 5, 0), KOVA_LIVE_ERROR_ARGUMENT);
    EXPECT_EQ(KovaLivePush(nullptr, "x", 1, 0), KOVA_LIVE_ERROR_ARGUMENT);
    EXPECT_EQ(KovaLivePush(pTrack, "nothing", 7, 0), KOVA_LIVE_ERROR_DATA);
    const std::string huge(16 * 1024 * 1024 + 1, 'x');
    EXPECT_EQ(KovaLivePushText(pTrack, huge, 0), KOVA_LIVE_ERROR_TOO_LARGE);
    EXPECT_EQ(KovaLiveFiguresOf(pOther).units, 0U);
    EXPECT_EQ(KovaLiveFiguresOf(pOther).dropped_units, 0U);
}
