#include "tests/live/live_host.h"
#include "tests/live/login_fixture.h"
#include "tests/support/sockets.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <string>

// A player who is refused sees a status alone: the operator has to be told why.

namespace {

bool Told(KovaLiveHost *pHost, KovaLiveClient *pClient, const char *szWhy)
{
    const std::string line =
        "127.0.0.1:" + std::to_string(pClient->Rtsp().LocalPort()) + ": " + szWhy;
    return KovaWaitUntil([&] {
        const auto lines = pHost->Lines();
        return std::count(lines.begin(), lines.end(), line) == 1;
    });
}

} // namespace

TEST(LiveRefusedLines, TooManySessions)
{
    KovaLiveHost host([](KovaLiveConfig *pConfig) { pConfig->max_sessions = 1; });
    KovaLiveHost::AddVideo(host.AddStream("cam"));
    KovaLiveClient first;
    ASSERT_TRUE(KovaLivePlayTcp(&first, host));
    KovaLiveClient second;
    ASSERT_TRUE(second.Connect(host.Port()));
    EXPECT_EQ(second.SetupTcp("cam", 1).nStatus, 503);
    EXPECT_TRUE(Told(&host, &second, "too many sessions"));
}

TEST(LiveRefusedLines, NoUdpPorts)
{
    const int nTaken = KovaBind(SOCK_DGRAM, 40203);
    ASSERT_GE(nTaken, 0);
    KovaLiveHost host([](KovaLiveConfig *pConfig) {
        pConfig->udp_first = 40202;
        pConfig->udp_last = 40203;
    });
    KovaLiveHost::AddVideo(host.AddStream("cam"));
    KovaLiveClient client;
    ASSERT_TRUE(client.Connect(host.Port()));
    EXPECT_EQ(client.SetupUdp("cam", 1).nStatus, 503);
    EXPECT_TRUE(Told(&host, &client, "no pair of UDP ports can be had"));
    close(nTaken);
}

TEST(LiveRefusedLines, LoginsFromTheSecondWrongOneOn)
{
    const KovaLiveUser user = {"ann", "secret"};
    KovaLiveHost host([&user](KovaLiveConfig *pConfig) {
        pConfig->users = &user;
        pConfig->user_count = 1;
        pConfig->log_level = KOVA_LIVE_LOG_WARNING;
    });
    KovaLiveHost::AddVideo(host.AddStream("cam"));
    KovaLiveClient client;
    ASSERT_TRUE(client.Connect(host.Port()));
    for (int nTurn = 0; nTurn < 2; nTurn++) {
        const std::string challenge = client.Describe("cam").Header("WWW-Authenticate");
        const size_t nNonce = challenge.find("nonce=\"") + 7;
        KovaPlayerAnswer guess;
        guess.user = "secret";
        guess.nonce = challenge.substr(nNonce, challenge.find('"', nNonce) - nNonce);
        guess.uri = "rtsp://127.0.0.1:" + std::to_string(host.Port()) + "/cam";
        EXPECT_TRUE(host.Lines().empty());
        EXPECT_EQ(
            client
                .Request("DESCRIBE", "cam", "Authorization: " + KovaAuthorizationOf(guess) + "\r\n")
                .nStatus,
            401);
    }
    EXPECT_TRUE(Told(&host, &client, "login refused"));
    EXPECT_EQ(host.Lines().size(), 1U) << "and nothing of what was guessed";
}
