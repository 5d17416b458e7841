#include "kova_live.h"

#include "foundation/clock.h"
#include "live/engine/loop.h"
#include "live/engine/picture_group.h"
#include "live/engine/stream.h"

#include <sys/time.h>

namespace {

constexpr size_t kMostUnitBytes = size_t{16} * 1024 * 1024;

/// How far media time and the wall clock may drift apart before they are tied anew: less
/// than players notice, more than encoders jitter.
constexpr int64_t kMostDrift = 500000;

/// A host that was held up for less than this pushes late what it missed, and is on time again.
constexpr int64_t kMostLateness = 5000000;

/// Lateness that lasts for so long is none.
constexpr uint64_t kLatenessLasts = 2000000;

/// Steps of media time that count as the distance of two units; others are jumps.
constexpr int64_t kMostInterval = 1000000;

int64_t WallClock()
{
    timeval now = {};
    gettimeofday(&now, nullptr);
    return int64_t{now.tv_sec} * 1000000 + now.tv_usec;
}

/// The difference of two times that may stand anywhere.
int64_t Difference(int64_t nLater, int64_t nEarlier)
{
    return static_cast<int64_t>(static_cast<uint64_t>(nLater) - static_cast<uint64_t>(nEarlier));
}

/// Whether units of so much lateness shall not move the clock: players follow each of its jumps.
bool IsHeldUp(KovaLiveStream *pStream, int64_t nLate, uint64_t nNow) KOVA_REQUIRES(pStream->mutex)
{
    if (nLate < kMostDrift || nLate >= kMostLateness)
        return false;
    if (pStream->nLateSince == 0)
        pStream->nLateSince = nNow;
    return nNow - pStream->nLateSince < kLatenessLasts;
}

/// All tracks of a stream are tied to the wall clock alike, so that sound and picture stay
/// together; a clock that was set, or a jump of the media, ties them anew.
void TieToWall(KovaLiveStream *pStream, int64_t nPts, uint64_t nMonotonic)
    KOVA_REQUIRES(pStream->mutex)
{
    const int64_t nNow = WallClock();
    const int64_t nThought =
        static_cast<int64_t>(static_cast<uint64_t>(pStream->nAnchorWall) +
                             static_cast<uint64_t>(Difference(nPts, pStream->nAnchorPts)));
    const int64_t nOff = Difference(nNow, nThought);
    if (pStream->nFirstPush != 0 && IsHeldUp(pStream, nOff, nMonotonic))
        return;
    pStream->nLateSince = 0;
    if (pStream->nFirstPush != 0 && nOff > -kMostDrift && nOff < kMostDrift)
        return;
    pStream->nAnchorPts = nPts;
    pStream->nAnchorWall = nNow;
}

void NoteTimes(KovaLiveStream *pStream, KovaLiveTrack *pTrack, int64_t nPts, uint64_t nNow)
    KOVA_REQUIRES(pStream->mutex)
{
    TieToWall(pStream, nPts, nNow);
    const int64_t nStep = Difference(nPts, pTrack->nLastPts);
    if (pTrack->nLastArrived != 0 && nStep > 0 && nStep < kMostInterval)
        pTrack->nInterval = nStep;
    pTrack->nLastPts = nPts;
    pTrack->nLastArrived = nNow;
    if (pStream->nFirstPush == 0)
        pStream->nFirstPush = nNow;
}

/// Hands the unit to the loops that have players of the stream. Returns whether all have it.
bool HandOut(KovaLiveStream *pStream, KovaUnit *pUnit) KOVA_REQUIRES(pStream->mutex)
{
    bool bAll = true;
    pUnit->nSerial = ++pStream->nLastSerial;
    if (pStream->bKeepGroup)
        KovaPictureGroupAdd(&pStream->group, pUnit, pStream->nKeepBytes);
    for (uint32_t nLoop = 0; nLoop < pStream->pLive->nLoops; nLoop++) {
        if (pStream->nPlaying[nLoop] == 0)
            continue;
        pStream->nPosted[nLoop] = pUnit->nSerial;
        KovaUnitAddReference(pUnit);
        KovaStreamAddReference(pStream);
        if (KovaLoopPost(pStream->pLive->pLoops[nLoop], kOrderUnit, pStream, pUnit))
            continue;
        KovaStreamRelease(pStream);
        KovaUnitRelease(pUnit);
        bAll = false;
    }
    return bAll;
}

/// The stream can be described for the first time: those who wait for it are told.
void TellReady(KovaLiveStream *pStream, uint64_t nNow)
{
    if (pStream->bReady || !KovaStreamReady(pStream, nNow, nullptr) ||
        pStream->bReady.exchange(true))
        return;
    for (uint32_t nLoop = 0; nLoop < pStream->pLive->nLoops; nLoop++) {
        KovaStreamAddReference(pStream);
        if (!KovaLoopPost(pStream->pLive->pLoops[nLoop], kOrderReady, pStream, nullptr))
            KovaStreamRelease(pStream);
    }
}

int32_t Push(KovaLiveTrack *pTrack, const uint8_t *pData, size_t nSize, int64_t nPts)
{
    KovaLiveStream *pStream = pTrack->pStream;
    KovaUnit *pUnit = nullptr;
    int32_t nResult = KovaTrackMediaCut(pTrack->pMedia, pData, nSize, nPts, &pUnit);
    const uint64_t nNow = KovaClockMonotonic();
    if (nResult != KOVA_LIVE_OK && nResult != KOVA_LIVE_ERROR_MEMORY)
        return nResult;
    {
        const KovaMutexLock lock(&pStream->mutex, kRankLiveStream);
        NoteTimes(pStream, pTrack, nPts, nNow);
        if (pUnit != nullptr) {
            pUnit->nArrived = nNow;
            if (!HandOut(pStream, pUnit))
                nResult = KOVA_LIVE_ERROR_MEMORY;
        }
        if (nResult == KOVA_LIVE_OK) {
            pStream->counts.nUnits++;
            pStream->counts.nUnitBytes += nSize;
        } else {
            pStream->counts.nDroppedUnits++;
        }
    }
    KovaUnitRelease(pUnit);
    TellReady(pStream, nNow);
    return nResult == KOVA_LIVE_OK ? KOVA_LIVE_OK : KOVA_LIVE_DROPPED;
}

} // namespace

extern "C" int32_t KovaLivePush(KovaLiveTrack *pTrack, const void *pData, size_t nSize,
                                int64_t nPts)
{
    if (pTrack == nullptr || pData == nullptr || nSize == 0)
        return KOVA_LIVE_ERROR_ARGUMENT;
    if (nSize > kMostUnitBytes)
        return KOVA_LIVE_ERROR_TOO_LARGE;
    pTrack->nPushing++;
    const int32_t nResult = Push(pTrack, static_cast<const uint8_t *>(pData), nSize, nPts);
    pTrack->nPushing--;
    return nResult;
}
