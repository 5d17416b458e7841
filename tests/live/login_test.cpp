#include "tests/live/login_fixture.h"
#include "tests/support/failing_heap.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <thread>
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

TEST_F(LoginTest, TheUriMayBeTheRequestsUrlOrTheStreamsBase)
{
    KovaPlayerAnswer answer = Challenged();
    answer.count.clear();
    const std::string url = "rtsp://10.0.0.2:554/house/cam/track1?a=b";
    for (const char *szUri :
         {"rtsp://10.0.0.2:554/house/cam/track1?a=b", "rtsp://10.0.0.2:554/house/cam",
          "rtsp://10.0.0.2:554/house/cam/", "RTSP://camera.local/house/cam/track2", "/house/cam",
          "/house/cam/", "/house/cam/track1", "rtsp://10.0.0.2/house/c%61m/"}) {
        answer.uri = szUri;
        EXPECT_EQ(CheckHeader(&m_state, KovaAuthorizationOf(answer), url), kLoginPassed) << szUri;
    }
    for (const char *szUri : {"rtsp://10.0.0.2:554/house/cam2", "rtsp://10.0.0.2:554/house",
                              "/House/cam", "/", "", "*", "/house/c%zzm"}) {
        answer.uri = szUri;
        EXPECT_EQ(CheckHeader(&m_state, KovaAuthorizationOf(answer), url), kLoginChallenge)
            << szUri;
        EXPECT_EQ(m_nDelay, 0U);
    }
    answer.uri = "*";
    EXPECT_EQ(CheckHeader(&m_state, KovaAuthorizationOf(answer), "*"), kLoginPassed);
    for (const char *szUri : {"*", "/%zz", "http://host/"}) {
        answer.uri = szUri;
        EXPECT_EQ(CheckHeader(&m_state, KovaAuthorizationOf(answer), "/", kPlayer, ""),
                  kLoginChallenge)
            << szUri;
    }
    answer.uri = "/";
    EXPECT_EQ(CheckHeader(&m_state, KovaAuthorizationOf(answer), "rtsp://h", kPlayer, nullptr),
              kLoginChallenge);
    EXPECT_EQ(CheckHeader(&m_state, KovaAuthorizationOf(answer), "rtsp://h", kPlayer, ""),
              kLoginPassed);
}

TEST_F(LoginTest, WhatIsNotOfferedIsNotTaken)
{
    KovaPlayerAnswer answer = Challenged();
    answer.count.clear();
    for (const char *szAlgorithm : {"MD5-sess", "SHA-256-sess", "SHA-512-256", "SHA", "\"\""}) {
        answer.algorithm = std::string("algorithm=") + szAlgorithm + ", ";
        EXPECT_EQ(Check(answer), kLoginChallenge) << szAlgorithm;
    }
    answer.algorithm = "";
    answer.count = "00000001";
    answer.qop = "auth-int";
    EXPECT_EQ(Check(answer), kLoginChallenge);
    answer.count.clear();
    for (const char *szMore :
         {", qop=auth-int, nc=00000001, cnonce=\"0a4f113b\"", ", qop=\"\"", ", qop=auth",
          ", qop=auth, nc=00000001", ", qop=auth, cnonce=\"0a4f113b\"", ", opaque=\"x\"",
          ", realm=\"Kova\"", ", broken"}) {
        answer.more = szMore;
        EXPECT_EQ(Check(answer), kLoginChallenge) << szMore;
        EXPECT_EQ(m_nDelay, 0U);
    }
    answer.more = ", opaque=\"\", userhash=false, charset=UTF-8";
    EXPECT_EQ(Check(answer), kLoginPassed);
}

TEST_F(LoginTest, AnAnswerNeedsAllItsParts)
{
    KovaPlayerAnswer answer = Challenged();
    answer.count.clear();
    const std::string whole = KovaAuthorizationOf(answer);
    for (const char *szName : {"username=", "realm=", "nonce=", "uri=", "response="}) {
        std::string part = whole;
        part.replace(part.find(szName), 1, "x");
        EXPECT_EQ(CheckHeader(&m_state, part), kLoginChallenge) << szName;
        EXPECT_EQ(m_nDelay, 0U);
    }
    EXPECT_EQ(CheckHeader(&m_state, whole), kLoginPassed);
}

