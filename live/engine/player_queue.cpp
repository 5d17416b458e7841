#include "live/engine/player_queue.h"

#include "foundation/heap.h"
#include "live/engine/stream.h"

namespace {

constexpr uint32_t kFirstRoom = 8;

bool Grow(KovaPlayerQueue *pQueue)
{
    const uint32_t nRoom = pQueue->nRoom != 0 ? pQueue->nRoom * 2 : kFirstRoom;
    auto *pEntries = static_cast<KovaQueueEntry *>(KovaHeapAlloc(nRoom * sizeof(KovaQueueEntry)));
    if (pEntries == nullptr)
        return false;
    for (uint32_t nEntry = 0; nEntry < pQueue->nCount; nEntry++)
        pEntries[nEntry] = pQueue->pEntries[(pQueue->nFirst + nEntry) & (pQueue->nRoom - 1)];
    free(pQueue->pEntries);
    pQueue->pEntries = pEntries;
    pQueue->nRoom = nRoom;
    pQueue->nFirst = 0;
    return true;
}

uint32_t BytesOf(const KovaUnit *pUnit, uint32_t nFirst, uint32_t nEnd)
{
    uint32_t nBytes = 0;
    for (uint32_t nPacket = nFirst; nPacket < nEnd; nPacket++)
        nBytes += pUnit->pPackets[nPacket].nSize;
    return nBytes;
}

/// The oldest entry's next packet is done with.
void Advance(KovaLiveSession *pSession)
{
    KovaPlayerQueue *pQueue = &pSession->queue;
    KovaQueueEntry *pEntry = &pQueue->pEntries[pQueue->nFirst];
    pQueue->nBegunOut = 0;
    pQueue->nBytes -= pEntry->pUnit->pPackets[pEntry->nNext].nSize;
    if (++pEntry->nNext != pEntry->nEnd)
        return;
    KovaUnitRelease(pEntry->pUnit);
    pQueue->nFirst = (pQueue->nFirst + 1) & (pQueue->nRoom - 1);
    if (--pQueue->nCount != 0)
        return;
    // A player that keeps up holds nothing but references.
    free(pQueue->pEntries);
    *pQueue = {};
}

/// Lets an entry go whose packets will not be sent.
void Drop(KovaLiveSession *pSession, const KovaQueueEntry &entry)
{
    KovaSessionCountLate(pSession, entry.nEnd - entry.nNext);
    pSession->queue.nBytes -= BytesOf(entry.pUnit, entry.nNext, entry.nEnd);
    KovaUnitRelease(entry.pUnit);
}

/// Whether something of the oldest entry is out.
bool IsBegun(const KovaPlayerQueue &queue)
{
    return queue.pEntries[queue.nFirst].nNext != 0 || queue.nBegunOut != 0;
}

} // namespace

bool KovaQueueAppend(KovaLiveSession *pSession, KovaLiveSetup *pSetup, KovaUnit *pUnit,
                     uint32_t nFirst, uint32_t nEnd)
{
    KovaPlayerQueue *pQueue = &pSession->queue;
    if (pQueue->nCount == pQueue->nRoom && !Grow(pQueue))
        return false;
    KovaUnitAddReference(pUnit);
    pQueue->pEntries[(pQueue->nFirst + pQueue->nCount++) & (pQueue->nRoom - 1)] = {pUnit, pSetup,
                                                                                   nFirst, nEnd};
    pQueue->nBytes += BytesOf(pUnit, nFirst, nEnd);
    return true;
}

KovaQueueEntry *KovaQueueAt(const KovaLiveSession *pSession, uint32_t nPosition)
{
    const KovaPlayerQueue &queue = pSession->queue;
    return &queue.pEntries[(queue.nFirst + nPosition) & (queue.nRoom - 1)];
}

void KovaQueueSent(KovaLiveSession *pSession)
{
    const KovaQueueEntry *pEntry = KovaQueueAt(pSession, 0);
    KovaSessionCountSent(pSession, pEntry->pSetup, 1, pEntry->pUnit->pPackets[pEntry->nNext].nSize);
    Advance(pSession);
}

void KovaQueueLost(KovaLiveSession *pSession)
{
    KovaSessionCountLate(pSession, 1);
    Advance(pSession);
}

bool KovaQueueOverfull(const KovaLiveSession *pSession, uint32_t nBytes)
{
    const KovaPlayerQueue &queue = pSession->queue;
    if (queue.nCount == 0)
        return false;
    const KovaLiveSettings &settings = pSession->pLoop->pLive->settings;
    const KovaUnit *pOldest = queue.pEntries[queue.nFirst].pUnit;
    uint64_t nSince = pOldest->nArrived + settings.nDelay;
    uint64_t nMost = settings.nPlayerMaxBytes;
    // What was kept for newcomers is as old and as large as it is: only what the player takes
    // of it counts. It had left before the player came.
    if (nSince <= pSession->nJoined) {
        nSince = pSession->nJoined;
        nMost += pSession->pStream->nKeepBytes;
    }
    return pSession->pLoop->nNow > nSince + settings.nPlayerMaxTime ||
           uint64_t{queue.nBytes} + nBytes > nMost;
}

void KovaQueueCut(KovaLiveSession *pSession)
{
    KovaPlayerQueue *pQueue = &pSession->queue;
    const uint32_t nKept = IsBegun(*pQueue) ? 1 : 0;
    for (uint32_t nEntry = nKept; nEntry < pQueue->nCount; nEntry++)
        Drop(pSession, *KovaQueueAt(pSession, nEntry));
    pQueue->nCount = nKept;
    if (nKept == 0) {
        free(pQueue->pEntries);
        *pQueue = {};
    }
    for (KovaLiveSetup *pSetup = pSession->pSetups; pSetup != nullptr; pSetup = pSetup->pNext) {
        pSetup->bWantsEntry = true;
        pSetup->bTakes = false; // its beginning may be among what went
    }
}

void KovaQueueClear(KovaLiveSession *pSession, const KovaLiveSetup *pSetup)
{
    KovaPlayerQueue *pQueue = &pSession->queue;
    uint32_t nKept = 0;
    for (uint32_t nEntry = 0; nEntry < pQueue->nCount; nEntry++) {
        const KovaQueueEntry entry = *KovaQueueAt(pSession, nEntry);
        if (pSetup != nullptr && entry.pSetup != pSetup) {
            *KovaQueueAt(pSession, nKept++) = entry;
            continue;
        }
        if (nEntry == 0)
            pQueue->nBegunOut = 0;
        pQueue->nBytes -= BytesOf(entry.pUnit, entry.nNext, entry.nEnd);
        KovaUnitRelease(entry.pUnit);
    }
    pQueue->nCount = nKept;
    if (nKept == 0) {
        free(pQueue->pEntries);
        *pQueue = {};
    }
}
