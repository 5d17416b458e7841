#pragma once

#include <cstdint>

/// Notices a connection that takes nothing, where the system does not: not every
/// one has TCP_USER_TIMEOUT, and old kernels do not count a closed window there.
/// Zeroed: nothing has been refused. Its owner guards it.
struct KovaStallWatch {
    uint64_t nSince; ///< first refusal since a byte was taken, KovaClockMonotonic(); 0 for none
    int nUnsent;     ///< bytes that the system held for the peer then, or since
};

/// The connection has taken at least a byte.
void KovaStallWatchTaken(KovaStallWatch *pWatch);

/// The connection has refused to take a byte that somebody wants to send. Returns
/// whether nothing has been taken for 10 s, neither from us nor by the peer.
bool KovaStallWatchRefused(KovaStallWatch *pWatch, int nSocket);
