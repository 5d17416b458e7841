#pragma once

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>

namespace kovastream {

/// The end of the program, as everybody waits for it: a signal, the end of all input, a failure.
/// One object per process; it takes SIGINT, SIGTERM and SIGHUP over. A second SIGINT ends the
/// process at once.
class Stop {
public:
    Stop();
    ~Stop();
    Stop(const Stop &) = delete;
    Stop &operator=(const Stop &) = delete;

    /// Ends the program; the reason does not matter.
    void Request();
    /// Ends the program with status 1 and this line. The first failure counts.
    void Fail(const std::string &text);

    bool Requested() const;
    /// Whether a signal asked, so that nobody waits for queued media any more.
    bool Signalled() const;
    /// The first failure's line, empty without one.
    std::string FailureText() const;

    /// Readable from the request on.
    int Descriptor() const;
    /// Returns whether the end was requested by then.
    bool WaitUntil(std::chrono::steady_clock::time_point when) const;

private:
    mutable std::mutex m_mutex;
    std::string m_failure;
};

} // namespace kovastream
