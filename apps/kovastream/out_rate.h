#pragma once

#include "figures.h"

#include <chrono>
#include <cstdint>
#include <deque>

namespace kovastream {

/// The bit rate to all players of a stream. The server measures from a player's first key frame on,
/// and a key frame is many times as large as other pictures: until the mean has some seconds, it is
/// far above what flows. No more flows than what came in, to each of them.
class OutRate {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// To be called with each look at the stream, at the time `now`. Returns 1000 bit/s.
    double Take(const Figures &figures, Time now);

private:
    struct Look {
        Time time;
        uint64_t bytes;
    };
    std::deque<Look> m_looks; ///< those of the last ten seconds, and one before
};

} // namespace kovastream
