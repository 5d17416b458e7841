#pragma once

#include <chrono>
#include <cstdint>

namespace kovastream {

/// When the units of a stream are let go in real time, which begins with the first one. The caller
/// keeps it from being used at the same time.
class Schedule {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// When a unit that is due at `due` of the stream's time, microseconds, is let go; `now` is
    /// when it has come. Input that comes late is not waited for; when it comes much later than it
    /// was due, everything behind it is due that much later too.
    Time Place(int64_t due, Time now);

    /// When the time `due` comes.
    Time TimeOf(int64_t due) const;

private:
    bool m_started = false;
    Time m_zero; ///< when the stream's time 0 was
    int64_t m_furthest = 0;
};

} // namespace kovastream
