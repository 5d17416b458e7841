#include "live/engine/poller.h"

#include "foundation/heap.h"

#include <poll.h>
#include <sys/epoll.h>
#include <unistd.h>

namespace {

constexpr int kEventsPerWait = 64;
constexpr uint32_t kFirstRoom = 16;

struct Happened {
    KovaPollItem *pItem; ///< null once it was forgotten
    uint32_t nEvents;
};

uint32_t EventsOf(uint32_t nSystem, uint32_t nIn, uint32_t nOut, uint32_t nEnd)
{
    return ((nSystem & nIn) != 0 ? kPollRead : 0U) | ((nSystem & nOut) != 0 ? kPollWrite : 0U) |
           ((nSystem & nEnd) != 0 ? kPollEnd : 0U);
}

} // namespace

struct KovaPoller {
    int nEpoll; ///< -1: poll
    Happened happened[kEventsPerWait];
    uint32_t nHappened;
    // With poll only: both arrays have the same places.
    pollfd *pEntries;
    KovaPollItem **ppItems;
    uint32_t nItems;
    uint32_t nRoom;
    uint32_t nNext; ///< where the next look at the entries begins: all get their turn
};

namespace {

bool Grow(KovaPoller *pPoller)
{
    const uint32_t nRoom = pPoller->nRoom != 0 ? pPoller->nRoom * 2 : kFirstRoom;
    void *pEntries = realloc(pPoller->pEntries, nRoom * sizeof(pollfd));
    if (pEntries == nullptr)
        return false;
    pPoller->pEntries = static_cast<pollfd *>(pEntries);
    void *pItems = realloc(pPoller->ppItems, nRoom * sizeof(void *));
    if (pItems == nullptr)
        return false;
    pPoller->ppItems = static_cast<KovaPollItem **>(pItems);
    pPoller->nRoom = nRoom;
    return true;
}

short PollEvents(uint32_t nWanted)
{
    return static_cast<short>(((nWanted & kPollRead) != 0 ? POLLIN : 0) |
                              ((nWanted & kPollWrite) != 0 ? POLLOUT : 0));
}

bool EpollChange(const KovaPoller *pPoller, int nOperation, KovaPollItem *pItem)
{
    epoll_event event = {};
    event.events = ((pItem->nWanted & kPollRead) != 0 ? EPOLLIN : 0U) |
                   ((pItem->nWanted & kPollWrite) != 0 ? EPOLLOUT : 0U);
    event.data.ptr = pItem;
    return epoll_ctl(pPoller->nEpoll, nOperation, pItem->nDescriptor, &event) == 0;
}

void WaitByEpoll(KovaPoller *pPoller, int nMilliseconds)
{
    epoll_event events[kEventsPerWait];
    int nCount = epoll_wait(pPoller->nEpoll, events, kEventsPerWait, nMilliseconds);
    // A process that was stopped goes on here: what came meanwhile is seen before it counts as
    // late.
    if (nCount < 0)
        nCount = epoll_wait(pPoller->nEpoll, events, kEventsPerWait, 0);
    for (int nEvent = 0; nEvent < nCount; nEvent++)
        pPoller->happened[pPoller->nHappened++] = {
            static_cast<KovaPollItem *>(events[nEvent].data.ptr),
            EventsOf(events[nEvent].events, EPOLLIN, EPOLLOUT, EPOLLERR | EPOLLHUP)};
}

void WaitByPoll(KovaPoller *pPoller, int nMilliseconds)
{
    int nCount = poll(pPoller->pEntries, pPoller->nItems, nMilliseconds);
    if (nCount < 0)
        nCount = poll(pPoller->pEntries, pPoller->nItems, 0);
    if (nCount <= 0)
        return;
    for (uint32_t nStep = 0; nStep < pPoller->nItems && pPoller->nHappened < kEventsPerWait;
         nStep++) {
        const uint32_t nPlace = (pPoller->nNext + nStep) % pPoller->nItems;
        const uint32_t nSystem = static_cast<uint16_t>(pPoller->pEntries[nPlace].revents);
        if (nSystem != 0)
            pPoller->happened[pPoller->nHappened++] = {
                pPoller->ppItems[nPlace],
                EventsOf(nSystem, POLLIN, POLLOUT, POLLERR | POLLHUP | POLLNVAL)};
    }
    pPoller->nNext += kEventsPerWait;
}

} // namespace

KovaPoller *KovaPollerCreate(bool bNoEpoll)
{
    KovaPoller *pPoller = KovaHeapNew<KovaPoller>();
    if (pPoller == nullptr)
        return nullptr;
    // Without it poll is used, whatever the reason is.
    pPoller->nEpoll = bNoEpoll ? -1 : epoll_create1(EPOLL_CLOEXEC);
    return pPoller;
}

void KovaPollerDestroy(KovaPoller *pPoller)
{
    if (pPoller == nullptr)
        return;
    if (pPoller->nEpoll >= 0)
        close(pPoller->nEpoll);
    free(pPoller->pEntries);
    free(pPoller->ppItems);
    free(pPoller);
}

bool KovaPollerAdd(KovaPoller *pPoller, KovaPollItem *pItem)
{
    if (pPoller->nEpoll >= 0)
        return EpollChange(pPoller, EPOLL_CTL_ADD, pItem);
    if (pPoller->nItems == pPoller->nRoom && !Grow(pPoller))
        return false;
    pItem->nPlace = pPoller->nItems;
    pPoller->pEntries[pPoller->nItems] = {pItem->nDescriptor, PollEvents(pItem->nWanted), 0};
    pPoller->ppItems[pPoller->nItems++] = pItem;
    return true;
}

void KovaPollerWant(KovaPoller *pPoller, KovaPollItem *pItem, uint32_t nWanted)
{
    if (pItem->nWanted == nWanted)
        return;
    pItem->nWanted = nWanted;
    if (pPoller->nEpoll >= 0)
        EpollChange(pPoller, EPOLL_CTL_MOD, pItem);
    else
        pPoller->pEntries[pItem->nPlace].events = PollEvents(nWanted);
}

void KovaPollerRemove(KovaPoller *pPoller, KovaPollItem *pItem)
{
    for (uint32_t nEvent = 0; nEvent < pPoller->nHappened; nEvent++) {
        if (pPoller->happened[nEvent].pItem == pItem)
            pPoller->happened[nEvent].pItem = nullptr;
    }
    if (pPoller->nEpoll >= 0) {
        EpollChange(pPoller, EPOLL_CTL_DEL, pItem);
        return;
    }
    const uint32_t nLast = --pPoller->nItems;
    pPoller->pEntries[pItem->nPlace] = pPoller->pEntries[nLast];
    pPoller->ppItems[pItem->nPlace] = pPoller->ppItems[nLast];
    pPoller->ppItems[pItem->nPlace]->nPlace = pItem->nPlace;
}

void KovaPollerWait(KovaPoller *pPoller, int nMilliseconds)
{
    pPoller->nHappened = 0;
    if (pPoller->nEpoll >= 0)
        WaitByEpoll(pPoller, nMilliseconds);
    else
        WaitByPoll(pPoller, nMilliseconds);
}

bool KovaPollerHandle(KovaPoller *pPoller)
{
    const bool bFull = pPoller->nHappened == kEventsPerWait;
    for (uint32_t nEvent = 0; nEvent < pPoller->nHappened; nEvent++) {
        const Happened happened = pPoller->happened[nEvent];
        if (happened.pItem != nullptr)
            happened.pItem->pfnHandle(happened.pItem, happened.nEvents);
    }
    pPoller->nHappened = 0;
    return bFull;
}
