#pragma once

#include "foundation/mutex.h"
#include "live/engine/live.h"
#include "live/engine/poller.h"
#include "live/engine/timers.h"
#include "live/engine/wake.h"
#include "live/media/unit.h"

#include <pthread.h>

#include <atomic>
#include <cstdint>

struct KovaLiveConnection;
struct KovaLiveSession;
struct KovaUdpPorts;
struct KovaNotices;

/// What others ask of a loop.
enum KovaLoopOrder : uint8_t {
    kOrderUnit,       ///< pUnit of pStream is to be sent; both references are the loop's
    kOrderConnection, ///< pConnection is the loop's from now on
    kOrderReady,      ///< pStream can be described from now on
};

struct KovaLoopMessage {
    KovaLoopMessage *pNext;
    KovaLoopOrder order;
    KovaLiveStream *pStream; ///< with a reference
    KovaUnit *pUnit;
    KovaLiveConnection *pConnection;
    uint32_t nNext; ///< of a unit that goes out in pieces: its next packet
    uint64_t nDue;  ///< and when that goes out
};

/// What a loop has done, for the figures.
struct KovaLoopFigures {
    uint64_t nRefused;
    KovaSentCounts sent;
};

/// One network thread: connections, players, UDP ports and timers that nobody else
/// touches. Its mutex is held for a round of work, between two waits, so that
/// others may look at its players meanwhile; callbacks run after it was released.
struct KovaLiveLoop {
    KovaLive *pLive;
    uint32_t nIndex;
    pthread_t thread;
    bool bStarted;
    KovaWake wake;
    KovaPollItem wakeItem;
    KovaPollItem listenItem; ///< loop 0's
    int nReserve;            ///< loop 0: a descriptor to give up when there are no more; -1: none

    bool bListens; ///< loop 0, once it waits for connections

    std::atomic<bool> bStop;
    std::atomic<bool> bLook;     ///< a session is to be let go, or a stream was removed
    std::atomic<uint32_t> nLoad; ///< connections, for finding the least busy loop

    KovaMutex inboxMutex;
    KovaLoopMessage *pInbox KOVA_GUARDED_BY(inboxMutex); ///< oldest first
    KovaLoopMessage **ppInboxEnd KOVA_GUARDED_BY(inboxMutex);
    KovaLoopMessage *pSpare KOVA_GUARDED_BY(inboxMutex); ///< recycled messages
    uint32_t nSpare KOVA_GUARDED_BY(inboxMutex);

    /// What the thread alone touches stands without it: everything but the sessions.
    KovaMutex mutex;
    KovaPoller *pPoller;
    KovaTimers timers;
    uint32_t nFullRounds; ///< in a row, since timers were looked at
    uint64_t nNow;        ///< µs, monotonic, of this round
    KovaLiveConnection *pConnections;
    KovaLiveSession *pSessions KOVA_GUARDED_BY(mutex); ///< newest first
    KovaUdpPorts *pUdpPorts;
    KovaLoopMessage *pDelayed; ///< units that are not due yet, by the times at which they are
    KovaLoopMessage **ppDelayedEnd;
    uint64_t nDelayedLast; ///< µs: when the last of them is due
    KovaTimer delayTimer;
    KovaLoopMessage *pSpread; ///< large units that go out in pieces, at most one of a track
    KovaTimer spreadTimer;
    KovaTimer listenTimer; ///< loop 0: tries again to accept
    KovaNotices *pNotices;
    KovaLoopFigures figures KOVA_GUARDED_BY(mutex);
};

/// Makes a loop that does not run yet, and starts its thread (64 KiB of stack, no
/// signals, a name). KOVA_LIVE_OK, ERROR_MEMORY or _SYSTEM.
int32_t KovaLoopCreate(KovaLive *pLive, uint32_t nIndex, KovaLiveLoop **ppLoop);
int32_t KovaLoopStart(KovaLiveLoop *pLoop);

/// What the thread does again and again: waits at most so long (-1: without end), handles
/// everything that has happened, then tells the host of it. Only without a thread from elsewhere.
void KovaLoopRound(KovaLiveLoop *pLoop, int nMilliseconds);
/// And in the end: ends all sessions and connections.
void KovaLoopEndAll(KovaLiveLoop *pLoop);

/// Asks the thread to end, waits for it, and frees the loop with everything in it.
void KovaLoopStop(KovaLiveLoop *pLoop);
void KovaLoopDestroy(KovaLiveLoop *pLoop);

/// Whether the calling thread is one of the server's loops.
bool KovaLoopIsCaller(const KovaLive *pLive);

/// Leaves a message and wakes the loop. The references in it are the loop's then.
/// False without memory: they are the caller's still. Any thread; waits for nobody's
/// work. pUnit only for kOrderUnit.
bool KovaLoopPost(KovaLiveLoop *pLoop, KovaLoopOrder order, KovaLiveStream *pStream,
                  KovaUnit *pUnit);
/// The same for a connection that is nobody's.
bool KovaLoopPostConnection(KovaLiveLoop *pLoop, KovaLiveConnection *pConnection);

/// Lets the loop look for players whom the host lets go and for streams that were removed.
void KovaLoopLook(KovaLiveLoop *pLoop);

/// Takes all messages, oldest first, and gives one back that was done. The loop's thread.
KovaLoopMessage *KovaLoopTakeInbox(KovaLiveLoop *pLoop);
void KovaLoopRecycle(KovaLiveLoop *pLoop, KovaLoopMessage *pMessage);

/// Takes connections off the listening socket. The first loop's thread.
bool KovaListenerJoin(KovaLiveLoop *pLoop);
/// Accepts nothing for a moment: there is nothing to accept with.
void KovaListenerPause(KovaLiveLoop *pLoop);
/// Accepts again, and looks for the descriptor to give up if somebody else got it.
void KovaListenerResume(KovaLiveLoop *pLoop);
void KovaListenerLeave(KovaLiveLoop *pLoop);
