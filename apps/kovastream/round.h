#pragma once

#include "demuxer.h"
#include "packet_order.h"
#include "picture_track.h"
#include "sound_track.h"
#include "unit.h"

#include <optional>

namespace kovastream {

/// Whether a file whose media ends at `reached` lacks more of its `declared` end than lengths are
/// rounded; microseconds, the latter AV_NOPTS_VALUE when the file does not say.
bool IsCutOff(int64_t reached, int64_t declared);

/// One pass over an input, from its beginning to its end, as units to push.
class Round {
public:
    /// Throws Failure for tracks that cannot be converted, and for a file in which nothing can be
    /// read.
    Round(Demuxer *demuxer, double fps, const Limits &limits);

    /// Throws Failure for a file that is broken or cut off.
    Demuxer::Result Next(Unit *unit);

    /// The input's time at its beginning, once a unit has been read.
    int64_t Origin() const
    {
        return m_origin;
    }
    const std::optional<PictureTrack> &Picture() const
    {
        return m_picture;
    }
    const std::optional<SoundTrack> &Sound() const
    {
        return m_sound;
    }
    /// Whether sound frames were left out that are too large for the server.
    bool LeftSoundOut() const
    {
        return m_leftOut;
    }

private:
    Demuxer::Result Read(Unit *unit);
    bool Convert(Unit *unit);
    bool IsPriming(const Unit &unit);
    void CheckEnd() const;
    void FindOrigin(const Unit &unit);

    Demuxer *const m_demuxer;
    PacketOrder m_packets;
    Packet m_packet;
    std::optional<PictureTrack> m_picture;
    std::optional<SoundTrack> m_sound;
    std::optional<Unit> m_first; ///< of a file: read before anything is published
    bool m_begun = false;
    bool m_heard = false; ///< sound has begun
    int64_t m_origin = 0;
    int64_t m_reached = 0; ///< the furthest end of a unit
    bool m_leftOut = false;
};

} // namespace kovastream
