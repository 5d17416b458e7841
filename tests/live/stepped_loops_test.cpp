#include "live/engine/connection.h"
#include "tests/live/stepped_server.h"
#include "tests/support/sockets.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

// Two loops: who serves whom, and that both get what concerns them.

namespace {

struct SteppedLoops : testing::Test {
    KovaSteppedServer server{2};
    KovaLiveStream *pStream = server.AddStream("cam");
    KovaLiveTrack *pVideo = KovaLiveHost::AddVideo(pStream);
    KovaLiveClient clients[4];
    unsigned nPicture = 0;

    /// Connects, and lets the loop that takes it begin.
    void Connect(KovaLiveClient *pClient)
    {
        ASSERT_TRUE(pClient->Connect(server.Port()));
        server.Run();
    }
    uint32_t Connections(uint32_t nLoop) const
    {
        uint32_t nCount = 0;
        for (const KovaLiveConnection *pConnection = server.Loop(nLoop)->pConnections;
             pConnection != nullptr; pConnection = pConnection->pNext)
            nCount++;
        EXPECT_EQ(server.Loop(nLoop)->nLoad, nCount);
        return nCount;
    }
    void ExpectNext(std::initializer_list<KovaLiveClient *> players)
    {
        nPicture++;
        EXPECT_EQ(KovaLivePushText(pVideo, KovaLiveKey(500, nPicture), 40000 * nPicture),
                  KOVA_LIVE_OK);
        server.Run();
        for (KovaLiveClient *pPlayer : players)
            EXPECT_EQ(KovaLiveSlice(KovaLiveNextUnit(pPlayer, 1)),
                      KovaMediaNal(0x65, 500, nPicture));
    }
};

} // namespace

TEST_F(SteppedLoops, TheLeastBusyOneGetsAConnectionAlsoAfterSomeHaveGone)
{
    for (KovaLiveClient &client : clients)
        Connect(&client);
    EXPECT_EQ(Connections(0), 2U);
    EXPECT_EQ(Connections(1), 2U);
    // The second and the fourth one are the second loop's.
    clients[1].Close();
    clients[3].Close();
    server.Run();
    EXPECT_EQ(Connections(0), 2U);
    EXPECT_EQ(Connections(1), 0U);
    KovaLiveClient more[4];
    for (KovaLiveClient &client : more)
        Connect(&client);
    EXPECT_EQ(Connections(0), 3U);
    EXPECT_EQ(Connections(1), 3U);
}

TEST_F(SteppedLoops, EachGetsEachUnitForWhichItHasPlayers)
{
    ASSERT_TRUE(server.Play(&clients[0], false));
    ASSERT_TRUE(server.Play(&clients[1], true));
    EXPECT_NE(server.Loop(0)->pSessions, nullptr);
    EXPECT_NE(server.Loop(1)->pSessions, nullptr);
    ExpectNext({&clients[0], &clients[1]});
    ExpectNext({&clients[0], &clients[1]});
    // The first loop has none any more, then it alone has one.
    server.Serve([this] { EXPECT_EQ(clients[0].Pause("cam").nStatus, 200); });
    ExpectNext({&clients[1]});
    server.Serve([this] {
        EXPECT_EQ(clients[0].Play("cam").nStatus, 200);
        EXPECT_EQ(clients[1].Pause("cam").nStatus, 200);
    });
    ExpectNext({&clients[0]});
    KovaLiveRtp packet;
    EXPECT_FALSE(clients[1].NextRtp(1, &packet, 0));
    EXPECT_EQ(KovaLiveFiguresOf(pStream).packets, 6U);
    EXPECT_EQ(server.Figures().packets, 6U);
}

TEST_F(SteppedLoops, AStreamThatIsReadyIsToldOnce)
{
    KovaLiveTrack *pLater = KovaLiveHost::AddVideo(server.AddStream("later"), false);
    EXPECT_EQ(KovaLivePushText(pLater, KovaLiveKey(), 0), KOVA_LIVE_OK);
    server.Run();
    EXPECT_EQ(server.Events(KOVA_LIVE_EVENT_STREAM_READY).size(), 1U);
}

TEST_F(SteppedLoops, WhoWaitsForAStreamIsAnsweredOnEachOfThem)
{
    KovaLiveStream *pLater = server.AddStream("later");
    KovaLiveTrack *pTrack = KovaLiveHost::AddVideo(pLater, false);
    for (KovaLiveClient *pClient : {&clients[0], &clients[1]}) {
        Connect(pClient);
        ASSERT_TRUE(pClient->Send(pClient->Text("DESCRIBE", "later")));
    }
    server.Run();
    EXPECT_EQ(KovaLivePushText(pTrack, KovaLiveKey(), 0), KOVA_LIVE_OK);
    server.Run();
    for (KovaLiveClient *pClient : {&clients[0], &clients[1]})
        EXPECT_EQ(pClient->Receive().nStatus, 200);
}

TEST_F(SteppedLoops, ARemovedStreamEndsItsPlayersOnEachOfThem)
{
    for (KovaLiveClient *pClient : {&clients[0], &clients[1]})
        ASSERT_TRUE(server.Play(pClient, false));
    EXPECT_EQ(KovaLiveRemoveStream(pStream), KOVA_LIVE_OK);
    server.Run();
    EXPECT_EQ(server.Figures().sessions, 0U);
    const std::vector<KovaToldEvent> went = server.Events(KOVA_LIVE_EVENT_PLAYER_WENT);
    ASSERT_EQ(went.size(), 2U);
    for (const KovaToldEvent &event : went)
        EXPECT_EQ(event.nReason, KOVA_LIVE_WENT_STREAM);
}

