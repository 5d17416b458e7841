#include "options.h"

#include "failure.h"

#include <gtest/gtest.h>

namespace {

using kovastream::LibraryLines;
using kovastream::Options;
using kovastream::ParseOptions;
using kovastream::StatusForm;

Options Parsed(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), "kovastream");
    arguments.push_back("a.mp4");
    std::vector<char *> pointers;
    for (std::string &argument : arguments)
        pointers.push_back(argument.data());
    return *ParseOptions(static_cast<int>(pointers.size()), pointers.data());
}

TEST(OptionsTest, Defaults)
{
    const Options options = Parsed({});
    EXPECT_EQ(options.address, "");
    EXPECT_EQ(options.port, 8554U);
    EXPECT_EQ(options.maxClients, 32);
    EXPECT_TRUE(options.loop);
    EXPECT_FALSE(options.strict);
    EXPECT_EQ(options.fps, 0);
    EXPECT_EQ(options.duration, 0);
    EXPECT_EQ(options.logLevel, 2U);
    EXPECT_EQ(options.libraryLines, LibraryLines::Failures);
    EXPECT_EQ(options.status, StatusForm::Line);
}

TEST(OptionsTest, BoundsAreIncluded)
{
    EXPECT_EQ(Parsed({"--port", "1"}).port, 1U);
    EXPECT_EQ(Parsed({"--port", "65535"}).port, 65535U);
    EXPECT_EQ(Parsed({"--max-clients", "1"}).maxClients, 1);
    EXPECT_EQ(Parsed({"--max-clients", "1024"}).maxClients, 1024);
    EXPECT_EQ(Parsed({"--fps", "0.1"}).fps, 0.1);
    EXPECT_EQ(Parsed({"--fps", "1000"}).fps, 1000);
    EXPECT_EQ(Parsed({"--duration", "0.1"}).duration, 0.1);
    EXPECT_EQ(Parsed({"--log-level", "5"}).logLevel, 5U);
}

TEST(OptionsTest, BeyondTheBoundsIsRefused)
{
    const std::vector<std::vector<std::string>> all = {{"--port", "0"},
                                                       {"--port", "65536"},
                                                       {"--port", "1.5"},
                                                       {"--max-clients", "0"},
                                                       {"--max-clients", "1025"},
                                                       {"--fps", "0.09"},
                                                       {"--fps", "1001"},
                                                       {"--fps", "nan"},
                                                       {"--duration", "0"},
                                                       {"--log-level", "-1"},
                                                       {"--log-level", "6"},
                                                       {"--status", "lines"},
                                                       {"--address", "1.2.3.256"},
                                                       {"--loop", "--once"}};
    for (const auto &arguments : all)
        EXPECT_THROW(Parsed(arguments), kovastream::Failure) << arguments[0] << ' ' << arguments[1];
}

TEST(OptionsTest, LevelOrFileAsksForAllLines)
{
    EXPECT_EQ(Parsed({"--log-level", "0"}).libraryLines, LibraryLines::None);
    EXPECT_EQ(Parsed({"--log-level", "1"}).libraryLines, LibraryLines::All);
    EXPECT_EQ(Parsed({"--log", "file"}).libraryLines, LibraryLines::All);
    EXPECT_EQ(Parsed({"--log", "file"}).logLevel, 2U);
    EXPECT_EQ(Parsed({"--log", "file", "--log-level", "0"}).libraryLines, LibraryLines::None);
}

TEST(OptionsTest, WaysOfEnding)
{
    EXPECT_FALSE(Parsed({"--once"}).loop);
    EXPECT_TRUE(Parsed({"--loop"}).loop);
    EXPECT_TRUE(Parsed({"--strict"}).strict);
}

} // namespace
