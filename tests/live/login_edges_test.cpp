#include "tests/live/login_fixture.h"

#include <gtest/gtest.h>

#include <string>

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
    KovaLoginUsersDestroy(m_pUsers);
    KovaLoginDestroy(m_pLogin);
    const char *szRealm = "The \xC3\xA4lder House: ~";
    m_pLogin = KovaLoginCreate(szRealm);
    ASSERT_NE(m_pLogin, nullptr);
    ASSERT_EQ(KovaLoginUsersCreate(users, 1, szRealm, &m_pUsers), KOVA_LIVE_OK);
    KovaPlayerAnswer answer = Challenged();
    answer.realm = szRealm;
    answer.user = users[0].name;
    answer.password = "x";
    EXPECT_EQ(Check(answer), kLoginPassed);
    EXPECT_STREQ(m_state.szUser, users[0].name);
}

} // namespace
