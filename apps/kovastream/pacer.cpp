#include "pacer.h"

namespace kovastream {

using std::chrono::steady_clock;

steady_clock::time_point Pacer::TimeOf(int64_t due) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_schedule.TimeOf(due);
}

bool Pacer::Wait(int64_t due)
{
    steady_clock::time_point when;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        when = m_schedule.Place(due, steady_clock::now());
    }
    return !m_stop.WaitUntil(when);
}

} // namespace kovastream
