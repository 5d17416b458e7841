#pragma once

#include "unit.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace kovastream {

/// Looks at an access unit in Annex B form, up to its first slice.
Entry EntryOf(const uint8_t *bytes, size_t size);

/// Judges by the time between a stream's key frames how long players wait for their first picture.
class KeyFrames {
public:
    /// `idrOnly`: players do not begin at recovery points, and wait for the next picture to begin
    /// with; else they are given the last one at once.
    explicit KeyFrames(bool idrOnly) : m_idrOnly(idrOnly) {}

    /// Notes the stream's next picture, decoded at `time`, microseconds. Returns what is to be said
    /// about it, without the stream's name: at most once that none comes, and how far they are
    /// apart when it is twice what was said before.
    std::optional<std::string> Look(Entry entry, int64_t time);

private:
    std::optional<std::string> LookAtKeyFrame(int64_t wait);
    std::optional<std::string> LookForKeyFrame(int64_t wait);
    std::string WhatToDo() const;

    const bool m_idrOnly;
    std::optional<int64_t> m_last; ///< when the last key frame was, or the first picture
    bool m_any = false;            ///< a key frame has come
    bool m_recovery = false;       ///< a recovery point has come
    bool m_saidNone = false;
    int64_t m_saidApart = 0; ///< microseconds
};

} // namespace kovastream
