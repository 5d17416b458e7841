#pragma once

#include "demuxer.h"
#include "parameter_sets.h"
#include "round.h"
#include "server_limits.h"
#include "tracks.h"
#include "unit.h"

#include <optional>
#include <string>
#include <vector>

namespace kovastream {

/// What players are told about a stream's tracks when they connect.
struct Description {
    Limits limits;
    Tracks tracks;
    ParameterSets sets;
    int width = 0; ///< 0: not known
    int height = 0;
    std::optional<uint32_t> soundHeader; ///< the part of the ADTS header that all frames share

    /// Takes over the tracks of one source. `unit` is the one that comes next, null at the start.
    void Take(const Demuxer &demuxer, const Round &round, const Wish &wish, const Unit *unit);
    /// What a unit, the next one of a source, does not agree with; empty if it does, or if players
    /// learn of it from the stream itself. The frame's header is remembered.
    std::string Contradiction(const Round &round, const Wish &wish, const Unit &unit);
    /// In words.
    std::string About() const;

private:
    bool ContradictsSound(const SoundTrack &track, const Unit &unit);

    int declaredWidth = 0; ///< by the input, when it was taken over
};

} // namespace kovastream
