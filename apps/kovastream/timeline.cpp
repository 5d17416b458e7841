#include "timeline.h"

#include <algorithm>

namespace kovastream {

namespace {

// A step of a track's decoding time beyond these is a break of the source's clock, not a pause.
constexpr int64_t kFurthestBack = 1000000;
constexpr int64_t kFurthestAhead = 10000000;

} // namespace

void StreamEnd::Reach(int64_t end)
{
    int64_t known = m_end;
    while (known < end && !m_end.compare_exchange_weak(known, end)) {
    }
}

void Timeline::Begin(int64_t origin, int64_t base)
{
    m_offset = base - origin;
    for (Track &track : m_tracks) {
        track.offset = m_offset;
        track.seen = false;
    }
}

/// After a break the track goes on where it was. The other track breaks too, earlier or later: it
/// finds the new clock here, so that both stay together.
void Timeline::FollowJump(Track *track, const Unit &unit)
{
    const auto fits = [track, &unit](int64_t offset) {
        const int64_t step = unit.decode + offset - track->due;
        return step >= -kFurthestBack && step <= kFurthestAhead;
    };
    if (fits(track->offset))
        return;
    if (!fits(m_offset))
        m_offset = track->due + track->duration - unit.decode;
    track->offset = m_offset;
}

Placed Timeline::Place(const Unit &unit)
{
    Track &track = m_tracks[unit.track == TrackKind::Picture ? 0 : 1];
    if (track.seen)
        FollowJump(&track, unit);
    track.seen = true;
    track.due = unit.decode + track.offset;
    track.duration = unit.duration;
    const int64_t presentation = unit.presentation + track.offset;
    int64_t milliseconds = std::max<int64_t>(presentation / 1000, 1);
    // Sound rises with every frame; pictures are pushed in decoding order.
    if (unit.track == TrackKind::Sound)
        milliseconds = std::max(milliseconds, track.milliseconds + 1);
    track.milliseconds = milliseconds;
    m_end->Reach(presentation + unit.duration);
    return {track.due, static_cast<uint32_t>(milliseconds)};
}

} // namespace kovastream