TEST_F(SteppedLoops, ThePlayersOfBothAreListedAndLetGo)
{
    for (KovaLiveClient *pClient : {&clients[0], &clients[1]})
        ASSERT_TRUE(server.Play(pClient, false));
    const std::vector<KovaLivePlayer> players = server.Players();
    ASSERT_EQ(players.size(), 2U);
    EXPECT_NE(players[0].player, players[1].player);
    EXPECT_EQ(server.Figures().players, 2U);
    // As many records as there are players.
    KovaLivePlayer records[2] = {};
    records[0].size = sizeof(records[0]);
    uint32_t nCount = 0;
    EXPECT_EQ(KovaLivePlayers(server.Live(), records, 2, &nCount), KOVA_LIVE_OK);
    EXPECT_EQ(nCount, 2U);
    for (int nRecord = 0; nRecord < 2; nRecord++)
        EXPECT_EQ(records[nRecord].player, players[nRecord].player);
    for (const KovaLivePlayer &player : players)
        EXPECT_EQ(KovaLiveDisconnect(server.Live(), player.player), KOVA_LIVE_OK);
    server.Run();
    EXPECT_EQ(server.Players().size(), 0U);
    EXPECT_EQ(server.Events(KOVA_LIVE_EVENT_PLAYER_WENT).size(), 2U);
}

TEST_F(SteppedLoops, WhatBothHaveRefusedIsCounted)
{
    for (KovaLiveClient *pClient : {&clients[0], &clients[1]}) {
        Connect(pClient);
        ASSERT_TRUE(pClient->Send(std::string(20000, 'A')));
    }
    server.Run();
    EXPECT_EQ(server.Figures().refused, 2U);
}

TEST(SteppedLoopsEnd, AConnectionThatNoLoopTookIsClosed)
{
    const KovaConnection connection = KovaMakeConnection();
    {
        KovaSteppedServer server{2};
        server.Live()->nConnections++;
        KovaLiveConnection *pAccepted = KovaConnectionCreate(connection.nServer, connection.peer);
        ASSERT_NE(pAccepted, nullptr);
        KovaConnectionHand(pAccepted, server.Loop(1), false);
    }
    char end = 0;
    ASSERT_TRUE(KovaWaitReadable(connection.nPlayer, kLiveWaitMs));
    EXPECT_EQ(recv(connection.nPlayer, &end, 1, MSG_DONTWAIT), 0);
    close(connection.nPlayer);
}

TEST(SteppedLoopsEnd, AUnitThatNoLoopTookIsGivenBack)
{
    KovaUnit *pUnit = nullptr;
    {
        KovaSteppedServer server{2};
        KovaLiveTrack *pVideo = KovaLiveHost::AddVideo(server.AddStream("cam"));
        KovaLiveClient client;
        ASSERT_TRUE(server.Play(&client, false));
        EXPECT_EQ(KovaLivePushText(pVideo, KovaLiveKey(), 0), KOVA_LIVE_OK);
        const KovaMutexLock lock(&server.Loop()->inboxMutex, kRankLiveInbox);
        ASSERT_NE(server.Loop()->pInbox, nullptr);
        pUnit = server.Loop()->pInbox->pUnit;
        KovaUnitAddReference(pUnit);
        EXPECT_EQ(pUnit->nReferences, 2U);
    }
    EXPECT_EQ(pUnit->nReferences, 1U);
    KovaUnitRelease(pUnit);
}

TEST(SteppedLoopsEnd, EachTimerHasItsPlace)
{
    KovaSteppedServer server;
    KovaLiveHost::AddVideo(server.AddStream("cam"));
    constexpr uint32_t kOwn = 3;
    EXPECT_EQ(server.Loop()->timers.nOwners, kOwn);
    for (int nTurn = 0; nTurn < 3; nTurn++) {
        KovaLiveClient client;
        ASSERT_TRUE(server.Play(&client, false));
        EXPECT_EQ(server.Loop()->timers.nOwners, kOwn + 2) << "of the connection and its session";
        client.Close();
        server.Run();
        EXPECT_EQ(server.Loop()->timers.nOwners, kOwn);
    }
}

TEST(LiveLoopsOfThreads, EachKnowsThatItIsTheCaller)
{
    KovaLiveHost host([](KovaLiveConfig *pConfig) { pConfig->threads = 2; });
    KovaLiveStream *pStream = host.AddStream("cam");
    KovaLiveHost::AddVideo(pStream);
    std::atomic<int> nRight{0};
    host.onEvent = [&](const KovaLiveEvent &event) {
        if (event.type == KOVA_LIVE_EVENT_PLAYER_CAME)
            nRight += KovaLiveRemoveStream(pStream) == KOVA_LIVE_ERROR_IN_CALLBACK ? 1 : 0;
    };
    KovaLiveClient clients[2];
    for (KovaLiveClient &client : clients)
        ASSERT_TRUE(KovaLivePlayTcp(&client, host));
    host.WaitEvent(KOVA_LIVE_EVENT_PLAYER_CAME, 2);
    EXPECT_EQ(nRight, 2);
}
