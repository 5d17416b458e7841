#pragma once

#include "live/engine/stream.h"

#include <cstdint>

/// Keeps a unit of any track, with a reference: a key picture begins the group anew.
/// More than nMostBytes are not kept: then newcomers wait for the next one.
void KovaPictureGroupAdd(KovaPictureGroup *pGroup, KovaUnit *pUnit, uint32_t nMostBytes);

/// An array of what is kept, with references; null and 0 when that is nothing or there
/// is no memory. Freed by the caller.
void KovaPictureGroupCopy(const KovaPictureGroup *pGroup, KovaUnit ***pppUnits, uint32_t *pnUnits);

/// Keeps nothing any more.
void KovaPictureGroupClear(KovaPictureGroup *pGroup);
