#include "timeline.h"

#include <algorithm>

namespace kovastream {

void StreamEnd::Reach(int64_t end)
{
    int64_t known = m_end;
    while (known < end && !m_end.compare_exchange_weak(known, end)) {
    }
}

void Timeline::Begin(int64_t origin, int64_t base)
{
    m_clock.Begin(base - origin);
}

Placed Timeline::Place(const Unit &unit)
{
    const int64_t offset = m_clock.Follow(unit.track, unit.decode, unit.duration);
    const int64_t presentation = unit.presentation + offset;
    int64_t milliseconds = std::max<int64_t>(presentation / 1000, 1);
    // Sound rises with every frame; pictures are pushed in decoding order.
    if (unit.track == TrackKind::Sound) {
        milliseconds = std::max(milliseconds, m_sound + 1);
        m_sound = milliseconds;
    }
    m_end->Reach(presentation + unit.duration);
    return {unit.decode + offset, static_cast<uint32_t>(milliseconds)};
}

} // namespace kovastream
