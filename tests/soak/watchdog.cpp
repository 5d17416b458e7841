#include "tests/soak/watchdog.h"

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>

namespace {

constexpr int kHungStatus = 3;

void ShowStacks()
{
    const std::string process = std::to_string(getpid());
    const pid_t nChild = fork();
    if (nChild == 0) {
        dup2(STDERR_FILENO, STDOUT_FILENO);
        execlp("gdb", "gdb", "-p", process.c_str(), "-batch", "-ex", "thread apply all bt",
               static_cast<char *>(nullptr));
        _exit(1);
    }
    if (nChild > 0)
        waitpid(nChild, nullptr, 0);
}

} // namespace

KovaWatchdog::KovaWatchdog(int nSeconds) : m_nSeconds(nSeconds), m_thread([this] { Watch(); }) {}

KovaWatchdog::~KovaWatchdog()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_bEnd = true;
    }
    m_wake.notify_all();
    m_thread.join();
}

void KovaWatchdog::Note(const std::string &step)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_step = step;
    m_nNotes++;
    m_wake.notify_all();
}

void KovaWatchdog::Watch()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_bEnd) {
        const unsigned nSeen = m_nNotes;
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(m_nSeconds);
        if (m_wake.wait_until(lock, limit, [&] { return m_bEnd || m_nNotes != nSeen; }))
            continue;
        fprintf(stderr, "HANG: nothing has moved for %d s in %s\n", m_nSeconds, m_step.c_str());
        ShowStacks();
        _exit(kHungStatus);
    }
}
