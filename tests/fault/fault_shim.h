#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

/// The calls of the C library that can be made to fail: those of the project's own
/// objects (tests/support/c_calls.h), from the start of the program to its end.
enum KovaFaultCall : uint32_t {
    kFaultMalloc = 1U << 0,
    kFaultCalloc = 1U << 1,
    kFaultRealloc = 1U << 2,
    kFaultMap = 1U << 18, ///< mmap()
    kFaultHeap = kFaultMalloc | kFaultCalloc | kFaultRealloc | kFaultMap,
    kFaultThread = 1U << 3, ///< pthread_create()
    kFaultSocket = 1U << 4,
    kFaultBind = 1U << 5,
    kFaultListen = 1U << 6,
    kFaultSetOption = 1U << 7,    ///< setsockopt()
    kFaultAccept = 1U << 8,       ///< accept() and accept4()
    kFaultSend = 1U << 9,         ///< send(), and sendmsg() into a connection
    kFaultSendTo = 1U << 10,      ///< sendto(), and each message of sendmmsg()
    kFaultReceive = 1U << 11,     ///< recv()
    kFaultReceiveFrom = 1U << 12, ///< recvfrom()
    kFaultPoll = 1U << 13,
    kFaultSleep = 1U << 14,    ///< usleep()
    kFaultControl = 1U << 15,  ///< fcntl()
    kFaultOwnName = 1U << 16,  ///< getsockname()
    kFaultPeerName = 1U << 17, ///< getpeername()
    kFaultEpoll = 1U << 18,    ///< epoll_create1()
    kFaultEpollAdd = 1U << 19, ///< epoll_ctl() that adds
    kFaultEvent = 1U << 20,    ///< eventfd()
    kFaultNameless = kFaultControl | kFaultOwnName | kFaultPeerName,
};

/// A number of failures that never ends.
constexpr int kFaultForEver = 1 << 30;

/// Which calls fail, and how. Calls are counted from 1 over all kinds in nCalls.
struct KovaFaultRule {
    uint32_t nCalls;  ///< KovaFaultCall bits
    int nFirst = 1;   ///< the first call that fails
    int nCount = 1;   ///< how many calls from there on; 0: none, they are only counted
    int nError = 0;   ///< errno of the failure; 0 for a send that is only cut short
    size_t nMost = 0; ///< a send that does not fail takes at most so many bytes
    int nEvery = 1;   ///< of those calls only every n-th fails
};

/// Lets calls fail while it lives: those of the threads that the library has
/// made, and of the test's own thread inside a KovaInsideLibrary scope. What the
/// test does as a player is never touched. One object at a time.
class KovaFaults {
public:
    explicit KovaFaults(std::vector<KovaFaultRule> rules);
    ~KovaFaults();
    KovaFaults(const KovaFaults &) = delete;
    KovaFaults &operator=(const KovaFaults &) = delete;

    /// Calls that a rule covers, failed or not, since the start.
    int Calls(size_t nRule = 0) const;
    /// Calls that have failed or were cut short.
    int Hits() const;
    /// Ends the failures, and the counting; goes on with them. The figures stay.
    void Stop();
    void Start();

private:
    friend struct KovaFaultHooks;
    struct Counted {
        KovaFaultRule rule;
        int nCalls;
    };
    std::vector<Counted> m_rules;
    std::atomic<int> m_nHits{0};
};

/// Holds the first such call (kFaultBind) of the library from now on at its beginning, with
/// whatever its thread holds, until Release() or the object's end. One object at a
/// time.
class KovaHeldCall {
public:
    explicit KovaHeldCall(KovaFaultCall nCall);
    ~KovaHeldCall();
    KovaHeldCall(const KovaHeldCall &) = delete;
    KovaHeldCall &operator=(const KovaHeldCall &) = delete;

    /// Waits until a thread is held; false when none came in time.
    bool WaitHeld(int nMilliseconds);
    /// Lets it go on.
    void Release();
};

/// Counts what this thread calls as the library's while it lives.
class KovaInsideLibrary {
public:
    KovaInsideLibrary();
    ~KovaInsideLibrary();
    KovaInsideLibrary(const KovaInsideLibrary &) = delete;
    KovaInsideLibrary &operator=(const KovaInsideLibrary &) = delete;

private:
    bool m_bBefore;
};

/// What the project's code holds at this moment.
struct KovaHoldings {
    size_t nBlocks;      ///< of the heap
    size_t nThreads;     ///< made by the library
    size_t nDescriptors; ///< of the whole process
};

KovaHoldings KovaHoldingsNow();

/// How many calls of the library have made, or tried to make, a descriptor that
/// a program which the host starts would inherit.
size_t KovaInheritableOpenings();
