#pragma once

#include "live/engine/loop.h"

/// A pushed unit on its way to the players of a loop: it leaves after the server's delay,
/// and a very large one in pieces, so that routers and players need not take it at once.

void KovaDeliverInit(KovaLiveLoop *pLoop);

/// Takes a unit's message, which is recycled when the unit is out.
void KovaDeliverUnit(KovaLiveLoop *pLoop, KovaLoopMessage *pMessage);

/// Forgets what waits of a stream; null: of all.
void KovaDeliverForget(KovaLiveLoop *pLoop, const KovaLiveStream *pStream);
