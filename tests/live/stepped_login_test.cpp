#include "tests/live/login_fixture.h"
#include "tests/live/stepped_server.h"
#include "tests/support/rtsp_text.h"

#include <gtest/gtest.h>

#include <string>

// How long a wrong login waits for its answer, and what the answer says.

namespace {

struct SteppedLogin : testing::Test {
    KovaSteppedServer server;
    KovaLiveClient client;

    void SetUp() override
    {
        static const KovaLiveUser user = {"anna", "pass word"};
        KovaLiveHost::AddVideo(server.AddStream("cam", [](KovaLiveStreamConfig *pConfig) {
            pConfig->users = &user;
            pConfig->user_count = 1;
        }));
        ASSERT_TRUE(client.Connect(server.Port()));
    }
    /// Sends a login for the nonce of a challenge.
    void Send(const KovaLiveAnswer &challenge, const char *szPassword)
    {
        SendBy(&client, challenge, szPassword);
    }
    void SendBy(KovaLiveClient *pClient, const KovaLiveAnswer &challenge, const char *szPassword,
                const char *szMethod = "DESCRIBE", const std::string &lines = {})
    {
        const std::string text = challenge.text;
        const size_t nNonce = text.find("nonce=\"") + 7;
        KovaPlayerAnswer login;
        login.nonce = text.substr(nNonce, text.find('"', nNonce) - nNonce);
        login.uri = "rtsp://127.0.0.1:" + std::to_string(server.Port()) + "/cam";
        login.password = szPassword;
        login.method = szMethod;
        ASSERT_TRUE(pClient->Send(pClient->Text(
            szMethod, "cam", "Authorization: " + KovaAuthorizationOf(login) + "\r\n" + lines)));
        server.Run();
    }
    static bool IsStale(const KovaLiveAnswer &answer)
    {
        return answer.text.find("stale=true") != std::string::npos;
    }
};

} // namespace

TEST_F(SteppedLogin, GuessesWaitForTheirAnswer)
{
    KovaLiveAnswer answer;
    server.Serve([&] { answer = client.Describe("cam"); });
    EXPECT_EQ(answer.nStatus, 401);
    EXPECT_FALSE(IsStale(answer));
    Send(answer, "guess");
    answer = client.Receive();
    EXPECT_EQ(answer.nStatus, 401) << "the first one at once";
    for (const uint64_t nWait : {250000U, 500000U}) {
        Send(answer, "guess");
        answer = server.AnswerAfter(&client, nWait);
        EXPECT_EQ(answer.nStatus, 401);
        EXPECT_FALSE(IsStale(answer));
    }
    EXPECT_EQ(server.Figures().logins_failed, 3U);
}

TEST_F(SteppedLogin, WhoWasNotLookedAtMayComeAgainWithTheSamePassword)
{
    KovaLiveClient guesser;
    KovaLiveAnswer answers[2];
    server.Serve([&] {
        answers[0] = client.Describe("cam");
        EXPECT_TRUE(guesser.Connect(server.Port()));
        answers[1] = guesser.Describe("cam");
    });
    for (int nGuess = 0; nGuess < 2; nGuess++)
        SendBy(&guesser, answers[1], "guess");
    Send(answers[0], "pass word");
    const KovaLiveAnswer answer = server.AnswerAfter(&client, 250000);
    EXPECT_EQ(answer.nStatus, 401);
    EXPECT_TRUE(IsStale(answer)) << "players ask their users otherwise";
    Send(answer, "pass word");
    EXPECT_EQ(client.Receive().nStatus, 200);
}

TEST_F(SteppedLogin, PlayersAreListedWithTheirUser)
{
    KovaLiveAnswer answer;
    server.Serve([&] { answer = client.Describe("cam"); });
    SendBy(&client, answer, "pass word", "SETUP", KovaTransportLine(KovaTcpTransport(0)));
    answer = client.Receive();
    ASSERT_EQ(answer.nStatus, 200);
    client.SetSession(answer.Header("Session").substr(0, 16));
    server.Serve([&] { EXPECT_EQ(client.Play("cam").nStatus, 200); });
    ASSERT_EQ(server.Players().size(), 1U);
    EXPECT_STREQ(server.Players()[0].user, "anna");
}
