#include "tests/support/fake_clock.h"
#include "tests/support/stdout_capture.h"
#include "tests/support/test_server.h"

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>
#include <vector>

namespace {

constexpr size_t kPlayers = 200;
constexpr int64_t kNoon = 1'700'000'000'000'000;

/// Every connection starts the random numbers anew with the second of its time.
/// Here all connections have the same second.
class SameSecondPlayers : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(server.IsUp());
        clock.Fix(kNoon);
        // Each SETUP right behind the connection that starts the numbers anew.
        for (size_t i = 0; i < kPlayers; i++) {
            players.push_back(std::make_unique<KovaRtspTestClient>());
            ASSERT_TRUE(server.Connect(players[i].get()));
            ASSERT_EQ(players[i]->SetupTcp("live", 96, 0).nStatus, 200);
            ids.insert(players[i]->Session());
        }
    }

    /// One packet of its own for everybody who plays. It goes out at once: its
    /// time stamp is far behind that of the previous one.
    void Push(size_t nRound)
    {
        std::string unit = KovaTestAacFrame(20);
        unit.back() = static_cast<char>(nRound);
        KovaPush(server.Stream(), 96, unit, 1000 + static_cast<uint32_t>(nRound) * 2000);
    }

    /// The next packet is that of the round; sender reports come in between.
    static bool Gets(KovaRtspTestClient *pPlayer, size_t nRound)
    {
        KovaTestFrame frame;
        do {
            if (!pPlayer->NextFrame(&frame, 10000))
                return false;
        } while (frame.nChannel == 1);
        return frame.payload.back() == static_cast<char>(nRound);
    }

    KovaStdoutCapture capture;
    KovaTestServer server{{"live", 1000, true}};
    std::vector<std::unique_ptr<KovaRtspTestClient>> players;
    std::set<std::string> ids;
    KovaFakeClock clock;
};

TEST_F(SameSecondPlayers, HaveSessionsOfTheirOwn)
{
    EXPECT_EQ(ids.size(), kPlayers);
    EXPECT_EQ(server.SessionCount(), kPlayers);
    for (const std::string &id : ids)
        EXPECT_EQ(id.find_first_not_of("0123456789"), std::string::npos) << id;
    for (const std::string &id : ids)
        EXPECT_EQ(id.size(), 11U);
}

TEST_F(SameSecondPlayers, TeardownEndsNobodyElsesMedia)
{
    for (const auto &pPlayer : players)
        ASSERT_EQ(pPlayer->Play("live").nStatus, 200);
    ASSERT_EQ(server.Stream()->nClientCount.load(), static_cast<int32_t>(kPlayers));
    for (size_t nRound = 0; nRound < kPlayers; nRound++) {
        Push(nRound);
        for (size_t i = nRound; i < kPlayers; i++)
            ASSERT_TRUE(Gets(players[i].get(), nRound)) << "player " << i << " round " << nRound;
        ASSERT_EQ(players[nRound]->Teardown("live").text,
                  "RTSP/1.0 200 OK\r\nCSeq: 3\r\nCache-Control: no-cache\r\n\r\n");
        ASSERT_EQ(server.Stream()->nClientCount.load(),
                  static_cast<int32_t>(kPlayers - nRound - 1));
        ASSERT_EQ(server.SessionCount(), kPlayers - nRound - 1);
    }
    // Those who left got nothing afterwards.
    for (const auto &pPlayer : players)
        EXPECT_TRUE(pPlayer->IsSilent(0));
}

} // namespace
