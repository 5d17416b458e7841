#include "tests/fault/fault_shim.h"

#include "tests/support/test_server.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <memory>
#include <mutex>
#include <unordered_set>
#include <utility>

namespace {

/// The monitor rests a second between its passes, and whoever stops it waits for
/// that. Longer rests than this are cut, or a thousand servers would take a
/// thousand seconds.
constexpr useconds_t kLongestRest = 10000;

std::mutex g_faultMutex; // guards the object and its rules
KovaFaults *g_pFaults = nullptr;

std::mutex g_blockMutex;
std::atomic<size_t> g_nThreads{0};
std::atomic<size_t> g_nInheritable{0};

thread_local bool t_bInside = false;

std::mutex g_heldMutex; // guards the next three
std::condition_variable g_heldChange;
uint32_t g_nHoldAt = 0;
enum HeldState {
    kNobodyHeld,
    kHeld,
    kLetGo
} g_heldState = kNobodyHeld;

/// Keeps the first thread that comes by with the call.
void HoldIfAsked(KovaFaultCall nCall)
{
    std::unique_lock<std::mutex> lock(g_heldMutex);
    if (!t_bInside || g_nHoldAt != nCall || g_heldState != kNobodyHeld)
        return;
    g_heldState = kHeld;
    g_heldChange.notify_all();
    g_heldChange.wait(lock, [] { return g_heldState == kLetGo; });
}

/// Notes a call of the library that makes a descriptor.
void NoteOpening(bool bCloseOnExec)
{
    if (t_bInside && !bCloseOnExec)
        g_nInheritable++;
}

/// What the heap has given out, in disguise: an address kept as it is would hide
/// a lost block from the leak sanitizer.
std::unordered_set<uintptr_t> &Blocks()
{
    static auto *pBlocks = new std::unordered_set<uintptr_t>;
    return *pBlocks;
}

uintptr_t Disguised(const void *pBlock)
{
    return ~reinterpret_cast<uintptr_t>(pBlock);
}

void *Given(void *pBlock)
{
    if (pBlock != nullptr) {
        const std::lock_guard<std::mutex> lock(g_blockMutex);
        Blocks().insert(Disguised(pBlock));
    }
    return pBlock;
}

/// Blocks that came from elsewhere are not in the set, and do not count.
void TakenBack(const void *pBlock)
{
    const std::lock_guard<std::mutex> lock(g_blockMutex);
    Blocks().erase(Disguised(pBlock));
}

/// A body that the library wants to run, and its argument.
struct Body {
    void *(*pfnBody)(void *);
    void *pArgument;
};

void *RunBody(void *pArgument)
{
    const std::unique_ptr<Body> pBody(static_cast<Body *>(pArgument));
    t_bInside = true;
    void *pResult = pBody->pfnBody(pBody->pArgument);
    g_nThreads--;
    return pResult;
}

} // namespace

struct KovaFaultHooks {
    /// What the rules say about this call: an errno, 0 for "as ever". A send is
    /// given its most bytes.
    static int Judge(KovaFaultCall nCall, size_t *pMost = nullptr)
    {
        if (!t_bInside)
            return 0;
        const std::lock_guard<std::mutex> lock(g_faultMutex);
        if (g_pFaults == nullptr)
            return 0;
        int nError = 0;
        for (KovaFaults::Counted &counted : g_pFaults->m_rules) {
            if ((counted.rule.nCalls & nCall) == 0)
                continue;
            const int nBehind = ++counted.nCalls - counted.rule.nFirst;
            if (nBehind < 0 || nBehind >= counted.rule.nCount || nBehind % counted.rule.nEvery != 0)
                continue;
            g_pFaults->m_nHits++;
            if (counted.rule.nError != 0)
                nError = counted.rule.nError;
            else if (pMost != nullptr)
                *pMost = std::min(*pMost, counted.rule.nMost);
        }
        return nError;
    }

    /// Sets errno and says whether the call is to fail.
    static bool Fails(KovaFaultCall nCall, size_t *pMost = nullptr)
    {
        const int nError = Judge(nCall, pMost);
        if (nError != 0)
            errno = nError;
        return nError != 0;
    }
};

KovaFaults::KovaFaults(std::vector<KovaFaultRule> rules)
{
    for (const KovaFaultRule &rule : rules)
        m_rules.push_back({rule, 0});
    Start();
}

KovaFaults::~KovaFaults()
{
    Stop();
}

void KovaFaults::Stop()
{
    const std::lock_guard<std::mutex> lock(g_faultMutex);
    g_pFaults = nullptr;
}

