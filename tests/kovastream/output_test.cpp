#include "output.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <string>
#include <thread>
#include <unistd.h>

namespace {

using kovastream::Output;

constexpr int kLines = 2000; // of 1000 bytes: more than pipe and queue hold

struct OutputTest : testing::Test {
    OutputTest()
    {
        signal(SIGPIPE, SIG_IGN);
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    }
    ~OutputTest() override
    {
        for (const int end : ends) {
            if (end >= 0)
                close(end);
        }
    }
    void Close(int index)
    {
        close(ends[index]);
        ends[index] = -1;
    }
    /// Reads so many bytes, or to the end.
    void Read(size_t bytes)
    {
        char part[4096];
        for (ssize_t got = 1; got > 0 && text.size() < bytes;) {
            got = read(ends[0], part, sizeof(part));
            if (got > 0)
                text.append(part, static_cast<size_t>(got));
        }
    }
    size_t Count(const std::string &what) const
    {
        size_t count = 0;
        for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1))
            count++;
        return count;
    }

    int ends[2] = {-1, -1};
    std::string text;
};

TEST_F(OutputTest, WhatIsQueuedIsWrittenBeforeTheEnd)
{
    {
        Output output(ends[1]);
        output.Write("one\n");
        output.Write("two\n");
    }
    Close(1);
    Read(100);
    EXPECT_EQ(text, "one\ntwo\n");
}

TEST_F(OutputTest, LinesThatDoNotFitAreCountedOnce)
{
    const std::string after = std::string(4000, 'a') + "\n";
    std::thread reader;
    {
        Output output(ends[1]);
        for (int i = 0; i < kLines; i++)
            output.Write(std::string(999, 'x') + "\n");
        // Now there is room again.
        Read(500000);
        output.Write(after);
        output.Write("end\n");
        reader = std::thread([this] { Read(size_t{10} * 1000 * 1000); });
    }
    Close(1);
    reader.join();
    // While the pipe takes the first ones, there may be room now and then.
    int lost = 0;
    for (size_t at = text.find('('); at != std::string::npos; at = text.find('(', at + 1))
        lost += std::stoi(text.substr(at + 1));
    EXPECT_GT(lost, 0);
    EXPECT_EQ(Count("x\n"), static_cast<size_t>(kLines - lost));
    const std::string last = after + "end\n";
    ASSERT_GT(text.size(), last.size());
    EXPECT_EQ(text.substr(text.size() - last.size()), last);
}

TEST_F(OutputTest, ReaderThatTakesNothingDoesNotHoldUpTheEnd)
{
    Output output(ends[1]);
    for (int i = 0; i < kLines; i++)
        output.Write(std::string(999, 'x') + "\n");
    EXPECT_FALSE(output.IsBroken());
}

TEST_F(OutputTest, ReaderThatIsGoneIsNoticed)
{
    Output output(ends[1]);
    Close(0);
    output.Write("line\n");
    for (int i = 0; i < 1000 && !output.IsBroken(); i++)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_TRUE(output.IsBroken());
    EXPECT_EQ(output.TakeError(), 0);
}

TEST_F(OutputTest, FullDiskIsToldOnce)
{
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    ASSERT_GE(full, 0);
    {
        Output output(full);
        int told = 0;
        for (int i = 0; i < 1000 && told == 0; i++) {
            output.Write("line\n");
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            told = output.TakeError();
        }
        EXPECT_EQ(told, ENOSPC);
        output.Write("line\n");
        EXPECT_EQ(output.TakeError(), 0);
        EXPECT_FALSE(output.IsBroken());
    }
    close(full);
}

} // namespace
