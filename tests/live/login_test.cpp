#include "tests/live/login_fixture.h"
#include "tests/support/failing_heap.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

TEST_F(LoginTest, NobodyNeedsALoginWithoutUsers)
{
    KovaLoginUsers *pNone = m_pUsers;
    const KovaLiveUser user = {"anna", "x"};
    EXPECT_EQ(KovaLoginUsersCreate(&user, 0, "Kova", &pNone), KOVA_LIVE_OK);
    EXPECT_EQ(pNone, nullptr);
    uint32_t nDelay = 7;
    const KovaRequest request = {};
    EXPECT_EQ(KovaLoginCheck(m_pLogin, nullptr, &m_state, request, "cam", kPlayer, m_nNow, &nDelay),
              kLoginPassed);
    EXPECT_EQ(nDelay, 0U);
    EXPECT_STREQ(m_state.szUser, "");
    KovaLoginUsersDestroy(nullptr);
    KovaLoginDestroy(nullptr);
}

TEST_F(LoginTest, UsersThatNoHeaderCouldNameAreRefused)
{
    KovaLoginUsers *pUsers = m_pUsers;
    for (const char *szName :
         {static_cast<const char *>(nullptr), "", "a:b", "a\"b", "a\nb", "\x7F"}) {
        const KovaLiveUser users[] = {{"good", "x"}, {szName, "x"}};
        EXPECT_EQ(KovaLoginUsersCreate(users, 2, "Kova", &pUsers), KOVA_LIVE_ERROR_ARGUMENT);
        EXPECT_EQ(pUsers, nullptr);
    }
    const KovaLiveUser none = {"anna", nullptr};
    EXPECT_EQ(KovaLoginUsersCreate(&none, 1, "Kova", &pUsers), KOVA_LIVE_ERROR_ARGUMENT);
    EXPECT_EQ(KovaLoginUsersCreate(nullptr, 1, "Kova", &pUsers), KOVA_LIVE_ERROR_ARGUMENT);
    const std::vector<KovaLiveUser> many(kLoginMaxUsers + 1, {"anna", "x"});
    EXPECT_EQ(KovaLoginUsersCreate(many.data(), kLoginMaxUsers + 1, "Kova", &pUsers),
              KOVA_LIVE_ERROR_ARGUMENT);
    const KovaLiveUser good = {"anna", ""};
    const std::string longest(kLoginRealmSize - 1, 'r');
    for (const std::string &realm : {std::string(), std::string("a\"b"), std::string("a\\b"),
                                     std::string("a\r\nb"), longest + "r"}) {
        EXPECT_EQ(KovaLoginUsersCreate(&good, 1, realm.c_str(), &pUsers), KOVA_LIVE_ERROR_ARGUMENT);
        EXPECT_EQ(KovaLoginCreate(realm.c_str()), nullptr);
    }
    EXPECT_EQ(KovaLoginUsersCreate(&good, 1, nullptr, &pUsers), KOVA_LIVE_ERROR_ARGUMENT);
    EXPECT_EQ(KovaLoginCreate(nullptr), nullptr);
    EXPECT_EQ(KovaLoginUsersCreate(&good, 1, longest.c_str(), &pUsers), KOVA_LIVE_OK);
    KovaLoginUsersDestroy(pUsers);
}

TEST_F(LoginTest, WithoutMemoryThereIsNothing)
{
    const KovaLiveUser user = {"anna", "x"};
    KovaLoginUsers *pUsers = m_pUsers;
    const KovaFailingHeap heap;
    EXPECT_EQ(KovaLoginUsersCreate(&user, 1, "Kova", &pUsers), KOVA_LIVE_ERROR_MEMORY);
    EXPECT_EQ(pUsers, nullptr);
    EXPECT_EQ(KovaLoginCreate("Kova"), nullptr);
}

TEST_F(LoginTest, ACheckTakesNoMemory)
{
    const std::string header = KovaAuthorizationOf(Challenged());
    const KovaFailingHeap heap;
    EXPECT_EQ(CheckHeader(&m_state, header), kLoginPassed);
    EXPECT_EQ(CheckHeader(&m_state, header), kLoginStale);
    Challenged();
    EXPECT_EQ(heap.Failed(), 0);
}

TEST_F(LoginTest, ChallengesHaveOneNonceAndMd5Last)
{
    char text[1024];
    ASSERT_TRUE(KovaLoginChallenge(m_pLogin, &m_state, false, m_nNow, text, sizeof(text)));
    const std::string nonce = m_state.szNonce;
    EXPECT_EQ(nonce.size(), 64U);
    EXPECT_EQ(nonce.find_first_not_of("0123456789abcdef"), std::string::npos);
    EXPECT_EQ(std::string(text), "WWW-Authenticate: Digest realm=\"Kova\", nonce=\"" + nonce +
                                     "\", algorithm=SHA-256, qop=\"auth\"\r\n"
                                     "WWW-Authenticate: Digest realm=\"Kova\", nonce=\"" +
                                     nonce + "\", algorithm=MD5, qop=\"auth\"\r\n");
    ASSERT_TRUE(KovaLoginChallenge(m_pLogin, &m_state, true, m_nNow, text, sizeof(text)));
    const std::string next = m_state.szNonce;
    EXPECT_NE(next, nonce);
    EXPECT_EQ(std::string(text), "WWW-Authenticate: Digest realm=\"Kova\", nonce=\"" + next +
                                     "\", stale=true, algorithm=SHA-256, qop=\"auth\"\r\n"
                                     "WWW-Authenticate: Digest realm=\"Kova\", nonce=\"" +
                                     next + "\", stale=true, algorithm=MD5, qop=\"auth\"\r\n");
}