void KovaFaults::Start()
{
    const std::lock_guard<std::mutex> lock(g_faultMutex);
    g_pFaults = this;
}

int KovaFaults::Calls(size_t nRule) const
{
    const std::lock_guard<std::mutex> lock(g_faultMutex);
    return m_rules[nRule].nCalls;
}

int KovaFaults::Hits() const
{
    return m_nHits;
}

KovaHeldCall::KovaHeldCall(KovaFaultCall nCall)
{
    const std::lock_guard<std::mutex> lock(g_heldMutex);
    g_heldState = kNobodyHeld;
    g_nHoldAt = nCall;
}

KovaHeldCall::~KovaHeldCall()
{
    Release();
}

bool KovaHeldCall::WaitHeld(int nMilliseconds)
{
    std::unique_lock<std::mutex> lock(g_heldMutex);
    return g_heldChange.wait_for(lock, std::chrono::milliseconds(nMilliseconds),
                                 [] { return g_heldState == kHeld; });
}

void KovaHeldCall::Release()
{
    const std::lock_guard<std::mutex> lock(g_heldMutex);
    g_nHoldAt = 0;
    g_heldState = kLetGo;
    g_heldChange.notify_all();
}

KovaInsideLibrary::KovaInsideLibrary() : m_bBefore(std::exchange(t_bInside, true)) {}

KovaInsideLibrary::~KovaInsideLibrary()
{
    t_bInside = m_bBefore;
}

KovaHoldings KovaHoldingsNow()
{
    const std::lock_guard<std::mutex> lock(g_blockMutex);
    return {Blocks().size(), g_nThreads, static_cast<size_t>(KovaOpenDescriptors())};
}

size_t KovaInheritableOpenings()
{
    return g_nInheritable;
}

// What the linker puts in the place of the C library's functions, and their real
// selves.

