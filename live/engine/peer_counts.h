#pragma once

#include "live/engine/live.h"

#include <cstdint>

/// Counts a connection of an address for the limit of connections per address. False when it
/// would be one too many, or without memory. Nothing is kept without such a limit.
bool KovaPeerEnter(KovaLive *pLive, uint32_t nAddress);

/// Counts it out. Any thread.
void KovaPeerLeave(KovaLive *pLive, uint32_t nAddress);
