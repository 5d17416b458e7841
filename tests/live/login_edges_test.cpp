#include "tests/live/login_fixture.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

TEST_F(LoginTest, ACnonceWithoutQopIsNotInTheResponse)
{
    KovaPlayerAnswer answer = Challenged();
    answer.count.clear();
    answer.more = ", cnonce=\"0a4f113b\"";
    EXPECT_EQ(Check(answer), kLoginPassed);
    answer.more = ", cnonce=\"0a4f113b\", nc=00000001";
    EXPECT_EQ(Check(answer), kLoginPassed);
}

TEST_F(LoginTest, NamesAndRealmsMayHaveBlanksAndLettersOfAnyAlphabet)
{
    const KovaLiveUser users[] = {{" carl\xC3\xB6 jones", "x"}};
    const char *szRealm = "The \xC3\xA4lder House: ~";
    KovaLoginDestroy(m_pLogin);
    m_pLogin = KovaLoginCreate(szRealm);
    ASSERT_NE(m_pLogin, nullptr);
    KovaLoginUsersDestroy(m_pUsers);
    ASSERT_EQ(KovaLoginUsersCreate(users, 1, szRealm, &m_pUsers), KOVA_LIVE_OK);
    KovaPlayerAnswer answer = Challenged();
    answer.realm = szRealm;
    answer.user = users[0].name;
    answer.password = "x";
    EXPECT_EQ(Check(answer), kLoginPassed);
    EXPECT_STREQ(m_state.szUser, users[0].name);
}

TEST_F(LoginTest, AsManyUsersAsAreAllowedAreTaken)
{
    std::vector<KovaLiveUser> users(kLoginMaxUsers, {"u", "x"});
    users.back() = {"last", "pass"};
    KovaLoginUsersDestroy(m_pUsers);
    ASSERT_EQ(KovaLoginUsersCreate(users.data(), kLoginMaxUsers, "Kova", &m_pUsers), KOVA_LIVE_OK);
    KovaPlayerAnswer answer = Challenged();
    answer.user = "last";
    answer.password = "pass";
    EXPECT_EQ(Check(answer), kLoginPassed);
}

TEST_F(LoginTest, WhoIsInByALongNameIsNotSlowedByOthersOfTheAddressEither)
{
    // Of such a name the connection keeps the beginning.
    for (const size_t nLength : {kLoginUserSize - 1, kLoginUserSize, size_t{300}}) {
        const std::string name(nLength, 'n');
        const KovaLiveUser users[] = {{name.c_str(), "x"}};
        KovaLoginUsersDestroy(m_pUsers);
        ASSERT_EQ(KovaLoginUsersCreate(users, 1, "Kova", &m_pUsers), KOVA_LIVE_OK);
        KovaPlayerAnswer right = Challenged();
        right.user = name;
        right.password = "x";
        ASSERT_EQ(Check(right), kLoginPassed);
        KovaLoginState other = {};
        KovaPlayerAnswer wrong = Challenged(&other);
        wrong.password = "guess";
        CheckHeader(&other, KovaAuthorizationOf(wrong));
        CheckHeader(&other, KovaAuthorizationOf(wrong));
        ASSERT_EQ(CheckHeader(&other, KovaAuthorizationOf(wrong)), kLoginSlow);
        right.count = "00000002";
        EXPECT_EQ(Check(right), kLoginPassed) << nLength;
    }
}

} // namespace
