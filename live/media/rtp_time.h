#pragma once

#include <cstdint>

/// Times of a host in ticks of an RTP clock, without a remainder that adds up.

/// The ticks of a clock from time 0 to nPts, rounded to the nearest, modulo 2^32.
/// @param nPts   µs, any value
/// @param nRate  Hz, below 2^24
uint32_t KovaRtpTicks(int64_t nPts, uint32_t nRate);

/// Timestamps of sound: frame follows frame by its length, so that a receiver sees
/// exact steps whatever the host rounds its times to.
struct KovaSoundTime {
    bool bRunning;  ///< false: the next push begins at its own time
    uint32_t nNext; ///< where the next push begins if its time fits
};

/// The timestamp of a push.
/// @param nPushed      the timestamp that belongs to the pushed time
/// @param nFrameTicks  length of a frame
/// @param nRate        Hz
/// @return pTime->nNext as long as it is no further from nPushed than half a frame,
///         at most 20 ms (a lost frame is always further away); else nPushed.
uint32_t KovaSoundTimeOf(const KovaSoundTime &time, uint32_t nPushed, uint32_t nFrameTicks,
                         uint32_t nRate);
