#pragma once

namespace kovastream {

/// What a server asks of the streams that are published on it. Without any: whatever RTP carries.
struct Limits {
    /// Sound is AAC-LC of one to three channels, in frames behind ADTS headers of seven bytes.
    bool plainSound = false;
    /// Parameter sets are known when a stream is published, have at most 189 bytes, and stay.
    bool fixedSets = false;
    /// Players begin at IDR pictures alone, not at recovery points, and wait for the next one.
    bool idrOnly = false;
    /// URIs of streams have up to 1024 characters, and any end. Without it they have up to 255, and
    /// none ends like the address of a track ("track1").
    bool anyUri = false;
};

} // namespace kovastream
