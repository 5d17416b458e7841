#include "password_file.h"

#include "failure.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

namespace {

struct PasswordFileTest : testing::Test {
    char name[32] = "/tmp/kova-password-XXXXXX";

    PasswordFileTest()
    {
        close(mkstemp(name));
    }
    ~PasswordFileTest() override
    {
        unlink(name);
    }
    kovastream::Password Read(const std::string &content) const
    {
        std::ofstream(name) << content;
        return kovastream::ReadPassword(name);
    }
};

TEST_F(PasswordFileTest, FirstLineIsThePassword)
{
    EXPECT_EQ(Read("secret\nmore\n").text, "secret");
    EXPECT_EQ(Read("without an end").text, "without an end");
    EXPECT_EQ(Read("from elsewhere\r\n").text, "from elsewhere");
    EXPECT_EQ(Read(" blanks count \n").text, " blanks count ");
}

TEST_F(PasswordFileTest, NoPasswordIsAFailure)
{
    EXPECT_THROW(Read(""), kovastream::Failure);
    EXPECT_THROW(Read("\nsecret\n"), kovastream::Failure);
    EXPECT_THROW(Read("\r\n"), kovastream::Failure);
    EXPECT_THROW(kovastream::ReadPassword("/no/such/file"), kovastream::Failure);
    EXPECT_THROW(kovastream::ReadPassword("/"), kovastream::Failure);
}

TEST_F(PasswordFileTest, ExposedIsWhatEverybodyMayRead)
{
    chmod(name, 0640);
    EXPECT_FALSE(Read("secret").exposed);
    chmod(name, 0644);
    EXPECT_TRUE(Read("secret").exposed);
}

} // namespace
