#include "tests/live/login_fixture.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace {

TEST_F(LoginTest, FailuresSlowDownTheirAddressAlone)
{
    KovaPlayerAnswer wrong = Challenged();
    wrong.password = "guess";
    EXPECT_EQ(Check(wrong), kLoginChallenge);
    EXPECT_EQ(m_nDelay, 0U) << "people mistype";
    wrong.user = "nobody";
    EXPECT_EQ(Check(wrong), kLoginChallenge);
    EXPECT_EQ(m_nDelay, 250U) << "who does not exist counts alike";
    EXPECT_EQ(Check(wrong), kLoginSlow);
    EXPECT_EQ(m_nDelay, 250U);
    EXPECT_EQ(CheckHeader(&m_state, ""), kLoginChallenge) << "a first request is no guess";
    EXPECT_EQ(m_nDelay, 0U);

    KovaPlayerAnswer right = Challenged();
    EXPECT_EQ(Check(right), kLoginSlow) << "not looked at, or guessing in parallel would be free";
    EXPECT_EQ(CheckHeader(&m_state, KovaAuthorizationOf(right), right.uri, kPlayer + 1),
              kLoginPassed);
    right = Challenged();
    m_state.szUser[0] = '\0';
    m_nNow += 249999;
    EXPECT_EQ(Check(right), kLoginSlow);
    EXPECT_EQ(m_nDelay, 1U);
    m_nNow++;
    EXPECT_EQ(Check(right), kLoginPassed);
    wrong = Challenged();
    wrong.password = "guess";
    EXPECT_EQ(Check(wrong), kLoginChallenge);
    EXPECT_EQ(m_nDelay, 0U) << "a right answer clears";
}

TEST_F(LoginTest, WhoIsInIsNotSlowedByOthersOfTheAddress)
{
    KovaPlayerAnswer right = Challenged();
    ASSERT_EQ(Check(right), kLoginPassed);
    KovaLoginState other = {};
    KovaPlayerAnswer wrong = Challenged(&other);
    wrong.password = "guess";
    CheckHeader(&other, KovaAuthorizationOf(wrong));
    CheckHeader(&other, KovaAuthorizationOf(wrong));
    ASSERT_EQ(CheckHeader(&other, KovaAuthorizationOf(wrong)), kLoginSlow);
    right.count = "00000002";
    EXPECT_EQ(Check(right), kLoginPassed);
}

TEST_F(LoginTest, WhoIsInAnswersForOthersAsSlowlyAsAnybody)
{
    KovaPlayerAnswer right = Challenged();
    ASSERT_EQ(Check(right), kLoginPassed);
    KovaLoginState other = {};
    KovaPlayerAnswer wrong = Challenged(&other);
    wrong.password = "guess";
    CheckHeader(&other, KovaAuthorizationOf(wrong));
    CheckHeader(&other, KovaAuthorizationOf(wrong));
    right.user = "bert";
    right.count = "00000002";
    EXPECT_EQ(Check(right), kLoginSlow);
}

TEST_F(LoginTest, NobodyHasNoSecret)
{
    // The response that the digests of an unknown user, all zero, would make.
    KovaPlayerAnswer answer = Challenged();
    answer.user = "nobody";
    answer.count.clear();
    std::string header = KovaAuthorizationOf(answer);
    const std::string response =
        KovaHexHash(kHashMd5, std::string(32, '0') + ":" + answer.nonce + ":" +
                                  KovaHexHash(kHashMd5, answer.method + ":" + answer.uri));
    header.replace(header.find("response=\"") + 10, 32, response);
    EXPECT_EQ(CheckHeader(&m_state, header), kLoginChallenge);
}

TEST_F(LoginTest, OfTwoUsersOfOneNameTheFirstCounts)
{
    const KovaLiveUser users[] = {{"anna", "one"}, {"anna", "two"}};
    KovaLoginUsersDestroy(m_pUsers);
    ASSERT_EQ(KovaLoginUsersCreate(users, 2, "Kova", &m_pUsers), KOVA_LIVE_OK);
    KovaPlayerAnswer answer = Challenged();
    answer.password = "two";
    EXPECT_EQ(Check(answer), kLoginChallenge);
    answer.password = "one";
    EXPECT_EQ(Check(answer), kLoginPassed);
}

