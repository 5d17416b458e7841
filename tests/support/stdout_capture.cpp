#include "tests/support/stdout_capture.h"

#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace {

/// Without a capture the tests would compare nothing: no test goes on then.
void Require(bool bGood, const char *szWhat)
{
    if (bGood)
        return;
    perror(szWhat);
    abort();
}

/// The whole file from nStart on; the descriptor's position, which the printing
/// threads share, stays where it is.
std::string ReadFrom(int nFile, size_t nStart)
{
    std::string text;
    char buffer[16384];
    for (;;) {
        const ssize_t nRead =
            pread(nFile, buffer, sizeof(buffer), static_cast<off_t>(nStart + text.size()));
        Require(nRead >= 0, "pread");
        if (nRead == 0)
            return text;
        text.append(buffer, static_cast<size_t>(nRead));
    }
}

} // namespace

KovaStdoutCapture::KovaStdoutCapture()
{
    fflush(stdout);
    m_nFile = memfd_create("stdout", MFD_CLOEXEC);
    Require(m_nFile >= 0, "memfd_create");
    m_nStdout = dup(STDOUT_FILENO);
    Require(m_nStdout >= 0, "dup");
    Require(dup2(m_nFile, STDOUT_FILENO) >= 0, "dup2");
}

KovaStdoutCapture::~KovaStdoutCapture()
{
    Stop();
    if (testing::Test::HasFailure()) {
        const std::string text = ReadFrom(m_nFile, 0);
        fwrite(text.data(), 1, text.size(), stdout);
        fflush(stdout);
    }
    close(m_nFile);
}

std::string KovaStdoutCapture::Text()
{
    fflush(stdout);
    return ReadFrom(m_nFile, m_nStart);
}

std::vector<std::string> KovaStdoutCapture::Lines()
{
    const std::string text = Text();
    std::vector<std::string> lines;
    for (size_t nBegin = 0; nBegin < text.size();) {
        const size_t nEnd = std::min(text.find('\n', nBegin), text.size());
        lines.push_back(text.substr(nBegin, nEnd - nBegin));
        nBegin = nEnd + 1;
    }
    return lines;
}

std::vector<std::string> KovaStdoutCapture::Messages()
{
    std::vector<std::string> messages;
    for (const std::string &line : Lines())
        messages.push_back(KovaWithoutStamp(line));
    return messages;
}

void KovaStdoutCapture::Clear()
{
    m_nStart += Text().size();
}

bool KovaStdoutCapture::WaitFor(std::string_view text, int nMilliseconds)
{
    using Clock = std::chrono::steady_clock;
    const Clock::time_point end = Clock::now() + std::chrono::milliseconds(nMilliseconds);
    for (;;) {
        if (Text().find(text) != std::string::npos)
            return true;
        if (Clock::now() >= end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

void KovaStdoutCapture::Stop()
{
    if (m_nStdout < 0)
        return;
    fflush(stdout);
    Require(dup2(m_nStdout, STDOUT_FILENO) >= 0, "dup2");
    close(m_nStdout);
    m_nStdout = -1;
}

std::string KovaWithoutStamp(const std::string &line)
{
    static const std::string_view kStamp = "0000/00/00 00:00:00 ";
    if (line.size() < kStamp.size())
        return line;
    for (size_t n = 0; n < kStamp.size(); n++) {
        const bool bDigit = isdigit(static_cast<unsigned char>(line[n])) != 0;
        if (kStamp[n] == '0' ? !bDigit : line[n] != kStamp[n])
            return line;
    }
    return line.substr(kStamp.size());
}
