#include "live/engine/timers.h"

#include "foundation/divide.h"
#include "foundation/heap.h"

namespace {

constexpr uint32_t kFirstRoom = 32;
constexpr uint64_t kLongestWaitMs = 3600000;

void Put(KovaTimers *pTimers, uint32_t nPlace, KovaTimer *pTimer)
{
    pTimers->ppHeap[nPlace] = pTimer;
    pTimer->nPlace = nPlace;
}

/// Moves the timer from its place towards the root or the leaves.
void Sift(KovaTimers *pTimers, uint32_t nPlace, KovaTimer *pTimer)
{
    while (nPlace > 1 && pTimers->ppHeap[nPlace / 2]->nDue > pTimer->nDue) {
        Put(pTimers, nPlace, pTimers->ppHeap[nPlace / 2]);
        nPlace /= 2;
    }
    for (;;) {
        uint32_t nChild = nPlace * 2;
        if (nChild > pTimers->nCount)
            break;
        if (nChild < pTimers->nCount &&
            pTimers->ppHeap[nChild + 1]->nDue < pTimers->ppHeap[nChild]->nDue)
            nChild++;
        if (pTimers->ppHeap[nChild]->nDue >= pTimer->nDue)
            break;
        Put(pTimers, nPlace, pTimers->ppHeap[nChild]);
        nPlace = nChild;
    }
    Put(pTimers, nPlace, pTimer);
}

} // namespace

bool KovaTimersJoin(KovaTimers *pTimers)
{
    if (pTimers->nOwners + 1 >= pTimers->nRoom) {
        const uint32_t nRoom = pTimers->nRoom != 0 ? pTimers->nRoom * 2 : kFirstRoom;
        void *pHeap = realloc(pTimers->ppHeap, nRoom * sizeof(void *));
        if (pHeap == nullptr)
            return false;
        pTimers->ppHeap = static_cast<KovaTimer **>(pHeap);
        pTimers->nRoom = nRoom;
    }
    pTimers->nOwners++;
    return true;
}

void KovaTimersLeave(KovaTimers *pTimers, KovaTimer *pTimer)
{
    KovaTimersStop(pTimers, pTimer);
    pTimers->nOwners--;
}

void KovaTimersSet(KovaTimers *pTimers, KovaTimer *pTimer, uint64_t nDue)
{
    pTimer->nDue = nDue;
    Sift(pTimers, pTimer->nPlace != 0 ? pTimer->nPlace : ++pTimers->nCount, pTimer);
}

void KovaTimersStop(KovaTimers *pTimers, KovaTimer *pTimer)
{
    const uint32_t nPlace = pTimer->nPlace;
    if (nPlace == 0)
        return;
    pTimer->nPlace = 0;
    KovaTimer *pLast = pTimers->ppHeap[pTimers->nCount--];
    if (pLast != pTimer)
        Sift(pTimers, nPlace, pLast);
}

void KovaTimersHandle(KovaTimers *pTimers, uint64_t nNow)
{
    // Those that are due now and no more: a handler may set its timer again at once.
    uint32_t nLeft = pTimers->nCount;
    while (nLeft-- != 0 && pTimers->nCount != 0 && pTimers->ppHeap[1]->nDue <= nNow) {
        KovaTimer *pTimer = pTimers->ppHeap[1];
        KovaTimersStop(pTimers, pTimer);
        pTimer->pfnHandle(pTimer, nNow);
    }
}

int KovaTimersWait(const KovaTimers *pTimers, uint64_t nNow)
{
    if (pTimers->nCount == 0)
        return -1;
    const uint64_t nDue = pTimers->ppHeap[1]->nDue;
    if (nDue <= nNow)
        return 0;
    if (nDue - nNow > kLongestWaitMs * 1000)
        return static_cast<int>(kLongestWaitMs);
    return static_cast<int>(KovaDivide(nDue - nNow + 999, 1000));
}

void KovaTimersClear(KovaTimers *pTimers)
{
    free(pTimers->ppHeap);
    *pTimers = {};
}
