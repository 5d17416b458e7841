#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>

namespace kovastream {

/// Writes texts to a descriptor from a thread of its own, so that a reader that takes nothing
/// holds nobody up: what does not fit into the queue meanwhile is left out, and said so.
class Output {
public:
    /// The descriptor is not owned.
    explicit Output(int descriptor);
    /// Writes what is queued, as far as that goes within two seconds.
    ~Output();
    Output(const Output &) = delete;
    Output &operator=(const Output &) = delete;

    void Write(std::string text);
    /// What has kept texts from being written since the last call, but for a reader that is gone;
    /// an error number, 0 if nothing has. The same one is told once.
    int TakeError();
    /// Whether the reader is gone.
    bool IsBroken() const;

private:
    void Run();
    bool WriteOut(const std::string &text);
    void Lose(int error);

    const int m_descriptor;
    mutable std::mutex m_mutex;
    std::condition_variable m_work;
    std::deque<std::string> m_queue;
    size_t m_bytes = 0;
    size_t m_lost = 0;
    int m_error = 0;
    int m_toldError = 0;
    bool m_ending = false;
    bool m_broken = false;
    std::thread m_thread;
};

} // namespace kovastream
