#include "even_clock.h"

namespace kovastream {

namespace {

constexpr int64_t kFurthestBack = 1000000;
constexpr int64_t kFurthestAhead = 10000000;

} // namespace

void EvenClock::Begin(int64_t offset)
{
    m_offset = offset;
    for (Track &track : m_tracks) {
        track.offset = offset;
        track.seen = false;
    }
}

/// The other track breaks too, earlier or later: it finds the new clock here, so that both stay
/// together.
void EvenClock::FollowBreak(Track *track, int64_t decode)
{
    const auto fits = [track, decode](int64_t offset) {
        const int64_t step = decode + offset - track->even;
        return step >= -kFurthestBack && step <= kFurthestAhead;
    };
    if (fits(track->offset))
        return;
    if (!fits(m_offset))
        m_offset = track->even + track->duration - decode;
    track->offset = m_offset;
}

int64_t EvenClock::Follow(TrackKind kind, int64_t decode, int64_t duration)
{
    Track &track = m_tracks[kind == TrackKind::Picture ? 0 : 1];
    if (track.seen)
        FollowBreak(&track, decode);
    track.seen = true;
    track.even = decode + track.offset;
    track.duration = duration;
    return track.offset;
}

} // namespace kovastream
