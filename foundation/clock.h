#pragma once

#include "foundation/export.h"

#include <cstdint>

/// The library's microsecond clock. It is the wall clock's microsecond count
/// modulo 2^32, widened with its sign: it wraps about every 71.6 minutes and is
/// a huge number during the second half of each period. Everybody who subtracts
/// two readings is built for that.
/// @param pTime  receives the time; untouched on failure
/// @return 1, or 0 for a null pointer or when the system has no time.
KOVA_API int32_t RtspGetTime(uint64_t *pTime);

/// RtspGetTime() in milliseconds (unsigned division), 0 when it fails.
uint64_t KovaClockMilliseconds();

/// Microseconds that only ever go forward, at real speed, from an arbitrary
/// beginning: for waits, which nobody who sets the clock may change.
uint64_t KovaClockMonotonic();

/// The wall clock's seconds as the records keep them: the low 32 bits.
int32_t KovaClockSeconds();

/// Seconds from nThen to nNow, right as long as they are less than 68 years
/// apart, also across the 32-bit limit of 2038 (a camera's clock starts
/// anywhere and is set later).
int32_t KovaClockSecondsBetween(int32_t nThen, int32_t nNow);

/// The moment nSeconds after tMoment, modulo 2^32 like every such moment.
int32_t KovaClockSecondsAfter(int32_t tMoment, int32_t nSeconds);
