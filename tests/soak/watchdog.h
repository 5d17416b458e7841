#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

/// Ends the program when nothing has moved for too long, with the stacks of all
/// threads if a debugger is there to show them.
class KovaWatchdog {
public:
    explicit KovaWatchdog(int nSeconds);
    ~KovaWatchdog();
    KovaWatchdog(const KovaWatchdog &) = delete;
    KovaWatchdog &operator=(const KovaWatchdog &) = delete;

    /// Something has moved; what begins now.
    void Note(const std::string &step);

private:
    void Watch();

    const int m_nSeconds;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_bEnd = false;
    unsigned m_nNotes = 0;
    std::string m_step = "the start";
    std::thread m_thread;
};
