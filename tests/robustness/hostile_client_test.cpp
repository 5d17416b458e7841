#include "tests/hostile_client/scenarios.h"
#include "tests/robustness/well_behaved_players.h"

#include <gtest/gtest.h>

namespace {

constexpr unsigned kCount = 30;
constexpr unsigned kHoldMilliseconds = 300;

using Family = const std::vector<KovaHostileScenario> &(*)();

/// The broken clients, each while others play, and one family on one server.
class HostileClient : public WellBehavedPlayers {
protected:
    void Suffer(Family pfnFamily)
    {
        const KovaHostileTarget target = {"127.0.0.1", server->Port(), "live", kCount,
                                          kHoldMilliseconds};
        const State before = Now();
        for (const KovaHostileScenario &scenario : pfnFamily()) {
            SCOPED_TRACE(scenario.szName);
            EXPECT_TRUE(scenario.pfnRun(target));
            EXPECT_TRUE(KovaHostileServerAnswers(target));
            ExpireStrangers();
            ExpectPlaying();
        }
        ExpectGivenBack(before);
        ExpectEverythingArrives();
    }
};

TEST_F(HostileClient, BrokenRequestsHarmNobody)
{
    Suffer(KovaHostileRequestScenarios);
}

TEST_F(HostileClient, BrokenConnectionsHarmNobody)
{
    Suffer(KovaHostileConnectionScenarios);
}

TEST_F(HostileClient, BrokenPlayersLoseNobodyAPacket)
{
    Suffer(KovaHostileMediaScenarios);
}

/// PLAY without a session raises the count of clients; at the maximum, SETUP is
/// refused. Those who play go on.
TEST_F(HostileClient, PlayFloodKeepsNewPlayersOutAndNobodyElse)
{
    const KovaHostileTarget target = {"127.0.0.1", server->Port(), "live", 1000, 0};
    EXPECT_TRUE(KovaHostileFind("play-flood")->pfnRun(target));
    EXPECT_EQ(server->Stream()->nClientCount.load(), 1002);
    KovaRtspTestClient client;
    ASSERT_TRUE(client.Connect(server->Port()));
    EXPECT_EQ(client.SetupTcp("live", 97, 0).text, "RTSP/1.0 403 Forbidden\r\n\r\n");
    EXPECT_EQ(client.Options("live").nStatus, 200);
    ExpectPlaying();
}

} // namespace
