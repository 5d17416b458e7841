#include "milliseconds.h"

#include <algorithm>

namespace kovastream {

uint32_t Milliseconds::Of(TrackKind track, int64_t presentation)
{
    int64_t milliseconds = std::max<int64_t>(presentation / 1000, 1);
    // Pictures are pushed in decoding order.
    if (track == TrackKind::Sound) {
        milliseconds = std::max(milliseconds, m_sound + 1);
        m_sound = milliseconds;
    }
    return static_cast<uint32_t>(milliseconds);
}

} // namespace kovastream
