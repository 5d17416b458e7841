#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// The packets of one access unit, each behind the four bytes that frame it in an RTSP connection
/// (RFC 2326, 10.12).
using KovaClipUnit = std::vector<std::vector<uint8_t>>;

constexpr size_t kClipFraming = 4;

/// One track's RTP packets as a server sent them, to be sent again and again.
class KovaClip {
public:
    /// Reads a file of records, each behind its size in two bytes, the higher one first: the
    /// session description, then the RTP packets. False when it is no such file.
    bool Read(const char *szFile);

    const std::string &Description() const
    {
        return m_description;
    }
    /// Microseconds between two access units, of which all have the same.
    uint64_t Interval() const
    {
        return m_nInterval;
    }
    /// The next access unit, the first one behind the last; sequence numbers and timestamps go on.
    const KovaClipUnit &Next();

private:
    bool Take(const uint8_t *pPacket, size_t nSize);

    std::string m_description;
    std::vector<KovaClipUnit> m_units;
    uint64_t m_nInterval = 0;
    uint32_t m_nStep = 0; ///< between the timestamps of two units
    size_t m_nNext = 0;
    uint16_t m_nSequence = 0;
    uint32_t m_nTimestamp = 0;
};
