#include "bench/track_check.h"

#include <algorithm>
#include <ctime>

namespace {

constexpr uint64_t kLearning = 1'000'000; // microseconds

/// Milliseconds behind its time; 0 for a packet that is early.
uint32_t Lateness(uint32_t nTimestamp, uint64_t nNow, KovaTrackClock *pClock)
{
    // Modulo 2^32 like the timestamps.
    const uint32_t nDue = static_cast<uint32_t>(nNow / 1000 * pClock->nRate / 1000) - nTimestamp;
    const bool bFirst = pClock->nBegin == 0;
    if (bFirst)
        pClock->nBegin = nNow;
    const int32_t nBehind = bFirst ? 0 : static_cast<int32_t>(nDue - pClock->nEarliest);
    // Later on a packet may come early for its own reasons, and the others be on time all the same.
    if (bFirst || (nBehind < 0 && nNow - pClock->nBegin < kLearning))
        pClock->nEarliest = nDue;
    return nBehind > 0 ? static_cast<uint32_t>(int64_t{nBehind} * 1000 / pClock->nRate) : 0;
}

} // namespace

uint64_t KovaLoadNow()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000 +
           static_cast<uint64_t>(now.tv_nsec) / 1000;
}

void KovaTrackCheck::Take(const uint8_t *pHeader, size_t nSize, uint64_t nNow, uint32_t nLateLimit,
                          KovaTrackClock *pClock, KovaLoadCounts *pCounts)
{
    const uint16_t nSequence = static_cast<uint16_t>(pHeader[2] << 8 | pHeader[3]);
    const uint32_t nTimestamp = uint32_t{pHeader[4]} << 24 | uint32_t{pHeader[5]} << 16 |
                                uint32_t{pHeader[6]} << 8 | pHeader[7];
    m_nPackets++;
    pCounts->nPackets++;
    pCounts->nBytes += nSize;

    const uint16_t nMissing = static_cast<uint16_t>(nSequence - m_nNext);
    const bool bBehind = m_bBegun && nMissing >= 0x8000;
    if (bBehind)
        pCounts->nDisorder++;
    else if (m_bBegun)
        pCounts->nLost += nMissing;
    if (!bBehind)
        m_nNext = static_cast<uint16_t>(nSequence + 1);
    m_bBegun = true;

    if ((pHeader[1] & 0x80) != 0) {
        m_nWorstGap = WorstGap(nNow);
        m_nPicture = nNow;
    }
    const uint32_t nLateness = Lateness(nTimestamp, nNow, pClock);
    if (nLateness > nLateLimit)
        pCounts->nLate++;
    if (nLateness > pCounts->nMostLate)
        pCounts->nMostLate = nLateness;
}

uint32_t KovaTrackCheck::WorstGap(uint64_t nNow) const
{
    return std::max(m_nWorstGap, static_cast<uint32_t>((nNow - m_nPicture) / 1000));
}
