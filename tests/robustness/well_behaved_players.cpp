#include "tests/robustness/well_behaved_players.h"

#include "tests/support/server_records.h"

#include <algorithm>

void WellBehavedPlayers::SetUp()
{
    ASSERT_TRUE(server->IsUp());
    KovaTestServer::MakeReady(server->Stream());
    script =
        std::make_unique<KovaMediaScript>(server->Stream(), KovaScriptPlan{120, 15, 2500, 30, 200});
    for (int i = 0; i < 2; i++) {
        players.push_back(std::make_unique<KovaWatchingPlayer>());
        KovaWatchingPlayer &player = *players.back();
        ASSERT_TRUE(player.Connect(server->Port()));
        ASSERT_TRUE(player.Setup("live", *script, script->Audio(), 0));
        ASSERT_TRUE(player.Setup("live", *script, script->Video(), 2));
        ASSERT_TRUE(player.Play("live"));
    }
    script->Start();
    ExpectPlaying();
}

void WellBehavedPlayers::ExpireStrangers()
{
    KovaForEachSession(server->Server(), [this](KovaRtspSession *pSession) {
        const bool bOurs = std::any_of(players.begin(), players.end(), [&](const auto &pPlayer) {
            return pPlayer->Session() == pSession->szSessionId;
        });
        if (!bOurs)
            pSession->tExpire = 1;
    });
}

WellBehavedPlayers::State WellBehavedPlayers::Now()
{
    return {KovaDescriptorCount(),  KovaThreadCount(),          server->HandlerCount(),
            server->SessionCount(), server->Clients(96).size(), server->Clients(97).size()};
}

void WellBehavedPlayers::ExpectGivenBack(const State &before)
{
    // Requests under way may still make sessions: expire more than once.
    State now = {};
    KovaWaitUntil(15000, [&] {
        ExpireStrangers();
        now = Now();
        return now.nDescriptors == before.nDescriptors && now.nThreads == before.nThreads &&
               now.nHandlers == before.nHandlers && now.nSessions == before.nSessions &&
               now.nAudioClients == before.nAudioClients &&
               now.nVideoClients == before.nVideoClients;
    });
    EXPECT_EQ(now.nDescriptors, before.nDescriptors);
    EXPECT_EQ(now.nThreads, before.nThreads);
    EXPECT_EQ(now.nHandlers, before.nHandlers);
    EXPECT_EQ(now.nSessions, before.nSessions);
    EXPECT_EQ(now.nAudioClients, before.nAudioClients);
    EXPECT_EQ(now.nVideoClients, before.nVideoClients);
}

size_t WellBehavedPlayers::LeastReceived(const std::vector<size_t> &before)
{
    size_t nLeast = SIZE_MAX;
    for (size_t i = 0; i < before.size(); i++)
        nLeast = std::min(nLeast, Counts()[i] - before[i]);
    return nLeast;
}

std::vector<size_t> WellBehavedPlayers::Counts()
{
    std::vector<size_t> counts;
    for (const auto &pPlayer : players) {
        counts.push_back(pPlayer->Received(script->Audio()));
        counts.push_back(pPlayer->Received(script->Video()));
    }
    return counts;
}

void WellBehavedPlayers::ExpectPlaying(int nMilliseconds)
{
    const std::vector<size_t> before = Counts();
    EXPECT_TRUE(KovaWaitUntil(nMilliseconds, [&] { return LeastReceived(before) >= 5; }));
    for (const auto &pPlayer : players) {
        EXPECT_EQ(pPlayer->Fault(), "");
        EXPECT_FALSE(pPlayer->HasEnded());
    }
}

void WellBehavedPlayers::ExpectEverythingArrives(int nMilliseconds)
{
    script->Stop();
    for (const auto &pPlayer : players) {
        for (const KovaScriptTrack *pTrack : {&script->Audio(), &script->Video()}) {
            const int nEnd = static_cast<int>(script->Pushed(*pTrack));
            EXPECT_TRUE(KovaWaitUntil(nMilliseconds,
                                      [&] { return pPlayer->NextSequence(*pTrack) == nEnd; }))
                << pPlayer->NextSequence(*pTrack) << " of " << nEnd;
            EXPECT_EQ(pPlayer->Received(*pTrack), static_cast<size_t>(nEnd));
        }
        EXPECT_EQ(pPlayer->Fault(), "");
    }
}
