#include "output.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <poll.h>
#include <unistd.h>

namespace kovastream {

namespace {

constexpr size_t kMostBytes = size_t{1024} * 1024;
constexpr int kPatience = 100; // milliseconds between looks at a reader that takes nothing
constexpr std::chrono::seconds kFarewell{2};

/// A disk may have room again later.
bool IsFull(int error)
{
    return error == ENOSPC || error == EDQUOT || error == EFBIG;
}

} // namespace

Output::Output(int descriptor) : m_descriptor(descriptor), m_thread([this] { Run(); }) {}

Output::~Output()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_ending = true;
    }
    m_work.notify_one();
    m_thread.join();
}

void Output::Write(std::string text)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_broken)
            return;
        if (m_bytes + text.size() > kMostBytes) {
            m_lost++;
            return;
        }
        if (m_lost > 0)
            text.insert(0, "(" + std::to_string(m_lost) + " lines were left out here)\n");
        m_lost = 0;
        m_bytes += text.size();
        m_queue.push_back(std::move(text));
    }
    m_work.notify_one();
}

bool Output::IsBroken() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_broken;
}

int Output::TakeError()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_error == m_toldError)
        return 0;
    m_toldError = m_error;
    return m_error;
}

void Output::Lose(int error)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_error = error;
    m_lost++;
}

void Output::Run()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        m_work.wait(lock, [this] { return m_ending || !m_queue.empty(); });
        if (m_queue.empty() || m_broken)
            return;
        const std::string text = std::move(m_queue.front());
        m_queue.pop_front();
        m_bytes -= text.size();
        lock.unlock();
        const bool written = WriteOut(text);
        lock.lock();
        m_broken |= !written;
    }
}

bool Output::WriteOut(const std::string &text)
{
    auto lastLook = std::chrono::steady_clock::time_point::max();
    for (size_t at = 0; at < text.size();) {
        pollfd event = {m_descriptor, POLLOUT, 0};
        const int ready = poll(&event, 1, kPatience);
        if (ready <= 0) {
            const std::lock_guard<std::mutex> lock(m_mutex);
            const auto now = std::chrono::steady_clock::now();
            if (m_ending && lastLook == std::chrono::steady_clock::time_point::max())
                lastLook = now + kFarewell;
            if (now > lastLook)
                return false;
            continue;
        }
        // As much as a pipe that is ready takes without waiting.
        const size_t count = std::min<size_t>(text.size() - at, PIPE_BUF);
        const ssize_t written = write(m_descriptor, text.data() + at, count);
        if (written > 0)
            at += static_cast<size_t>(written);
        else if (IsFull(errno)) {
            Lose(errno);
            return true;
        } else if (errno != EINTR && errno != EAGAIN)
            return false;
    }
    return true;
}

} // namespace kovastream
