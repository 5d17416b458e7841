#include "tests/live/login_fixture.h"

#include <gtest/gtest.h>

#include <string>

namespace {

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
    EXPECT_EQ(KovaLoginFailed(m_pLogin), 0U);
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
    EXPECT_EQ(KovaLoginFailed(m_pLogin), 0U);
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
    EXPECT_EQ(KovaLoginFailed(m_pLogin), 0U);
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

} // namespace
