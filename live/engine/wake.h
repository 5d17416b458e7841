#pragma once

/// A descriptor by which any thread lets a loop's wait end: eventfd(2), or a pipe
/// where the system has none.
struct KovaWake {
    int nReadEnd;  ///< what the loop waits for
    int nWriteEnd; ///< the same one with eventfd
};

/// Makes it. False without descriptors.
bool KovaWakeOpen(KovaWake *pWake);
void KovaWakeClose(KovaWake *pWake);

/// Lets the loop's wait end, or its next one return at once. Any thread; also
/// in a signal handler.
void KovaWakeSignal(const KovaWake *pWake);

/// Takes all signals. The loop's thread.
void KovaWakeTake(const KovaWake *pWake);
