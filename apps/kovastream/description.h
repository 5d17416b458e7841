#pragma once

#include "demuxer.h"
#include "kova_rtsp_server.h"
#include "parameter_sets.h"
#include "round.h"
#include "unit.h"

#include <optional>
#include <string>

namespace kovastream {

/// What players are told about a stream's tracks when they connect.
struct Description {
    std::optional<KovaVideoDescription> picture;
    std::optional<KovaAudioDescription> sound;
    ParameterSets sets;
    int width = 0;
    int height = 0;
    std::optional<uint32_t> soundHeader; ///< the part of the ADTS header that all frames share

    /// Takes over the tracks of one source. `unit` is the one that comes next, null at the start.
    void Take(const Demuxer &demuxer, const Round &round, const Wish &wish, const Unit *unit);
    /// What a unit, the next one of a source, does not agree with; empty if it does. The
    /// frame's header is remembered.
    std::string Contradiction(const Round &round, const Wish &wish, const Unit &unit);
    /// In words.
    std::string About() const;
};

} // namespace kovastream