extern "C" {

void *__real_malloc(size_t nSize);
void *__real_calloc(size_t nCount, size_t nSize);
void *__real_realloc(void *pBlock, size_t nSize);
void __real_free(void *pBlock);
int __real_pthread_create(pthread_t *pHandle, const pthread_attr_t *pAttributes,
                          void *(*pfnBody)(void *), void *pArgument);
int __real_socket(int nDomain, int nType, int nProtocol);
int __real_bind(int nSocket, const struct sockaddr *pAddress, socklen_t nSize);
int __real_listen(int nSocket, int nBacklog);
int __real_setsockopt(int nSocket, int nLevel, int nName, const void *pValue, socklen_t nSize);
int __real_accept(int nSocket, struct sockaddr *pAddress, socklen_t *pSize);
int __real_accept4(int nSocket, struct sockaddr *pAddress, socklen_t *pSize, int nFlags);
ssize_t __real_send(int nSocket, const void *pData, size_t nSize, int nFlags);
ssize_t __real_sendto(int nSocket, const void *pData, size_t nSize, int nFlags,
                      const struct sockaddr *pAddress, socklen_t nAddressSize);
ssize_t __real_recv(int nSocket, void *pData, size_t nSize, int nFlags);
ssize_t __real_recvfrom(int nSocket, void *pData, size_t nSize, int nFlags,
                        struct sockaddr *pAddress, socklen_t *pAddressSize);
int __real_poll(struct pollfd *pEntries, nfds_t nEntries, int nMilliseconds);
int __real_usleep(useconds_t nMicroseconds);
int __real_fcntl(int nDescriptor, int nCommand, ...);
int __real_getsockname(int nSocket, struct sockaddr *pAddress, socklen_t *pSize);
int __real_getpeername(int nSocket, struct sockaddr *pAddress, socklen_t *pSize);

void *__wrap_malloc(size_t nSize)
{
    return KovaFaultHooks::Fails(kFaultMalloc) ? nullptr : Given(__real_malloc(nSize));
}

void *__wrap_calloc(size_t nCount, size_t nSize)
{
    return KovaFaultHooks::Fails(kFaultCalloc) ? nullptr : Given(__real_calloc(nCount, nSize));
}

void *__wrap_realloc(void *pBlock, size_t nSize)
{
    if (KovaFaultHooks::Fails(kFaultRealloc))
        return nullptr;
    TakenBack(pBlock);
    return Given(__real_realloc(pBlock, nSize));
}

void __wrap_free(void *pBlock)
{
    TakenBack(pBlock);
    __real_free(pBlock);
}

int __wrap_pthread_create(pthread_t *pHandle, const pthread_attr_t *pAttributes,
                          void *(*pfnBody)(void *), void *pArgument)
{
    const int nError = KovaFaultHooks::Judge(kFaultThread);
    if (nError != 0)
        return nError;
    auto pBody = std::make_unique<Body>(Body{pfnBody, pArgument});
    g_nThreads++;
    const int nResult = __real_pthread_create(pHandle, pAttributes, RunBody, pBody.get());
    if (nResult == 0)
        static_cast<void>(pBody.release());
    else
        g_nThreads--;
    return nResult;
}

int __wrap_socket(int nDomain, int nType, int nProtocol)
{
    NoteOpening((nType & SOCK_CLOEXEC) != 0);
    return KovaFaultHooks::Fails(kFaultSocket) ? -1 : __real_socket(nDomain, nType, nProtocol);
}

int __wrap_bind(int nSocket, const struct sockaddr *pAddress, socklen_t nSize)
{
    HoldIfAsked(kFaultBind);
    return KovaFaultHooks::Fails(kFaultBind) ? -1 : __real_bind(nSocket, pAddress, nSize);
}

int __wrap_listen(int nSocket, int nBacklog)
{
    return KovaFaultHooks::Fails(kFaultListen) ? -1 : __real_listen(nSocket, nBacklog);
}

int __wrap_setsockopt(int nSocket, int nLevel, int nName, const void *pValue, socklen_t nSize)
{
    return KovaFaultHooks::Fails(kFaultSetOption)
               ? -1
               : __real_setsockopt(nSocket, nLevel, nName, pValue, nSize);
}

int __wrap_accept(int nSocket, struct sockaddr *pAddress, socklen_t *pSize)
{
    NoteOpening(false);
    return KovaFaultHooks::Fails(kFaultAccept) ? -1 : __real_accept(nSocket, pAddress, pSize);
}

int __wrap_accept4(int nSocket, struct sockaddr *pAddress, socklen_t *pSize, int nFlags)
{
    NoteOpening((nFlags & SOCK_CLOEXEC) != 0);
    return KovaFaultHooks::Fails(kFaultAccept) ? -1
                                               : __real_accept4(nSocket, pAddress, pSize, nFlags);
}

ssize_t __wrap_send(int nSocket, const void *pData, size_t nSize, int nFlags)
{
    if (KovaFaultHooks::Fails(kFaultSend, &nSize))
        return -1;
    return __real_send(nSocket, pData, nSize, nFlags);
}

ssize_t __wrap_sendto(int nSocket, const void *pData, size_t nSize, int nFlags,
                      const struct sockaddr *pAddress, socklen_t nAddressSize)
{
    if (KovaFaultHooks::Fails(kFaultSendTo))
        return -1;
    return __real_sendto(nSocket, pData, nSize, nFlags, pAddress, nAddressSize);
}

ssize_t __wrap_recv(int nSocket, void *pData, size_t nSize, int nFlags)
{
    return KovaFaultHooks::Fails(kFaultReceive) ? -1 : __real_recv(nSocket, pData, nSize, nFlags);
}

ssize_t __wrap_recvfrom(int nSocket, void *pData, size_t nSize, int nFlags,
                        struct sockaddr *pAddress, socklen_t *pAddressSize)
{
    if (KovaFaultHooks::Fails(kFaultReceiveFrom))
        return -1;
    return __real_recvfrom(nSocket, pData, nSize, nFlags, pAddress, pAddressSize);
}

int __wrap_poll(struct pollfd *pEntries, nfds_t nEntries, int nMilliseconds)
{
    return KovaFaultHooks::Fails(kFaultPoll) ? -1 : __real_poll(pEntries, nEntries, nMilliseconds);
}

int __wrap_usleep(useconds_t nMicroseconds)
{
    return KovaFaultHooks::Fails(kFaultSleep)
               ? -1
               : __real_usleep(std::min(nMicroseconds, kLongestRest));
}

int __wrap_fcntl(int nDescriptor, int nCommand, ...)
{
    va_list arguments;
    va_start(arguments, nCommand);
    const int nArgument = va_arg(arguments, int);
    va_end(arguments);
    if (nCommand == F_DUPFD)
        NoteOpening(false);
    return KovaFaultHooks::Fails(kFaultControl) ? -1
                                                : __real_fcntl(nDescriptor, nCommand, nArgument);
}

int __wrap_getsockname(int nSocket, struct sockaddr *pAddress, socklen_t *pSize)
{
    return KovaFaultHooks::Fails(kFaultOwnName) ? -1 : __real_getsockname(nSocket, pAddress, pSize);
}

int __wrap_getpeername(int nSocket, struct sockaddr *pAddress, socklen_t *pSize)
{
    return KovaFaultHooks::Fails(kFaultPeerName) ? -1
                                                 : __real_getpeername(nSocket, pAddress, pSize);
}

} // extern "C"
