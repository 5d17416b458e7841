#pragma once

#include <cstdint>

/// The wall clock of the test program: gettimeofday(), time() and
/// clock_gettime(CLOCK_REALTIME) of everything that is linked into it, the
/// library's objects included. Without an object of this class they tell the
/// real time. Sleeps and waits are always real, and the monotonic clock's pace.
/// All calls may come from any thread, at any time; one clock at a time.
class KovaFakeClock {
public:
    /// Goes on with the real time until told otherwise.
    KovaFakeClock();
    /// Back to the real time.
    ~KovaFakeClock();
    KovaFakeClock(const KovaFakeClock &) = delete;
    KovaFakeClock &operator=(const KovaFakeClock &) = delete;

    /// Stands still at this time (microseconds since 1970-01-01, not negative).
    void Fix(int64_t nMicroseconds);

    /// Runs on from this time at the real speed.
    void StartAt(int64_t nMicroseconds);

    /// Moves the clock by this much, forth or back, whether it stands or runs.
    void Advance(int64_t nMicroseconds);

    /// Moves the monotonic clock forth by whole seconds; it goes back in the end, so
    /// no time is taken across that.
    void AdvanceMonotonic(int64_t nSeconds);

    /// Lets gettimeofday(), time() and clock_gettime() fail, or work again.
    void Fail(bool bFail);

    /// What the clock shows now, in microseconds.
    int64_t Now() const;
};
