#pragma once

#include "ffmpeg.h"
#include "parameter_sets.h"
#include "picture_clock.h"
#include "server_limits.h"
#include "unit.h"

#include <optional>
#include <string>

namespace kovastream {

/// Turns the packets of an H.264 track into Annex B access units with the parameter sets in
/// front of every key frame, whatever form the container has.
class PictureTrack {
public:
    /// Throws Failure for parameter sets that cannot be read, or are not within the limits.
    PictureTrack(const std::string &input, const AVStream &stream, bool raw, double fps,
                 const Limits &limits);

    /// Fills the unit from the packet, which is used up. Returns false for one that holds none.
    bool Convert(AVPacket *packet, Unit *unit);
    /// Those of the last picture, and of those before it.
    const ParameterSets &Sets() const
    {
        return m_sets;
    }

private:
    void Stamp(const AVPacket &packet, Unit *unit);
    void CheckParameterSets() const;
    void FollowExtradata(const AVPacket &packet);
    void TakeSets(const AVPacket &packet, Unit *unit);

    const std::string m_input;
    const bool m_fixedSets;
    const AVRational m_timeBase;
    const int64_t m_usualDuration;
    Filter m_filter;
    ParameterSets m_sets;
    std::optional<PictureClock> m_clock;
    int64_t m_lastDecode;
};

} // namespace kovastream
