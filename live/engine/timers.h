#pragma once

#include <cstdint>

struct KovaTimer;

/// Called when a timer's time has come; it is not set any more then.
using KovaTimerHandler = void (*)(KovaTimer *pTimer, uint64_t nNow);

/// One deadline; part of its owner's record.
struct KovaTimer {
    uint64_t nDue; ///< µs of KovaClockMonotonic
    KovaTimerHandler pfnHandle;
    uint32_t nPlace; ///< from 1 in the heap; 0: not set
};

/// The deadlines of one loop, earliest first. One thread uses it. Zeroed: empty.
struct KovaTimers {
    KovaTimer **ppHeap; ///< from place 1
    uint32_t nCount;
    uint32_t nOwners;
    uint32_t nRoom;
};

/// Makes room for one more owner's timer, so that setting it cannot fail. False
/// without memory. Given back by KovaTimersLeave, which also stops the timer.
bool KovaTimersJoin(KovaTimers *pTimers);
void KovaTimersLeave(KovaTimers *pTimers, KovaTimer *pTimer);

/// Sets a timer, or moves one that is set.
void KovaTimersSet(KovaTimers *pTimers, KovaTimer *pTimer, uint64_t nDue);
void KovaTimersStop(KovaTimers *pTimers, KovaTimer *pTimer);

/// Calls the handlers of all timers that are due at nNow. One that a handler sets
/// for nNow or earlier waits for the next call.
void KovaTimersHandle(KovaTimers *pTimers, uint64_t nNow);

/// Milliseconds until the earliest is due, rounded up, for poll(2); -1 without one.
int KovaTimersWait(const KovaTimers *pTimers, uint64_t nNow);

/// Frees the room; nobody uses it any more.
void KovaTimersClear(KovaTimers *pTimers);
