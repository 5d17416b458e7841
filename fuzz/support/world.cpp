#include "fuzz/support/world.h"

#include "fuzz/support/network.h"
#include "fuzz/support/require.h"

#include <sanitizer/common_interface_defs.h>
#include <sys/mman.h>
#include <ucontext.h>

#include <cstddef>
#include <list>
#include <thread>
#include <vector>

namespace {

constexpr size_t kStackSize = 512 * 1024;
constexpr int64_t kBegin = 1704447845000000; // a Friday in January 2024, 09:44:05 UTC
constexpr int64_t kMillion = 1000000;

/// Nothing that the library waits for takes this long (of the world's own time).
constexpr int64_t kLongestWait = 3600 * kMillion;
constexpr unsigned kMostTurns = 20 * 1000 * 1000;

struct Thread {
    ucontext_t context;
    void *pStack;
    void *pFakeStack;
    void *(*pfnBody)(void *);
    void *pArgument;
    int64_t nWakeAt;
    const void *pWaitsFor;
    bool bDone;
};

/// Everything that a run changes.
struct World {
    bool bOn;
    std::thread::id owner;
    std::list<Thread> threads;
    Thread *pCurrent; ///< null: the fuzzer itself
    int64_t nNow;     ///< since the begin of the run
    int64_t nClockStep;
    int64_t nWaitedSince; ///< when the fuzzer last let the threads run by its own will
    unsigned nTurns;
    ucontext_t fuzzer;
    void *pFuzzerFakeStack;
    const void *pFuzzerStack;
    size_t nFuzzerStackSize;
};
World g_world;
std::vector<void *> g_freeStacks;
const char g_sockets = 0; // what threads in poll() wait for

void *TakeStack()
{
    if (!g_freeStacks.empty()) {
        void *pStack = g_freeStacks.back();
        g_freeStacks.pop_back();
        return pStack;
    }
    void *pStack = mmap(nullptr, kStackSize, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
    KovaRequire(pStack != MAP_FAILED, "memory for a stack");
    mprotect(pStack, 4096, PROT_NONE);
    return pStack;
}

/// From a thread back to the fuzzer; for good when it is done.
void SwitchBack(Thread *pThread)
{
    g_world.pCurrent = nullptr;
    __sanitizer_start_switch_fiber(pThread->bDone ? nullptr : &pThread->pFakeStack,
                                   g_world.pFuzzerStack, g_world.nFuzzerStackSize);
    swapcontext(&pThread->context, &g_world.fuzzer);
    __sanitizer_finish_switch_fiber(pThread->pFakeStack, nullptr, nullptr);
}

void RunBody()
{
    __sanitizer_finish_switch_fiber(nullptr, &g_world.pFuzzerStack, &g_world.nFuzzerStackSize);
    Thread *pThread = g_world.pCurrent;
    pThread->pfnBody(pThread->pArgument);
    pThread->bDone = true;
    SwitchBack(pThread);
}

/// Gives a thread its turn, until it sleeps or ends.
void SwitchTo(Thread *pThread)
{
    g_world.pCurrent = pThread;
    __sanitizer_start_switch_fiber(&g_world.pFuzzerFakeStack, pThread->pStack, kStackSize);
    swapcontext(&g_world.fuzzer, &pThread->context);
    __sanitizer_finish_switch_fiber(g_world.pFuzzerFakeStack, nullptr, nullptr);
}

Thread *NextThread()
{
    Thread *pNext = nullptr;
    for (Thread &thread : g_world.threads) {
        if (pNext == nullptr || thread.nWakeAt < pNext->nWakeAt)
            pNext = &thread;
    }
    return pNext;
}

void TakeTurn(Thread *pThread)
{
    KovaRequire(++g_world.nTurns < kMostTurns, "threads come to rest");
    SwitchTo(pThread);
    if (pThread->bDone) {
        g_freeStacks.push_back(pThread->pStack);
        g_world.threads.remove_if([](const Thread &thread) { return thread.bDone; });
        return;
    }
    // Behind the others that are due at the same time.
    for (auto entry = g_world.threads.begin(); entry != g_world.threads.end(); ++entry) {
        if (&*entry == pThread) {
            g_world.threads.splice(g_world.threads.end(), g_world.threads, entry);
            return;
        }
    }
}

void RunUntil(int64_t nEnd)
{
    for (;;) {
        Thread *pNext = NextThread();
        if (pNext == nullptr || pNext->nWakeAt > nEnd)
            break;
        if (pNext->nWakeAt > g_world.nNow)
            g_world.nNow = pNext->nWakeAt;
        TakeTurn(pNext);
    }
    g_world.nNow = nEnd;
}

} // namespace

void KovaWorldBegin()
{
    KovaRequire(g_world.threads.empty(), "a run begins without threads");
    g_world.owner = std::this_thread::get_id();
    g_world.pCurrent = nullptr;
    g_world.nNow = 0;
    g_world.nClockStep = 0;
    g_world.nWaitedSince = 0;
    g_world.nTurns = 0;
    g_world.bOn = true;
    KovaNetworkBegin();
}

void KovaWorldEnd()
{
    KovaRequire(g_world.threads.empty(), "no thread is left");
    KovaNetworkEnd();
    g_world.bOn = false;
}

bool KovaWorldIsOn()
{
    return g_world.bOn && std::this_thread::get_id() == g_world.owner;
}

void KovaWorldRun(int64_t nMicroseconds)
{
    RunUntil(g_world.nNow + nMicroseconds);
    g_world.nWaitedSince = g_world.nNow;
}

void KovaWorldStepClock(int64_t nSeconds)
{
    g_world.nClockStep += nSeconds * kMillion;
}

void KovaWorldSetClock(int64_t nSeconds)
{
    g_world.nClockStep = nSeconds * kMillion - g_world.nNow;
}

int64_t KovaWorldNow()
{
    return kBegin + g_world.nNow + g_world.nClockStep;
}

void KovaWorldNudge()
{
    KovaWorldWake(&g_sockets);
}

void KovaWorldStartThread(void *(*pfnBody)(void *), void *pArgument)
{
    Thread &thread = g_world.threads.emplace_back();
    thread.pfnBody = pfnBody;
    thread.pArgument = pArgument;
    thread.nWakeAt = g_world.nNow;
    thread.pStack = TakeStack();
    getcontext(&thread.context);
    thread.context.uc_stack.ss_sp = thread.pStack;
    thread.context.uc_stack.ss_size = kStackSize;
    makecontext(&thread.context, RunBody, 0);
    // The sanitizer would forget what it knows about the whole stack with every switch.
    thread.context.uc_stack.ss_size = 0;
}

void KovaWorldSleep(int64_t nMicroseconds, const void *pWaitsFor)
{
    Thread *pThread = g_world.pCurrent;
    if (pThread != nullptr) {
        pThread->nWakeAt = g_world.nNow + nMicroseconds;
        pThread->pWaitsFor = pWaitsFor;
        SwitchBack(pThread);
        pThread->pWaitsFor = nullptr;
        return;
    }
    RunUntil(g_world.nNow + nMicroseconds);
    KovaRequire(g_world.nNow - g_world.nWaitedSince < kLongestWait, "a wait comes to an end");
}

void KovaWorldWake(const void *pWaitedFor)
{
    for (Thread &thread : g_world.threads) {
        if (thread.pWaitsFor == pWaitedFor && thread.nWakeAt > g_world.nNow)
            thread.nWakeAt = g_world.nNow;
    }
}

const void *KovaWorldSockets()
{
    return &g_sockets;
}
