#include "schedule.h"

namespace kovastream {

namespace {

using std::chrono::microseconds;

// The server holds packets for a second, so a little ahead costs nothing and a busy moment here
// does not show.
constexpr microseconds kLead{100000};

// The server takes up to a second of lateness without harm; half of it is left for the network.
constexpr microseconds kPatience{500000};

} // namespace

Schedule::Time Schedule::TimeOf(int64_t due) const
{
    return m_zero + microseconds(due);
}

Schedule::Time Schedule::Place(int64_t due, Time now)
{
    if (!m_started) {
        m_started = true;
        m_zero = now - microseconds(due);
        m_furthest = due;
    }
    // Only what is the newest of both tracks tells that the input stood still: the other track may
    // lie behind in the file.
    if (due >= m_furthest) {
        m_furthest = due;
        const auto late = now - TimeOf(due);
        if (late > kPatience)
            m_zero += late;
    }
    return TimeOf(due) - kLead;
}

} // namespace kovastream
