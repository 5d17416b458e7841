#pragma once

#include "stop.h"

#include <chrono>
#include <cstdint>
#include <mutex>

namespace kovastream {

/// Holds units back until they are due in real time. A stream's sources share one.
class Pacer {
public:
    explicit Pacer(const Stop &stop) : m_stop(stop) {}

    /// Waits until shortly before `due`. Input that comes late is not waited for; when it comes
    /// much later than it was due, everything behind it is due that much later too. Returns false
    /// when the end was requested.
    bool Wait(int64_t due);

    /// When the time `due` comes.
    std::chrono::steady_clock::time_point TimeOf(int64_t due) const;

private:
    using Clock = std::chrono::steady_clock;

    const Stop &m_stop;
    mutable std::mutex m_mutex;
    bool m_started = false;
    Clock::time_point m_zero; ///< when the stream's time 0 was
    int64_t m_furthest = 0;
};

} // namespace kovastream
