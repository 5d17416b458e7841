#pragma once

#include <cstddef>

/// Fills a buffer with bytes that nobody can foresee: getrandom(2), or /dev/urandom
/// where the kernel lacks it. Never waits, not for the kernel's pool to fill at
/// boot either. Any thread.
/// @return false when the system gave none: the bytes are then a mix of the clocks,
///         addresses and a count, which differ from call to call but can be guessed.
bool KovaRandomFill(void *pBytes, size_t nSize);
