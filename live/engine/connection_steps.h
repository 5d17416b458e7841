#pragma once

#include "live/engine/connection.h"

#include <cstdint>

// What a connection's descriptor and its timer lead to, for connection.cpp alone.

/// Reads what has arrived and serves it.
void KovaConnectionReceive(KovaLiveConnection *pConnection);

/// Does what is due by now. The connection may be gone behind it.
void KovaConnectionHandleTime(KovaTimer *pTimer, uint64_t nNow);

/// Goes where KovaConnectionFollow said. It is gone for this loop behind it.
void KovaConnectionMove(KovaLiveConnection *pConnection);
