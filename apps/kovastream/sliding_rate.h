#pragma once

#include <chrono>
#include <cstdint>
#include <deque>

namespace kovastream {

/// The mean bit rate of up to ten seconds, from a count of bytes that is looked at now and then.
class SlidingRate {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// Notes the count at the time `now`. Returns 1000 bit/s; 0 at the first look.
    double Take(uint64_t bytes, Time now);

private:
    struct Look {
        Time time;
        uint64_t bytes;
    };
    std::deque<Look> m_looks; ///< those of the last ten seconds, and one before
};

} // namespace kovastream
