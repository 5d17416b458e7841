#include "tests/hostile_client/scenarios.h"
#include "tests/robustness/well_behaved_players.h"

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>

namespace {

constexpr int kSpare = 40;

/// Somebody else's process opens more connections than the server may have
/// descriptors.
class DescriptorLimit : public WellBehavedPlayers {
protected:
    void SetUp() override
    {
        WellBehavedPlayers::SetUp();
        ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    }

    void TearDown() override
    {
        setrlimit(RLIMIT_NOFILE, &limit);
    }

    void Allow(int nDescriptors)
    {
        const struct rlimit tight = {static_cast<rlim_t>(nDescriptors), limit.rlim_max};
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &tight), 0);
    }

    /// Starts the broken client as a process of its own.
    pid_t Bother(const char *szScenario, const char *szCount, const char *szHold)
    {
        const std::string port = std::to_string(server->Port());
        const pid_t nPid = fork();
        if (nPid != 0)
            return nPid;
        setrlimit(RLIMIT_NOFILE, &limit);
        execl(KOVA_HOSTILE_CLIENT, KOVA_HOSTILE_CLIENT, "127.0.0.1", port.c_str(), "live",
              szScenario, szCount, szHold, nullptr);
        _exit(127);
    }

    static int ExitStatus(pid_t nPid)
    {
        int nStatus = -1;
        const bool bEnded =
            KovaWaitUntil(30000, [&] { return waitpid(nPid, &nStatus, WNOHANG) == nPid; });
        if (!bEnded) {
            kill(nPid, SIGKILL);
            waitpid(nPid, &nStatus, 0);
        }
        return WIFEXITED(nStatus) ? WEXITSTATUS(nStatus) : -1;
    }

    struct rlimit limit = {};
};

TEST_F(DescriptorLimit, IdleFloodLeavesThePlayersAloneAndEndsWithTheFlood)
{
    const State before = Now();
    Allow(before.nDescriptors + kSpare);
    const pid_t nPid = Bother("idle-flood", "150", "2000");
    ASSERT_GT(nPid, 0);

    // All descriptors are taken; those who play get every packet in time.
    ASSERT_TRUE(KovaWaitUntil(10000, [&] {
        return server->HandlerCount() >= before.nHandlers + static_cast<unsigned>(kSpare) - 4;
    }));
    for (const auto &pPlayer : players)
        pPlayer->TakeLargestAge(script->Video());
    ExpectPlaying();
    for (const auto &pPlayer : players)
        EXPECT_LT(pPlayer->TakeLargestAge(script->Video()), 2000);

    // Whoever has a connection is served, also by a SETUP that finds no ports.
    const std::string answer = players[0]->Ask(players[0]->Format("GET_PARAMETER", "live"));
    EXPECT_EQ(answer.substr(0, 17), "RTSP/1.0 200 OK\r\n");
    const std::string noPorts = players[0]->Ask(players[0]->Format(
        "SETUP", "live/trackID=97", "Transport: RTP/AVP;unicast;client_port=5000-5001\r\n"));
    EXPECT_NE(noPorts.find("client_port=5000-5001;server_port=0-0;"), std::string::npos) << noPorts;

    // The flood itself asks afterwards whether the server answers.
    EXPECT_EQ(ExitStatus(nPid), 0);
    setrlimit(RLIMIT_NOFILE, &limit);
    ExpectGivenBack(before);
    EXPECT_EQ(server->Server()->nListenState.load(), 2U);
    KovaRtspTestClient newcomer;
    ASSERT_TRUE(newcomer.Connect(server->Port()));
    EXPECT_EQ(newcomer.Describe("live").nStatus, 200);
    newcomer.Close();
    ExpectEverythingArrives();
}

TEST_F(DescriptorLimit, UdpSetupsEndAtTheLimitAndHarmNobody)
{
    const State before = Now();
    Allow(before.nDescriptors + kSpare);
    const pid_t nPid = Bother("udp-setup-flood", "30", "0");
    ASSERT_GT(nPid, 0);
    // The client that asks whether the server still answers waits for a
    // descriptor, which the end of its flood gives back.
    EXPECT_TRUE(KovaWaitUntil(10000, [&] { return KovaDescriptorCount() > before.nDescriptors; }));
    ExpectPlaying();
    EXPECT_EQ(ExitStatus(nPid), 0);
    setrlimit(RLIMIT_NOFILE, &limit);
    ExpectGivenBack(before);
    ExpectPlaying();
}

TEST_F(DescriptorLimit, BrokenClientIsAProgramToo)
{
    EXPECT_EQ(ExitStatus(Bother("slow-loris", "1", "0")), 0);
    EXPECT_EQ(ExitStatus(Bother("list", "1", "0")), 0);
    EXPECT_EQ(ExitStatus(Bother("no-such-scenario", "1", "0")), 2);
    const std::string printed = capture.Text();
    EXPECT_NE(printed.find("slow-loris              done, the server answers\n"),
              std::string::npos);
    for (const KovaHostileScenario &scenario : KovaHostileScenarios())
        EXPECT_NE(printed.find("\n" + std::string(scenario.szName) + " "), std::string::npos);
}

} // namespace
