#pragma once

#include "unit.h"

#include <array>
#include <cstdint>

namespace kovastream {

/// Takes the breaks out of a source's clock, which both of its tracks share: a step of a track's
/// decoding time back by more than 1 s or ahead by more than 10 s is no pause, and the track goes
/// on where it was. Times are microseconds.
class EvenClock {
public:
    /// The source begins (again): its time plus `offset` is the even time.
    void Begin(int64_t offset);
    /// What to add to the times of the track's next unit, which is decoded at `decode`.
    int64_t Follow(TrackKind kind, int64_t decode, int64_t duration);

private:
    struct Track {
        bool seen = false;
        int64_t offset = 0;
        int64_t even = 0; ///< the last unit's decoding time
        int64_t duration = 0;
    };
    void FollowBreak(Track *track, int64_t decode);

    int64_t m_offset = 0; ///< of the newest clock that the source has shown
    std::array<Track, 2> m_tracks;
};

} // namespace kovastream