TEST_F(LoginTest, AChallengeThatDoesNotFitGivesNothing)
{
    char text[1024];
    ASSERT_TRUE(KovaLoginChallenge(m_pLogin, &m_state, true, m_nNow, text, sizeof(text)));
    const size_t nLength = strlen(text);
    const KovaLoginState before = m_state;
    for (size_t nCapacity = 0; nCapacity <= nLength; nCapacity++) {
        std::vector<char> room(nCapacity, '#');
        EXPECT_FALSE(
            KovaLoginChallenge(m_pLogin, &m_state, true, m_nNow + 1, room.data(), nCapacity));
        EXPECT_TRUE(room.empty() || room[0] == '\0');
        EXPECT_STREQ(m_state.szNonce, before.szNonce);
        EXPECT_EQ(m_state.nGiven, before.nGiven);
    }
    std::vector<char> room(nLength + 1);
    EXPECT_TRUE(KovaLoginChallenge(m_pLogin, &m_state, true, m_nNow, room.data(), room.size()));
}

TEST_F(LoginTest, BothAlgorithmsPassWithQop)
{
    KovaPlayerAnswer answer = Challenged();
    EXPECT_EQ(Check(answer), kLoginPassed);
    EXPECT_STREQ(m_state.szUser, "anna");
    answer.count = "00000002";
    answer.algorithm = "";
    EXPECT_EQ(Check(answer), kLoginPassed) << "MD5 is meant when nothing is said";
    answer.count = "00000003";
    answer.pAlgorithm = &kHashSha256;
    answer.algorithm = "algorithm=\"sha-256\", ";
    EXPECT_EQ(Check(answer), kLoginPassed);
    answer.count = "0000000A";
    answer.algorithm = "algorithm=SHA-256, ";
    answer.user = "bert";
    answer.password = "geheim";
    EXPECT_EQ(Check(answer), kLoginPassed);
    EXPECT_STREQ(m_state.szUser, "bert");
    EXPECT_EQ(m_nDelay, 0U);
}

/// The headers of players as they send them; response and nonce are put in.
TEST_F(LoginTest, AnswersOfPlayersPass)
{
    const std::string url = "rtsp://10.0.0.2:554/house/cam/";
    const std::string secret = KovaHexHash(kHashMd5, "anna:Kova:pass word");
    const std::string request = KovaHexHash(kHashMd5, "DESCRIBE:" + url);
    const std::string nonce = Challenged().nonce;
    const std::string head = "Digest username=\"anna\", realm=\"Kova\", nonce=\"" + nonce +
                             "\", uri=\"" + url + "\", response=\"";
    const std::string old = KovaHexHash(kHashMd5, secret + ":" + nonce + ":" + request);
    const auto counted = [&](const std::string &count, const std::string &cnonce) {
        return KovaHexHash(kHashMd5,
                           secret + ":" + nonce + ":" + count + ":" + cnonce + ":auth:" + request);
    };
    EXPECT_EQ(CheckHeader(&m_state, head + old + "\""), kLoginPassed) << "GStreamer";
    EXPECT_EQ(CheckHeader(&m_state, head + counted("00000001", "6bd5e8c1c4d64a16") +
                                        "\", algorithm=\"MD5\", qop=\"auth\", "
                                        "cnonce=\"6bd5e8c1c4d64a16\", nc=00000001"),
              kLoginPassed)
        << "FFmpeg";
    EXPECT_EQ(CheckHeader(&m_state, "Digest username=\"anna\",realm=\"Kova\",nonce=\"" + nonce +
                                        "\",uri=\"" + url +
                                        "\",cnonce=\"ZTQ1Yj==\",nc=00000002,algorithm=MD5,"
                                        "response=\"" +
                                        counted("00000002", "ZTQ1Yj==") + "\",qop=\"auth\""),
              kLoginPassed)
        << "curl";
}

TEST_F(LoginTest, AnAnswerWithoutQopHoldsOnItsConnection)
{
    KovaPlayerAnswer answer = Challenged();
    answer.count.clear();
    for (int nTimes = 0; nTimes < 3; nTimes++)
        EXPECT_EQ(Check(answer), kLoginPassed);
    KovaLoginState other = {};
    EXPECT_EQ(CheckHeader(&other, KovaAuthorizationOf(answer)), kLoginStale);
    Challenged(&other);
    EXPECT_EQ(CheckHeader(&other, KovaAuthorizationOf(answer)), kLoginStale);
    EXPECT_STREQ(other.szUser, "");
    EXPECT_EQ(Check(answer), kLoginPassed);
}

