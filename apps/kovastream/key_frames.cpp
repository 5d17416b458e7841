#include "key_frames.h"

#include "nal_units.h"

#include <cstdio>

namespace kovastream {

namespace {

/// Apart further than two seconds is worth a word; at 23.98 pictures a second 50 of them last a
/// little longer.
constexpr int64_t kApart = 2100000;

/// So long is waited for the next key frame, which tells the true distance: many encoders make one
/// in 250 pictures.
constexpr int64_t kPatience = 12000000;

/// Types of supplemental information (ITU-T H.264, D.1).
constexpr unsigned kRecoveryPoint = 6;

/// The bytes of a unit without those that keep start codes out of it (ITU-T H.264, 7.4.1).
class Payload {
public:
    Payload(const uint8_t *bytes, size_t size) : m_bytes(bytes), m_size(size) {}

    /// The next byte, -1 behind the last one.
    int Take()
    {
        if (m_zeros >= 2 && m_at < m_size && m_bytes[m_at] == 3) {
            m_at++;
            m_zeros = 0;
        }
        if (m_at >= m_size)
            return -1;
        const uint8_t byte = m_bytes[m_at++];
        m_zeros = byte == 0 ? m_zeros + 1 : 0;
        return byte;
    }
    /// A number in the form of types and sizes: 255 as often as it takes, then the rest.
    unsigned Number()
    {
        unsigned number = 0;
        int byte = Take();
        for (; byte == 0xFF; byte = Take())
            number += 0xFF;
        return byte < 0 ? number : number + static_cast<unsigned>(byte);
    }
    /// Whether there is another message, not just the bit that ends the unit.
    bool More() const
    {
        return m_at + 1 < m_size;
    }

private:
    const uint8_t *const m_bytes;
    const size_t m_size;
    size_t m_at = 0;
    int m_zeros = 0;
};

/// Whether one of the messages of a unit of supplemental information is a recovery point.
bool HasRecoveryPoint(const uint8_t *unit, size_t size)
{
    Payload payload(unit + 1, size - 1);
    while (payload.More()) {
        const unsigned type = payload.Number();
        if (type == kRecoveryPoint)
            return true;
        for (unsigned left = payload.Number(); left > 0 && payload.Take() >= 0; left--)
            continue;
    }
    return false;
}

std::string Seconds(int64_t time)
{
    char text[32];
    snprintf(text, sizeof(text), "%.1f s", static_cast<double>(time) / 1e6);
    return text;
}

} // namespace

Entry EntryOf(const uint8_t *bytes, size_t size)
{
    Entry entry = Entry::None;
    bool slice = false;
    ForEachNalUnit(bytes, size, [&entry, &slice](const uint8_t *unit, size_t length) {
        const int type = NalType(unit);
        if (slice)
            return;
        slice = type >= kNalSlice && type <= kNalIdr;
        if (type == kNalIdr)
            entry = Entry::Key;
        else if (type == kNalSei && HasRecoveryPoint(unit, length))
            entry = Entry::Recovery;
    });
    return entry;
}

std::string KeyFrames::WhatToDo() const
{
    if (m_recovery)
        return ". They cannot begin at the recovery points of open GOPs and intra refresh: let the "
               "encoder make IDR pictures (-g 50 -x264-params open-gop=0:intra-refresh=0)";
    return ". Let the encoder make one every second or two (-g 50, for x264 keyint=50)";
}

std::optional<std::string> KeyFrames::LookAtKeyFrame(int64_t wait)
{
    if (wait <= kApart || wait < 2 * m_saidApart)
        return std::nullopt;
    m_saidApart = wait;
    const std::string time = Seconds(wait);
    if (!m_idrOnly)
        return "key frames are " + time + " apart: what players see first may be as old" +
               WhatToDo();
    return "key frames (IDR) are " + time + " apart: players wait up to " + time +
           " for their first picture" + WhatToDo();
}

std::optional<std::string> KeyFrames::LookForKeyFrame(int64_t wait)
{
    if (m_saidNone || wait <= (m_recovery ? kApart : kPatience) || (m_any && !m_idrOnly))
        return std::nullopt;
    m_saidNone = true;
    if (!m_any)
        return "no key frame (IDR) has come, and players cannot begin without" + WhatToDo();
    return "no key frame (IDR) for " + Seconds(wait) + ": players wait for the next one" +
           WhatToDo();
}

std::optional<std::string> KeyFrames::Look(Entry entry, int64_t time)
{
    if (!m_idrOnly && entry == Entry::Recovery)
        entry = Entry::Key;
    m_recovery |= entry == Entry::Recovery;
    const int64_t wait = m_last.has_value() ? time - *m_last : 0;
    if (entry != Entry::Key) {
        if (!m_last.has_value())
            m_last = time;
        return LookForKeyFrame(wait);
    }
    const bool before = m_any;
    m_any = true;
    m_last = time;
    return before ? LookAtKeyFrame(wait) : std::nullopt;
}

} // namespace kovastream
