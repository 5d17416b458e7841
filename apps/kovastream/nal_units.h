#pragma once

#include <cstddef>
#include <cstdint>

namespace kovastream {

/// NAL unit types of H.264 (ITU-T H.264, table 7-1).
constexpr int kNalSlice = 1;
constexpr int kNalIdr = 5;
constexpr int kNalSei = 6;
constexpr int kNalSps = 7;
constexpr int kNalPps = 8;

inline int NalType(const uint8_t *unit)
{
    return unit[0] & 0x1F;
}

/// Calls `use` with each unit of an Annex B text; start codes have three bytes or four. Zeros
/// behind a unit are not told apart from it.
template <typename Use> void ForEachNalUnit(const uint8_t *bytes, size_t size, Use use)
{
    const uint8_t *unit = nullptr;
    for (size_t at = 0; at + 2 < size;) {
        if (bytes[at] != 0 || bytes[at + 1] != 0 || bytes[at + 2] != 1) {
            at++;
            continue;
        }
        if (unit != nullptr && unit < bytes + at)
            use(unit, static_cast<size_t>(bytes + at - unit));
        at += 3;
        unit = bytes + at;
    }
    if (unit != nullptr && unit < bytes + size)
        use(unit, static_cast<size_t>(bytes + size - unit));
}

} // namespace kovastream
