#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace kovastream {

struct PictureFormat {
    uint32_t kilobits = 0; ///< kbit/s, about
};

struct SoundFormat {
    uint32_t kilobits = 0;
    uint32_t rate = 0; ///< Hz
    uint32_t channels = 0;
    /// AudioSpecificConfig (ISO/IEC 14496-3, 1.6.2.1) of frames without a header; empty: each frame
    /// has an ADTS header.
    std::vector<uint8_t> configuration;
};

/// The tracks of a stream as they are published.
struct Tracks {
    std::optional<PictureFormat> picture;
    std::optional<SoundFormat> sound;
};

} // namespace kovastream
