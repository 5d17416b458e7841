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

TEST(OptionsTest, EachThreadNeedsAPairOfUdpPorts)
{
    for (const char *ports : {"5000-5003", "4999-5003", "5000-5004"}) {
        EXPECT_EQ(Parsed({"--udp-ports", ports, "--threads", "2"}).threads, 2U) << ports;
        EXPECT_THROW(Parsed({"--udp-ports", ports, "--threads", "3"}), kovastream::Failure)
            << ports;
    }
    EXPECT_THROW(Parsed({"--udp-ports", "5001-5004", "--threads", "2"}), kovastream::Failure);
    EXPECT_THROW(Parsed({"--threads", "2", "--udp-ports", "5000-5002"}), kovastream::Failure);
    EXPECT_EQ(Parsed({"--threads", "16"}).udpPorts.first, 0);
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
    EXPECT_EQ(options.door, &kovastream::kLiveDoor);
    EXPECT_EQ(options.maxConnections, 1024U);
    EXPECT_EQ(options.threads, 1U);
    EXPECT_EQ(options.delay, 0U);
    EXPECT_EQ(options.udpPorts.first, 0);
    EXPECT_EQ(options.user, "");
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

TEST(OptionsTest, BoundsOfTheLiveServerAreIncluded)
{
    EXPECT_EQ(Parsed({"--delay", "60000"}).delay, 60000U);
    EXPECT_EQ(Parsed({"--threads", "16"}).threads, 16U);
    EXPECT_EQ(Parsed({"--max-connections", "1"}).maxConnections, 1U);
    EXPECT_EQ(Parsed({"--max-connections", "65535"}).maxConnections, 65535U);
    EXPECT_EQ(Parsed({"--udp-ports", "65534-65535"}).udpPorts.first, 65534);
    EXPECT_EQ(Parsed({"--udp-ports", "1-3"}).udpPorts.last, 3);
    const std::string longest(47, 'x');
    EXPECT_EQ(Parsed({"--user", longest, "--password-file", "f"}).user, longest);
    EXPECT_EQ(Parsed({"--user", longest, "--password-file", "f"}).passwordFile, "f");
    EXPECT_EQ(Parsed({"--status", "players"}).status, StatusForm::Players);
}

TEST(OptionsTest, WhatTheLiveServerCannotDoIsRefused)
{
    const std::vector<std::vector<std::string>> all = {
        {"--delay", "60001"},
        {"--delay", "-1"},
        {"--threads", "0"},
        {"--threads", "17"},
        {"--max-connections", "0"},
        {"--max-connections", "65536"},
        {"--udp-ports", "1-2"},
        {"--udp-ports", "65535-65535"},
        {"--udp-ports", "65535-65536"},
        {"--udp-ports", "50001-50000"},
        {"--udp-ports", "50000"},
        {"--udp-ports", "50000-50001x"},
        {"--udp-ports", "0-50"},
        {"--udp-ports", "5000-+6001"},
        {"--udp-ports", "4294967295-50"},
        {"--user", "anna"},
        {"--password-file", "f"},
        {"--user", "a:b", "--password-file", "f"},
        {"--user", "a\nb", "--password-file", "f"},
        {"--user", std::string(48, 'x'), "--password-file", "f"}};
    for (const auto &arguments : all)
        EXPECT_THROW(Parsed(arguments), kovastream::Failure) << arguments[0] << ' ' << arguments[1];
}

TEST(OptionsTest, ClassicServerTakesNoneOfTheLiveOnes)
{
    EXPECT_EQ(Parsed({"--classic"}).door, &kovastream::kClassicDoor);
    const std::vector<std::vector<std::string>> all = {
        {"--delay", "1"},           {"--threads", "1"},
        {"--max-connections", "5"}, {"--udp-ports", "50000-50001"},
        {"--status", "players"},    {"--user", "x", "--password-file", "f"}};
    for (std::vector<std::string> arguments : all) {
        arguments.push_back("--classic");
        EXPECT_THROW(Parsed(arguments), kovastream::Failure) << arguments[0];
    }
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
