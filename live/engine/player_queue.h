#pragma once

#include "live/engine/session.h"

#include <cstdint>

/// Appends packets of a unit, with a reference. Without memory they are late: false.
bool KovaQueueAppend(KovaLiveSession *pSession, KovaLiveSetup *pSetup, KovaUnit *pUnit,
                     uint32_t nFirst, uint32_t nEnd);

/// The entry nPosition places behind the oldest.
KovaQueueEntry *KovaQueueAt(const KovaLiveSession *pSession, uint32_t nPosition);

/// The oldest entry's next packet is out: counts it, and lets the entry go with its last.
void KovaQueueSent(KovaLiveSession *pSession);

/// The oldest entry's next packet is lost.
void KovaQueueLost(KovaLiveSession *pSession);

/// Whether what waits is too old or too much for nBytes more.
bool KovaQueueOverfull(const KovaLiveSession *pSession, uint32_t nBytes);

/// Cuts the player back to entries: all units go whose sending has not begun. Counts them.
void KovaQueueCut(KovaLiveSession *pSession);

/// Takes everything of one track out (null: of all), begun or not; the caller sees to it
/// that no frame stays half sent.
void KovaQueueClear(KovaLiveSession *pSession, const KovaLiveSetup *pSetup);
