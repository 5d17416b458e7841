#pragma once

#include <atomic>
#include <cstdint>

/// Lets one thread wait for work that others bring. Costs the bringer one
/// exchange while the waiter is busy, and takes no lock.
/// A zeroed word is a valid event without a signal.
struct KovaEvent {
    std::atomic<uint32_t> nWord{0};
};

/// Wakes the waiter, or lets its next wait return at once. Any thread.
void KovaEventSignal(KovaEvent *pEvent);

/// Waits for a signal, at most nMilliseconds; may return early. One waiter.
void KovaEventWait(KovaEvent *pEvent, uint32_t nMilliseconds);
