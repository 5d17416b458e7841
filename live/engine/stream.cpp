#include "live/engine/stream.h"

#include "foundation/heap.h"
#include "live/engine/loop.h"
#include "live/engine/picture_group.h"

#include <sys/time.h>

#include <cstring>

namespace {

void FreeTrack(KovaLiveTrack *pTrack)
{
    KovaTrackMediaDestroy(pTrack->pMedia);
    free(pTrack);
}

void Free(KovaLiveStream *pStream)
{
    {
        const KovaMutexLock lock(&pStream->mutex, kRankLiveStream);
        KovaPictureGroupClear(&pStream->group);
    }
    for (uint32_t nTrack = 0; nTrack < pStream->nTracks; nTrack++)
        FreeTrack(pStream->pTracks[nTrack]);
    if (pStream->bOwnUsers)
        KovaLoginUsersDestroy(pStream->pUsers);
    KovaMutexDestroy(&pStream->mutex);
    free(pStream->szName);
    free(pStream);
}

/// Hands a unit with its reference to a loop that has not got it: nobody played there when it
/// was pushed.
void PostOnce(KovaLiveStream *pStream, uint32_t nLoop, KovaUnit *pUnit)
    KOVA_REQUIRES(pStream->mutex)
{
    if (static_cast<int32_t>(pUnit->nSerial - pStream->nPosted[nLoop]) > 0) {
        KovaStreamAddReference(pStream);
        pStream->nPosted[nLoop] = pUnit->nSerial;
        if (KovaLoopPost(pStream->pLive->pLoops[nLoop], kOrderUnit, pStream, pUnit))
            return;
        KovaStreamRelease(pStream);
    }
    KovaUnitRelease(pUnit);
}

} // namespace

void KovaStreamAddReference(KovaLiveStream *pStream)
{
    pStream->nReferences.fetch_add(1, std::memory_order_relaxed);
}

void KovaStreamRelease(KovaLiveStream *pStream)
{
    if (pStream != nullptr && pStream->nReferences.fetch_sub(1, std::memory_order_acq_rel) == 1)
        Free(pStream);
}

KovaLiveStream *KovaStreamFind(KovaLive *pLive, const char *szPath)
{
    const KovaMutexLock lock(&pLive->streamsMutex, kRankLiveStreams);
    for (KovaLiveStream *pStream = pLive->pStreams; pStream != nullptr; pStream = pStream->pNext) {
        if (strcmp(pStream->szPath, szPath) == 0) {
            KovaStreamAddReference(pStream);
            return pStream;
        }
    }
    return nullptr;
}

bool KovaStreamReady(KovaLiveStream *pStream, uint64_t nNow, uint64_t *pnWait)
{
    const uint32_t nTracks = pStream->nTracks;
    uint32_t nKnown = 0;
    for (uint32_t nTrack = 0; nTrack < nTracks; nTrack++)
        nKnown += KovaTrackMediaKnown(pStream->pTracks[nTrack]->pMedia) ? 1 : 0;
    const KovaMutexLock lock(&pStream->mutex, kRankLiveStream);
    const uint64_t nEnd = pStream->nFirstPush + pStream->nTrackWait;
    if (pnWait != nullptr)
        *pnWait = nKnown != 0 && pStream->nFirstPush != 0 && nNow < nEnd ? nEnd - nNow : UINT64_MAX;
    return nKnown != 0 && (nKnown == nTracks || (pStream->nFirstPush != 0 && nNow >= nEnd));
}

bool KovaStreamClock(KovaLiveStream *pStream, uint32_t nTrack, uint64_t nNow, int64_t *pPts,
                     int64_t *pWall)
{
    KovaLiveTrack *pTrack = pStream->pTracks[nTrack];
    const KovaMutexLock lock(&pStream->mutex, kRankLiveStream);
    if (pTrack->nLastArrived == 0)
        return false;
    const uint64_t nPassed = nNow > pTrack->nLastArrived ? nNow - pTrack->nLastArrived : 0;
    *pPts = static_cast<int64_t>(static_cast<uint64_t>(pTrack->nLastPts) + nPassed);
    *pWall = static_cast<int64_t>(static_cast<uint64_t>(*pPts) -
                                  static_cast<uint64_t>(pStream->nAnchorPts) +
                                  static_cast<uint64_t>(pStream->nAnchorWall));
    return true;
}

void KovaStreamJoin(KovaLiveStream *pStream, uint32_t nLoop, uint64_t nNow, KovaUnit ***pppKept,
                    uint32_t *pnKept, uint32_t *pnSerial)
{
    const KovaMutexLock lock(&pStream->mutex, kRankLiveStream);
    pStream->nPlaying[nLoop]++;
    *pnSerial = pStream->nLastSerial;
    KovaPictureGroupCopy(&pStream->group, pppKept, pnKept);
    const uint64_t nDelay = pStream->pLive->settings.nDelay;
    uint32_t nOut = 0;
    while (nOut < *pnKept && (*pppKept)[nOut]->nArrived + nDelay <= nNow)
        nOut++;
    if (nDelay == 0 || nOut == *pnKept)
        return;
    *pnSerial = (*pppKept)[nOut]->nSerial - 1;
    for (uint32_t nUnit = nOut; nUnit < *pnKept; nUnit++)
        // The session of the caller holds the stream: no reference given back here is the last.
        // NOLINTNEXTLINE(clang-analyzer-unix.Malloc)
        PostOnce(pStream, nLoop, (*pppKept)[nUnit]);
    *pnKept = nOut;
}

void KovaStreamLeave(KovaLiveStream *pStream, uint32_t nLoop)
{
    const KovaMutexLock lock(&pStream->mutex, kRankLiveStream);
    pStream->nPlaying[nLoop]--;
}

uint32_t KovaStreamPlayers(KovaLiveStream *pStream)
{
    const KovaMutexLock lock(&pStream->mutex, kRankLiveStream);
    uint32_t nPlayers = 0;
    for (const uint32_t nOfLoop : pStream->nPlaying)
        nPlayers += nOfLoop;
    return nPlayers;
}

bool KovaStreamWantsKey(KovaLiveStream *pStream, uint32_t nTrack, uint64_t nNow, uint64_t nEvery)
{
    KovaLiveTrack *pTrack = pStream->pTracks[nTrack];
    const KovaMutexLock lock(&pStream->mutex, kRankLiveStream);
    if (pTrack->nKeyAsked != 0 && nNow < pTrack->nKeyAsked + nEvery)
        return false;
    pTrack->nKeyAsked = nNow;
    return true;
}
