#pragma once

#include <cstdint>

/// What somebody waits for on a descriptor, and what has happened.
enum : uint32_t {
    kPollRead = 1,
    kPollWrite = 2,
    kPollEnd = 4, ///< error or hang-up; always told
};

struct KovaPollItem;

/// Called for a descriptor on which something happened. It may forget any item.
using KovaPollHandler = void (*)(KovaPollItem *pItem, uint32_t nEvents);

/// One descriptor that is waited for; part of its owner's record.
struct KovaPollItem {
    int nDescriptor;
    uint32_t nWanted; ///< kPollRead, kPollWrite
    KovaPollHandler pfnHandle;
    uint32_t nPlace; ///< the poller's
};

/// Waits for many descriptors: epoll(7), or poll(2) where the system has none. One
/// thread uses it.
struct KovaPoller;

/// Null without memory or descriptors. bNoEpoll: as if the system had none, for tests.
KovaPoller *KovaPollerCreate(bool bNoEpoll);
void KovaPollerDestroy(KovaPoller *pPoller);

/// Begins to wait for an item, whose fields but nPlace are set. False without memory.
bool KovaPollerAdd(KovaPoller *pPoller, KovaPollItem *pItem);

/// Changes what is waited for.
void KovaPollerWant(KovaPoller *pPoller, KovaPollItem *pItem, uint32_t nWanted);

/// Forgets an item, also inside a handler; its descriptor is still open. Events of
/// this round that are not handled yet are not told any more.
void KovaPollerRemove(KovaPoller *pPoller, KovaPollItem *pItem);

/// Waits at most nMilliseconds (-1: without end) and keeps what happened.
void KovaPollerWait(KovaPoller *pPoller, int nMilliseconds);

/// Calls the handlers of what the last wait brought. Whether it was as much as one wait can
/// bring: more may have happened.
bool KovaPollerHandle(KovaPoller *pPoller);
