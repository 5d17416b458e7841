#pragma once

#include "foundation/mutex.h"
#include "live/media/h264_nals.h"

#include <cstddef>
#include <cstdint>

/// Sequence and picture parameter sets of a track, by their ids; of more than fit,
/// those that are oldest are forgotten.
constexpr uint32_t kMaxSps = 4;
constexpr uint32_t kMaxPps = 8;
constexpr uint32_t kMaxSets = kMaxSps + kMaxPps;
static_assert(kMaxSets <= kNalsInFront, "all of them fit in front of an access unit");

/// The largest set that is remembered, bytes. Larger ones, which no encoder makes,
/// only go through.
constexpr uint32_t kMaxSetSize = 1024;

struct KovaParameterSet {
    uint8_t *pBytes; ///< NAL header first; null: no set
    uint32_t nSize;
    uint32_t nId;
    uint32_t nChange; ///< when it came; larger is later
    bool bUnsent;     ///< came or changed, and no unit has carried it since
};

/// Changed by the pushing thread alone, which therefore reads without the mutex;
/// the description is written by others. Zeroed memory to begin with.
struct KovaParameterSets {
    KovaMutex mutex;
    KovaParameterSet sets[kMaxSets] KOVA_GUARDED_BY(mutex); ///< kMaxSps, then kMaxPps
    uint32_t nChanges;                                      ///< the pushing thread's
};
void KovaParameterSetsInit(KovaParameterSets *pSets);
void KovaParameterSetsFree(KovaParameterSets *pSets);

/// Remembers a set (kNalSps or kNalPps). Pushing thread.
/// @param pSlots  gets the bit of its place added, if there is one
/// @return KOVA_LIVE_OK; ERROR_DATA when it is none or too large (nothing is
///         remembered); ERROR_MEMORY
int32_t KovaParameterSetsTake(KovaParameterSets *pSets, const KovaNal &nal, uint32_t *pSlots);

/// The sets that have to go in front of a unit. Pushing thread.
/// @param bAll      all of them, else those that are unsent
/// @param nCarried  places of those that the unit carries itself
/// @param pNals     room for kMaxSets; sequence parameter sets first
/// @param pSps,pPps how many of each
void KovaParameterSetsMissing(const KovaParameterSets *pSets, bool bAll, uint32_t nCarried,
                              KovaNal *pNals, uint32_t *pSps, uint32_t *pPps);

/// A unit went out with everything that was missing. Pushing thread.
void KovaParameterSetsSent(KovaParameterSets *pSets);

/// Whether there is one of each kind. Any thread.
bool KovaParameterSetsKnown(KovaParameterSets *pSets);

/// Appends "profile-level-id=<hex>;sprop-parameter-sets=<base64>,..." (RFC 6184, 8.1).
/// False when it does not fit, or sets are missing; *pLength may have moved. Any thread.
bool KovaParameterSetsDescribe(KovaParameterSets *pSets, char *szText, size_t nCapacity,
                               size_t *pLength);
