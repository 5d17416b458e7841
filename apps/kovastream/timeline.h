#pragma once

#include "even_clock.h"
#include "unit.h"

#include <atomic>
#include <cstdint>

namespace kovastream {

/// When a unit is due and what timestamp it gets, on the clock of the published stream, which
/// starts above 0 and goes on evenly over the ends of inputs.
struct Placed {
    int64_t due;          ///< to be pushed; microseconds
    int64_t presentation; ///< to be shown
};

/// How far the published stream has come; shared by its sources.
class StreamEnd {
public:
    int64_t Get() const
    {
        return m_end;
    }
    void Reach(int64_t end);

private:
    // A first timestamp of 0 would make the sending threads start their schedule anew.
    static constexpr int64_t kFirst = 40000;
    std::atomic<int64_t> m_end{kFirst};
};

/// Places the units of one source, which has one clock.
class Timeline {
public:
    explicit Timeline(StreamEnd *end) : m_end(end) {}

    /// The source begins (again): its time `origin` is the published time `base`.
    void Begin(int64_t origin, int64_t base);
    Placed Place(const Unit &unit);

private:
    StreamEnd *const m_end;
    EvenClock m_clock;
};

} // namespace kovastream
