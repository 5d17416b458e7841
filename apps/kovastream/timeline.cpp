#include "timeline.h"

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
    m_end->Reach(presentation + unit.duration);
    return {unit.decode + offset, presentation};
}

} // namespace kovastream
