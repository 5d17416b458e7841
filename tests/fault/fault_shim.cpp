#include "tests/fault/fault_shim.h"

#include "tests/support/c_calls.h"
#include "tests/support/test_server.h"

#include <fcntl.h>
#include <sys/mman.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
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

namespace {

/// Whether a call of this kind is to fail; errno is set then.
template <KovaFaultCall nCall> bool Fails()
{
    return KovaFaultHooks::Fails(nCall);
}

void *Malloc(size_t nSize)
{
    return Fails<kFaultMalloc>() ? nullptr : Given(__real_malloc(nSize));
}

void *Calloc(size_t nCount, size_t nSize)
{
    return Fails<kFaultCalloc>() ? nullptr : Given(__real_calloc(nCount, nSize));
}

void *Map(void *pWish, size_t nSize, int nProtection, int nFlags, int nFile, off_t nOffset)
{
    void *pPages = Fails<kFaultMap>()
                       ? MAP_FAILED
                       : __real_mmap(pWish, nSize, nProtection, nFlags, nFile, nOffset);
    if (pPages != MAP_FAILED)
        Given(pPages);
    return pPages;
}

int Unmap(void *pPages, size_t nSize)
{
    TakenBack(pPages);
    return __real_munmap(pPages, nSize);
}

void *Realloc(void *pBlock, size_t nSize)
{
    if (Fails<kFaultRealloc>())
        return nullptr;
    TakenBack(pBlock);
    return Given(__real_realloc(pBlock, nSize));
}

void Free(void *pBlock)
{
    TakenBack(pBlock);
    __real_free(pBlock);
}

int CreateThread(pthread_t *pThread, const pthread_attr_t *pAttributes, void *(*pfnBody)(void *),
                 void *pArgument)
{
    const int nError = KovaFaultHooks::Judge(kFaultThread);
    if (nError != 0)
        return nError;
    auto pBody = std::make_unique<Body>(Body{pfnBody, pArgument});
    g_nThreads++;
    const int nResult = __real_pthread_create(pThread, pAttributes, RunBody, pBody.get());
    if (nResult == 0)
        static_cast<void>(pBody.release());
    else
        g_nThreads--;
    return nResult;
}

int OpenSocket(int nDomain, int nType, int nProtocol)
{
    NoteOpening((nType & SOCK_CLOEXEC) != 0);
    return Fails<kFaultSocket>() ? -1 : __real_socket(nDomain, nType, nProtocol);
}

int Bind(int nSocket, const sockaddr *pAddress, socklen_t nSize)
{
    HoldIfAsked(kFaultBind);
    return Fails<kFaultBind>() ? -1 : __real_bind(nSocket, pAddress, nSize);
}

int Accept(int nSocket, sockaddr *pAddress, socklen_t *pSize)
{
    NoteOpening(false);
    return Fails<kFaultAccept>() ? -1 : __real_accept(nSocket, pAddress, pSize);
}

int Accept4(int nSocket, sockaddr *pAddress, socklen_t *pSize, int nFlags)
{
    NoteOpening((nFlags & SOCK_CLOEXEC) != 0);
    return Fails<kFaultAccept>() ? -1 : __real_accept4(nSocket, pAddress, pSize, nFlags);
}

int Control(int nDescriptor, int nCommand, int nArgument)
{
    if (nCommand == F_DUPFD)
        NoteOpening(false);
    return Fails<kFaultControl>() ? -1 : KovaRealControl(nDescriptor, nCommand, nArgument);
}

ssize_t Send(int nSocket, const void *pData, size_t nSize, int nFlags)
{
    if (KovaFaultHooks::Fails(kFaultSend, &nSize))
        return -1;
    return __real_send(nSocket, pData, nSize, nFlags);
}

/// What goes to an address counts as sendto(), the rest as send().
ssize_t SendMessage(int nSocket, const msghdr *pMessage, int nFlags)
{
    if (pMessage->msg_name != nullptr)
        return Fails<kFaultSendTo>() ? -1 : __real_sendmsg(nSocket, pMessage, nFlags);
    std::vector<iovec> parts(pMessage->msg_iov, pMessage->msg_iov + pMessage->msg_iovlen);
    size_t nSize = 0;
    for (const iovec &part : parts)
        nSize += part.iov_len;
    if (KovaFaultHooks::Fails(kFaultSend, &nSize))
        return -1;
    for (iovec &part : parts) {
        part.iov_len = std::min(part.iov_len, nSize);
        nSize -= part.iov_len;
    }
    msghdr message = *pMessage;
    message.msg_iov = parts.data();
    return __real_sendmsg(nSocket, &message, nFlags);
}

/// Every message counts.
int SendMessages(int nSocket, mmsghdr *pMessages, unsigned nCount, int nFlags)
{
    for (unsigned n = 0; n < nCount; n++) {
        const ssize_t nSent = SendMessage(nSocket, &pMessages[n].msg_hdr, nFlags);
        if (nSent < 0)
            return n != 0 ? static_cast<int>(n) : -1;
        pMessages[n].msg_len = static_cast<unsigned>(nSent);
    }
    return static_cast<int>(nCount);
}

int Sleep(useconds_t nMicroseconds)
{
    return Fails<kFaultSleep>() ? -1 : __real_usleep(std::min(nMicroseconds, kLongestRest));
}

int OpenEpoll(int nFlags)
{
    NoteOpening((nFlags & EPOLL_CLOEXEC) != 0);
    return Fails<kFaultEpoll>() ? -1 : __real_epoll_create1(nFlags);
}

/// Changing and forgetting what was added cannot fail.
int ControlEpoll(int nEpoll, int nOperation, int nDescriptor, epoll_event *pEvent)
{
    if (nOperation == EPOLL_CTL_ADD && Fails<kFaultEpollAdd>())
        return -1;
    return __real_epoll_ctl(nEpoll, nOperation, nDescriptor, pEvent);
}

int OpenEvent(unsigned nValue, int nFlags)
{
    NoteOpening((nFlags & EFD_CLOEXEC) != 0);
    return Fails<kFaultEvent>() ? -1 : __real_eventfd(nValue, nFlags);
}

/// Stands in for the calls from the start of the program.
const bool g_bReplaced = [] {
    KovaReplaceCall<__real_malloc>(Malloc);
    KovaReplaceCall<__real_calloc>(Calloc);
    KovaReplaceCall<__real_realloc>(Realloc);
    KovaReplaceCall<__real_free>(Free);
    KovaReplaceCall<__real_mmap>(Map);
    KovaReplaceCall<__real_munmap>(Unmap);
    KovaReplaceCall<__real_pthread_create>(CreateThread);
    KovaReplaceCall<__real_send>(Send);
    KovaReplaceCall<__real_sendmsg>(SendMessage);
    KovaReplaceCall<__real_sendmmsg>(SendMessages);
    KovaReplaceCall<__real_usleep>(Sleep);
    KovaReplaceCall<__real_socket>(OpenSocket);
    KovaReplaceCall<__real_bind>(Bind);
    KovaReplaceCall<__real_accept>(Accept);
    KovaReplaceCall<__real_accept4>(Accept4);
    KovaReplaceCall<KovaRealControl>(Control);
    KovaReplaceCall<__real_epoll_create1>(OpenEpoll);
    KovaReplaceCall<__real_epoll_ctl>(ControlEpoll);
    KovaReplaceCall<__real_eventfd>(OpenEvent);
    KovaMakeFailable<__real_listen, Fails<kFaultListen>>();
    KovaMakeFailable<__real_setsockopt, Fails<kFaultSetOption>>();
    KovaMakeFailable<__real_sendto, Fails<kFaultSendTo>>();
    KovaMakeFailable<__real_recv, Fails<kFaultReceive>>();
    KovaMakeFailable<__real_recvfrom, Fails<kFaultReceiveFrom>>();
    KovaMakeFailable<__real_poll, Fails<kFaultPoll>>();
    KovaMakeFailable<__real_getsockname, Fails<kFaultOwnName>>();
    KovaMakeFailable<__real_getpeername, Fails<kFaultPeerName>>();
    return true;
}();

} // namespace
