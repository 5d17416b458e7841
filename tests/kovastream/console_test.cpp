#include "console.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <unistd.h>

namespace {

using kovastream::Console;
using kovastream::Options;

std::string TextOf(const std::string &file)
{
    std::ifstream input(file);
    return {std::istreambuf_iterator<char>(input), {}};
}

/// The library prints to standard output, which the console has taken over.
struct ConsoleTest : testing::Test {
    ConsoleTest()
    {
        fflush(stdout); // what the tests themselves have said
        const int made = mkstemp(name);
        EXPECT_GE(made, 0);
        close(made);
        options.logFile = name;
        options.libraryLines = kovastream::LibraryLines::All;
    }
    ~ConsoleTest() override
    {
        unlink(name);
    }
    /// Waits until the log has this text; returns what it has.
    std::string Await(const std::string &text) const
    {
        for (int i = 0; i < 3000 && TextOf(name) != text; i++)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        return TextOf(name);
    }

    char name[32] = "/tmp/kovastream-log-XXXXXX";
    Options options;
};

TEST_F(ConsoleTest, LinesOfTheLibraryGoToTheLog)
{
    {
        const Console console(options);
        fputs("one\ntwo\n", stdout);
        fputs("three", stdout);
    }
    EXPECT_EQ(TextOf(name), "one\ntwo\nthree\n");
}

TEST_F(ConsoleTest, LineWithoutItsEndIsNotWaitedForLong)
{
    std::string before;
    {
        const Console console(options);
        fputs("unfinished", stdout);
        fflush(stdout);
        before = Await("unfinished\n");
    }
    EXPECT_EQ(before, "unfinished\n");
    EXPECT_EQ(TextOf(name), "unfinished\n");
}

} // namespace