TEST_F(LoginTest, WithoutAnAnswerThereIsAChallengeAtOnce)
{
    Challenged();
    for (const char *szHeader : {"", "Digest", "Basic YW5uYTpwYXNzIHdvcmQ=", "anna:pass word"}) {
        for (int nTimes = 0; nTimes < 5; nTimes++) {
            EXPECT_EQ(CheckHeader(&m_state, szHeader), kLoginChallenge) << szHeader;
            EXPECT_EQ(m_nDelay, 0U);
        }
    }
    KovaRequest request = {};
    request.methodText = "DESCRIBE";
    EXPECT_EQ(
        KovaLoginCheck(m_pLogin, m_pUsers, &m_state, request, "cam", kPlayer, m_nNow, &m_nDelay),
        kLoginChallenge);
}

TEST_F(LoginTest, CountsMustGrow)
{
    KovaPlayerAnswer answer = Challenged();
    answer.count = "00000005";
    EXPECT_EQ(Check(answer), kLoginPassed);
    EXPECT_EQ(Check(answer), kLoginStale) << "the same once more";
    answer.count = "00000004";
    EXPECT_EQ(Check(answer), kLoginStale);
    answer.count = "00000006";
    EXPECT_EQ(Check(answer), kLoginPassed);
    answer.count = "ffffffff";
    EXPECT_EQ(Check(answer), kLoginPassed);
    answer.count = "00000007";
    EXPECT_EQ(Check(answer), kLoginStale);
    EXPECT_EQ(m_nDelay, 0U);
    answer = Challenged();
    answer.count = "00000000";
    EXPECT_EQ(Check(answer), kLoginStale);
    answer.count = "0000000g";
    EXPECT_EQ(Check(answer), kLoginStale);
    answer.count = "000000001";
    EXPECT_EQ(Check(answer), kLoginStale);
    answer.count = "00000001";
    EXPECT_EQ(Check(answer), kLoginPassed) << "a new nonce is counted anew";
}

TEST_F(LoginTest, AWrongAnswerDoesNotUseACountUp)
{
    KovaPlayerAnswer answer = Challenged();
    answer.password = "wrong";
    answer.count = "000000ff";
    EXPECT_EQ(Check(answer), kLoginChallenge);
    answer.password = "pass word";
    answer.count = "00000001";
    EXPECT_EQ(Check(answer), kLoginPassed);
}

TEST_F(LoginTest, ACountWithoutQopIsLookedAtToo)
{
    KovaPlayerAnswer answer = Challenged();
    answer.count.clear();
    answer.more = ", nc=00000001";
    EXPECT_EQ(Check(answer), kLoginPassed);
    EXPECT_EQ(Check(answer), kLoginStale);
}

TEST_F(LoginTest, ANonceLivesFiveMinutes)
{
    for (const char *szCount : {"00000001", ""}) {
        KovaPlayerAnswer answer = Challenged();
        answer.count = szCount;
        m_nNow += kLoginNonceLifetime - 1;
        EXPECT_EQ(Check(answer), kLoginPassed);
        m_nNow++;
        if (!answer.count.empty())
            answer.count = "00000002";
        EXPECT_EQ(Check(answer), kLoginStale);
        answer.password = "wrong";
        EXPECT_EQ(Check(answer), kLoginChallenge) << "stale only when the rest is right";
        KovaPlayerAnswer next = Challenged();
        EXPECT_EQ(Check(next), kLoginPassed);
    }
}

TEST_F(LoginTest, AnEarlierNonceOfTheConnectionIsStale)
{
    const KovaPlayerAnswer answer = Challenged();
    Challenged();
    EXPECT_EQ(Check(answer), kLoginStale);
}

TEST_F(LoginTest, NoncesOfOthersAreNoneAndCostNothing)
{
    KovaPlayerAnswer answer = Challenged();
    const std::string own = answer.nonce;
    KovaLogin *pOther = KovaLoginCreate("Kova");
    KovaLoginState other = {};
    char text[1024];
    ASSERT_TRUE(KovaLoginChallenge(pOther, &other, false, m_nNow, text, sizeof(text)));
    std::vector<std::string> nonces = {other.szNonce, "", own + "0", own.substr(1), "0a4f113b"};
    for (size_t nIndex = 0; nIndex < own.size(); nIndex++) {
        nonces.push_back(own);
        nonces.back()[nIndex] = own[nIndex] == '0' ? '1' : '0';
    }
    for (const std::string &nonce : nonces) {
        answer.nonce = nonce;
        EXPECT_EQ(Check(answer), kLoginChallenge) << nonce;
        EXPECT_EQ(m_nDelay, 0U);
    }
    KovaLoginDestroy(pOther);
    answer.nonce = own;
    EXPECT_EQ(Check(answer), kLoginPassed);
}

} // namespace
