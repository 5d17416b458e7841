#pragma once

#include <cstdint>

/// When a packet goes out, seen from the stream's first packet: nDue is its
/// distance in presentation time, nElapsed the time gone by, both in ms.
/// nElapsed is signed: the clock it comes from wraps, and can be set.

/// A packet less than 3 s early and less than 1 s late is held back.
bool KovaPacingHolds(int64_t nDue, int64_t nElapsed);

/// Whether a packet that is held back stays so: until it is 1 s late, so that
/// the stream runs one second behind its schedule. A clock that jumps out of
/// the window ends the hold as well, or it could last for half an hour.
bool KovaPacingStillHolds(int64_t nDue, int64_t nElapsed);

/// Milliseconds until the hold ends, at least 1.
uint32_t KovaPacingRemaining(int64_t nDue, int64_t nElapsed);
