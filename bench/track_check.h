#pragma once

#include <cstddef>
#include <cstdint>

/// What came in while a measurement ran, over all players.
struct KovaLoadCounts {
    uint64_t nPackets = 0;
    uint64_t nBytes = 0;    ///< of the packets, RTP header included
    uint64_t nLost = 0;     ///< sequence numbers that were left out
    uint64_t nDisorder = 0; ///< packets that came again, or behind a later one
    uint64_t nLate = 0;
    uint32_t nMostLate = 0; ///< milliseconds
};

/// When packets of a track are due, relative to their timestamps: the earliest that one came
/// within the first second. One for all players of a track.
struct KovaTrackClock {
    uint32_t nRate = 90000; ///< of the RTP timestamps, Hz
    uint32_t nEarliest = 0;
    uint64_t nBegin = 0; ///< of the first second, microseconds; 0 before the first packet
};

/// Microseconds of a clock that nobody sets.
uint64_t KovaLoadNow();

/// Follows the packets of one track of one player.
class KovaTrackCheck {
public:
    /// Takes a packet of which at least the first 12 bytes are at hand. It is late when it comes
    /// more than nLateLimit milliseconds after its time.
    void Take(const uint8_t *pHeader, size_t nSize, uint64_t nNow, uint32_t nLateLimit,
              KovaTrackClock *pClock, KovaLoadCounts *pCounts);

    /// Packets since the last Forget().
    uint64_t Count() const
    {
        return m_nPackets;
    }
    /// Begins anew, at a time in microseconds.
    void Forget(uint64_t nNow)
    {
        m_nPackets = 0;
        m_nWorstGap = 0;
        m_nPicture = nNow;
    }
    /// The longest time without the end of a picture, which its last packet marks, from the last
    /// Forget() to now. Milliseconds.
    uint32_t WorstGap(uint64_t nNow) const;

private:
    uint64_t m_nPackets = 0;
    uint64_t m_nPicture = 0; ///< when the last one was complete, microseconds
    uint32_t m_nWorstGap = 0;
    uint16_t m_nNext = 0;
    bool m_bBegun = false;
};

constexpr size_t kLoadRtpHeader = 12;
