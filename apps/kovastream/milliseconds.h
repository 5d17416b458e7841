#pragma once

#include "unit.h"

#include <cstdint>

namespace kovastream {

/// Timestamps of a stream as the classic server takes them: milliseconds above 0, which rise with
/// every frame of sound.
class Milliseconds {
public:
    /// `presentation`: microseconds. Modulo 2^32.
    uint32_t Of(TrackKind track, int64_t presentation);

private:
    int64_t m_sound = 0; ///< the last sound frame's
};

} // namespace kovastream