TEST_F(LoginTest, EveryPartIsInTheResponse)
{
    KovaPlayerAnswer answer = Challenged();
    const std::string whole = KovaAuthorizationOf(answer);
    const auto with = [&](const std::string &from, const std::string &to) {
        std::string changed = whole;
        changed.replace(changed.find(from), from.size(), to);
        m_nNow += 3600 * kSecond; // failures are forgotten
        return CheckHeader(&m_state, changed);
    };
    EXPECT_EQ(with("\"anna\"", "\"bert\""), kLoginChallenge);
    EXPECT_EQ(with("\"anna\"", "\"Anna\""), kLoginChallenge);
    EXPECT_EQ(with("cam/\"", "cam\""), kLoginChallenge);
    EXPECT_EQ(with("nc=00000001", "nc=00000002"), kLoginChallenge);
    EXPECT_EQ(with("cnonce=\"0a", "cnonce=\"0b"), kLoginChallenge);
    EXPECT_EQ(with("qop=auth", "qop=AUTH"), kLoginChallenge);
    EXPECT_EQ(with("MD5", "SHA-256"), kLoginChallenge);
    const size_t nResponse = whole.find("response=\"") + 10;
    const std::string response = whole.substr(nResponse, 32);
    for (size_t nIndex = 0; nIndex < response.size(); nIndex++) {
        std::string changed = response;
        changed[nIndex] = changed[nIndex] == '0' ? '1' : '0';
        EXPECT_EQ(with(response, changed), kLoginChallenge) << nIndex;
    }
    EXPECT_EQ(with(response, response.substr(1)), kLoginChallenge);
    EXPECT_EQ(with(response, response + "00"), kLoginChallenge);
    EXPECT_EQ(with(response, ""), kLoginChallenge);
}

TEST_F(LoginTest, TheMethodIsInTheResponse)
{
    KovaPlayerAnswer answer = Challenged();
    answer.method = "PLAY";
    EXPECT_EQ(Check(answer), kLoginChallenge);
}

TEST_F(LoginTest, AWrongRealmIsAnsweredWithTheRightOne)
{
    KovaPlayerAnswer answer = Challenged();
    answer.realm = "kova";
    for (int nTimes = 0; nTimes < 3; nTimes++) {
        EXPECT_EQ(Check(answer), kLoginChallenge);
        EXPECT_EQ(m_nDelay, 0U) << "it is no guess";
    }
}

TEST_F(LoginTest, NamesWithBackslashesPassInBothForms)
{
    const KovaLiveUser users[] = {{"house\\carl", "x"}};
    KovaLoginUsersDestroy(m_pUsers);
    ASSERT_EQ(KovaLoginUsersCreate(users, 1, "Kova", &m_pUsers), KOVA_LIVE_OK);
    KovaPlayerAnswer answer = Challenged();
    answer.user = "house\\carl";
    answer.password = "x";
    std::string header = KovaAuthorizationOf(answer);
    EXPECT_EQ(CheckHeader(&m_state, header), kLoginPassed);
    answer.count = "00000002";
    header = KovaAuthorizationOf(answer);
    header.replace(header.find('\\'), 1, "\\\\");
    EXPECT_EQ(CheckHeader(&m_state, header), kLoginPassed);
    EXPECT_STREQ(m_state.szUser, "house\\carl");
}

TEST_F(LoginTest, ALongNameIsCutOnlyWhereItIsShown)
{
    const std::string name(300, 'n');
    const KovaLiveUser users[] = {{name.c_str(), "x"}};
    KovaLoginUsersDestroy(m_pUsers);
    ASSERT_EQ(KovaLoginUsersCreate(users, 1, "Kova", &m_pUsers), KOVA_LIVE_OK);
    KovaPlayerAnswer answer = Challenged();
    answer.password = "x";
    answer.user = name.substr(0, 299);
    EXPECT_EQ(Check(answer), kLoginChallenge);
    answer.user = name;
    EXPECT_EQ(Check(answer), kLoginPassed);
    EXPECT_EQ(std::string(m_state.szUser), name.substr(0, kLoginUserSize - 1));
}

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
