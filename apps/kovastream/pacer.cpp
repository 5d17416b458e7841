#include "pacer.h"

namespace kovastream {

namespace {

using std::chrono::microseconds;

// The server holds packets for a second, so a little ahead costs nothing and a busy moment here
// does not show.
constexpr microseconds kLead{100000};

// The server takes up to a second of lateness without harm; half of it is left for the network.
constexpr microseconds kPatience{500000};

} // namespace

std::chrono::steady_clock::time_point Pacer::TimeOf(int64_t due) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_zero + microseconds(due);
}

bool Pacer::Wait(int64_t due)
{
    Clock::time_point when;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const Clock::time_point now = Clock::now();
        if (!m_started) {
            m_started = true;
            m_zero = now - microseconds(due);
            m_furthest = due;
        }
        // Only what is the newest of both tracks tells that the input stood still: the other
        // track may lie behind in the file.
        if (due >= m_furthest) {
            m_furthest = due;
            const Clock::duration late = now - (m_zero + microseconds(due));
            if (late > kPatience)
                m_zero += late;
        }
        when = m_zero + microseconds(due) - kLead;
    }
    return !m_stop.WaitUntil(when);
}

} // namespace kovastream
