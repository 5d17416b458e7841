#pragma once

#include <cstdint>
#include <vector>

namespace kovastream {

enum class TrackKind {
    Picture,
    Sound,
};

/// Whether a player can begin with a picture.
enum class Entry {
    None,
    Recovery, ///< a recovery point: a decoder can; the classic server waits for an IDR picture
    Key,      ///< an IDR picture
};

/// What is pushed at once: an H.264 access unit in Annex B form or one AAC frame, see SoundTrack.
/// Times are microseconds of the input's own clock.
struct Unit {
    TrackKind track = TrackKind::Picture;
    Entry entry = Entry::None;
    std::vector<uint8_t> bytes;
    int64_t decode = 0;       ///< when it is to be decoded; never goes back within a track
    int64_t presentation = 0; ///< when it is to be shown
    int64_t duration = 0;
};

} // namespace kovastream
