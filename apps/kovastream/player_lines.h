#pragma once

#include "kova_live.h"

#include <string>

namespace kovastream {

/// What is said about an event of a player of the stream `uri`, without line end; empty when
/// nothing is. `visits`: also that a player has come or gone as it should.
std::string LineOf(const KovaLiveEvent &event, const std::string &uri, bool visits);

/// A line of the live server as it is logged: `level` is KOVA_LIVE_LOG_..., the time is local.
std::string Stamped(int32_t level, const std::string &text);

} // namespace kovastream
