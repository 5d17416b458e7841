#pragma once

#include <cstdint>

/// What the library makes of the wall clock, in a few lines: written from what
/// is promised, not from its code. Clock values are microseconds since 1970.

/// The clock in ms: microseconds modulo 2^32, sign-extended to 64 bits.
inline uint64_t KovaModelMilliseconds(int64_t nClock)
{
    int64_t nLow = nClock & 0xffffffff;
    if (nLow >= 0x80000000)
        nLow -= 0x100000000;
    return static_cast<uint64_t>(nLow) / 1000;
}

/// The clock in seconds, as a signed 32-bit number.
inline int32_t KovaModelSeconds(int64_t nClock)
{
    return static_cast<int32_t>(static_cast<uint32_t>(nClock / 1000000));
}

/// The packets of one group of a stream.
class KovaPacingModel {
public:
    /// Whether a packet is held back when it is taken at this time.
    bool Take(uint32_t nPts, int64_t nClock)
    {
        const uint64_t nNow = KovaModelMilliseconds(nClock);
        if (m_nFirstTime == 0 || m_nFirstPts == 0) {
            m_nFirstTime = nNow;
            m_nFirstPts = nPts;
            return false;
        }
        const bool bPaced = nPts > m_nLastPts && nPts > m_nFirstPts && nPts - m_nLastPts < 1000;
        m_nLastPts = nPts;
        return bPaced && Early(nPts, nClock) < 3000 + 1000 && Early(nPts, nClock) > 0;
    }

    /// Whether a packet that is held back still is at this time. A clock that
    /// has been set to long before ends it as well.
    bool Holds(uint32_t nPts, int64_t nClock) const
    {
        return Early(nPts, nClock) < 3000 + 1000 && Early(nPts, nClock) >= 0;
    }

private:
    /// How many ms there are until the packet is one second behind its schedule.
    int64_t Early(uint32_t nPts, int64_t nClock) const
    {
        const int64_t nElapsed = static_cast<int64_t>(KovaModelMilliseconds(nClock) - m_nFirstTime);
        return static_cast<int64_t>(nPts - m_nFirstPts) + 1000 - nElapsed;
    }

    uint64_t m_nFirstTime = 0;
    uint32_t m_nFirstPts = 0;
    uint32_t m_nLastPts = 0;
};

/// A client's bit rate, measured once per pass of the monitor.
struct KovaBitrateModel {
    uint64_t nStart = 0; ///< of the measurement, ms
    uint32_t nBytes = 0; ///< since then
    uint64_t nBitrate = 0;

    void Pass(int64_t nClock)
    {
        const uint64_t nNow = KovaModelMilliseconds(nClock);
        const uint64_t nElapsed = nNow - nStart;
        if (nElapsed == 0)
            return;
        nBitrate = static_cast<uint32_t>(nBytes / 128 * 1000) / nElapsed;
        if (nElapsed > 10000) {
            nStart = nNow;
            nBytes = 0;
        }
    }
};

/// A session's expiry.
struct KovaExpiryModel {
    int32_t tExpire = 0;

    void Begin(int64_t nClock, int32_t nTimeout)
    {
        tExpire = KovaModelSeconds(nClock + int64_t{nTimeout} * 1000000);
    }
    void Refresh(int64_t nClock, int32_t nTimeout)
    {
        Begin(nClock, nTimeout + 30);
    }
    /// Its second is over; or it is over by up to 68 years when the signed
    /// seconds have begun anew in between, in 2038.
    bool IsOver(int64_t nClock) const
    {
        const int32_t tNow = KovaModelSeconds(nClock);
        const uint32_t nPast = static_cast<uint32_t>(tNow) - static_cast<uint32_t>(tExpire);
        return tExpire < tNow || (nPast != 0 && nPast < 0x80000000U);
    }
};

/// Moments and spans to test with.
constexpr int64_t kSecond = 1000000;
constexpr int64_t kHour = 3600 * kSecond;
constexpr int64_t kFiftyYears = 1577880000 * kSecond;
constexpr int64_t kToday = 1795132800 * kSecond;    ///< 2026-11-20
constexpr int64_t kEpochEnd = 2147483648 * kSecond; ///< 2038-01-19, 2^31 seconds
/// The microseconds modulo 2^32 begin anew; half of that later they turn negative.
constexpr int64_t kWrap = (kToday / 0x100000000 + 1) * 0x100000000;
constexpr int64_t kTurn = kWrap + 0x80000000;