TEST_F(LoginTest, WhoIsInGuessesNobodyElsesPasswordFaster)
{
    KovaPlayerAnswer answer = Challenged();
    ASSERT_EQ(Check(answer), kLoginPassed);
    answer.user = "bert";
    answer.count = "00000002";
    EXPECT_EQ(Check(answer), kLoginChallenge);
    EXPECT_STREQ(m_state.szUser, "");
    EXPECT_EQ(Check(answer), kLoginChallenge);
    EXPECT_EQ(Check(answer), kLoginSlow);
    answer.user = "anna";
    EXPECT_EQ(Check(answer), kLoginSlow) << "the own name is no way around it either";
}

TEST_F(LoginTest, WrongAnswersCountFromTheFirstOn)
{
    EXPECT_EQ(CheckHeader(&m_state, ""), kLoginChallenge);
    KovaPlayerAnswer answer = Challenged();
    EXPECT_EQ(Check(answer), kLoginPassed);
    EXPECT_EQ(KovaLoginFailed(m_pLogin), 0U);
    answer = Challenged();
    answer.password = "guess";
    EXPECT_EQ(Check(answer), kLoginChallenge);
    EXPECT_EQ(m_nDelay, 0U);
    EXPECT_EQ(KovaLoginFailed(m_pLogin), 1U);
    KovaLoginState others = {};
    answer = Challenged(&others);
    answer.user = "nobody";
    EXPECT_EQ(CheckHeader(&others, KovaAuthorizationOf(answer)), kLoginChallenge);
    EXPECT_EQ(KovaLoginFailed(m_pLogin), 2U);
    EXPECT_EQ(CheckHeader(&others, KovaAuthorizationOf(answer)), kLoginSlow) << "not looked at";
    EXPECT_EQ(KovaLoginFailed(m_pLogin), 2U);
}

TEST_F(LoginTest, AStaleAnswerClearsNoFailures)
{
    KovaPlayerAnswer wrong = Challenged();
    wrong.password = "guess";
    Check(wrong);
    Check(wrong);
    m_nNow += kSecond;
    KovaPlayerAnswer stale = Challenged();
    Challenged();
    EXPECT_EQ(Check(stale), kLoginStale);
    EXPECT_EQ(Check(wrong), kLoginChallenge);
    EXPECT_EQ(m_nDelay, 500U);
}

TEST_F(LoginTest, ThreadsShareIt)
{
    std::vector<std::thread> threads;
    for (uint32_t nThread = 0; nThread < 4; nThread++) {
        threads.emplace_back([this, nThread] {
            KovaRequest request = {};
            request.methodText = "DESCRIBE";
            request.url = "rtsp://10.0.0.2:554/house/cam/";
            request.nHeaders = 1;
            for (uint32_t nRound = 0; nRound < 100; nRound++) {
                KovaLoginState state = {};
                char text[1024];
                EXPECT_TRUE(
                    KovaLoginChallenge(m_pLogin, &state, false, m_nNow, text, sizeof(text)));
                KovaPlayerAnswer answer;
                answer.nonce = state.szNonce;
                const bool bWrong = nRound % 2 != 0;
                if (bWrong)
                    answer.password = "guess";
                const std::string header = KovaAuthorizationOf(answer);
                request.headers[0] = {"Authorization", header};
                uint32_t nDelay = 0;
                // Each round an address of its own, so that nobody is slow.
                EXPECT_EQ(KovaLoginCheck(m_pLogin, m_pUsers, &state, request, "house/cam",
                                         nThread * 1000 + nRound, m_nNow, &nDelay),
                          bWrong ? kLoginChallenge : kLoginPassed);
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();
}

} // namespace
