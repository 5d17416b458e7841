#pragma once

#include "sliding_rate.h"

#include <cstdint>
#include <optional>

namespace kovastream {

/// The bit rate to all players of a stream of the classic server. That measures from a player's
/// first key frame on, and a key frame is many times as large as other pictures: until the mean has
/// some seconds, it is far above what flows. No more flows than what came in, to each of them.
class OutRate {
public:
    /// To be called with each look at the stream, at the time `now`.
    /// `told`: the server's own mean, in its kilobits; `bytes`: pushed so far. Returns 1000 bit/s.
    double Take(uint32_t told, int32_t clients, uint64_t bytes, SlidingRate::Time now);

private:
    SlidingRate m_in;
    std::optional<SlidingRate::Time> m_first;
};

} // namespace kovastream
