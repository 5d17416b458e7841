#pragma once

#include "schedule.h"
#include "stop.h"

#include <chrono>
#include <cstdint>
#include <mutex>

namespace kovastream {

/// Holds units back until they are due in real time. A stream's sources share one.
class Pacer {
public:
    explicit Pacer(const Stop &stop) : m_stop(stop) {}

    /// Waits until the unit that is due at `due`, microseconds of the stream's time, may go; see
    /// Schedule. Returns false when the end was requested.
    bool Wait(int64_t due);

    /// When the time `due` comes.
    std::chrono::steady_clock::time_point TimeOf(int64_t due) const;

private:
    const Stop &m_stop;
    mutable std::mutex m_mutex;
    Schedule m_schedule;
};

} // namespace kovastream
