#include "system_shims.h"

#include <dlfcn.h>
#include <pthread.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdlib>
#include <mutex>

namespace {

std::mutex g_mutex; // guards the next two
std::vector<int> g_values;
size_t g_nNext = 0;

std::atomic<int> g_nArmed{kShimCount};
std::atomic<int> g_nError{0};
std::atomic<int> g_nGood{0};
std::atomic<int> g_nTimes{0};
std::atomic<int> g_nFailed{0};

/// The C library's own function, or the one that a sanitizer puts before it.
template <typename Function> Function Real(const char *szName, Function)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, szName));
}

bool Fails(KovaShimmedCall call)
{
    if (g_nArmed.load() != call || g_nGood.fetch_sub(1) > 0)
        return false;
    g_nGood.store(0);
    if (g_nTimes.fetch_sub(1) <= 0) {
        g_nTimes.store(0);
        return false;
    }
    g_nFailed++;
    errno = g_nError.load();
    return true;
}

} // namespace

// These stand in for the C library's functions in the whole program.

extern "C" int rand() noexcept
{
    {
        const std::lock_guard<std::mutex> lock(g_mutex);
        if (!g_values.empty())
            return g_values[g_nNext++ % g_values.size()];
    }
    static int (*const pfnReal)() = Real("rand", static_cast<int (*)()>(nullptr));
    return pfnReal();
}

extern "C" int socket(int nDomain, int nType, int nProtocol) noexcept
{
    static int (*const pfnReal)(int, int, int) =
        Real("socket", static_cast<int (*)(int, int, int)>(nullptr));
    return Fails(kShimSocket) ? -1 : pfnReal(nDomain, nType, nProtocol);
}

extern "C" int bind(int nSocket, const struct sockaddr *pAddress, socklen_t nSize) noexcept
{
    using Function = int (*)(int, const struct sockaddr *, socklen_t);
    static const Function pfnReal = Real("bind", static_cast<Function>(nullptr));
    return Fails(kShimBind) ? -1 : pfnReal(nSocket, pAddress, nSize);
}

extern "C" int setsockopt(int nSocket, int nLevel, int nName, const void *pValue,
                          socklen_t nSize) noexcept
{
    using Function = int (*)(int, int, int, const void *, socklen_t);
    static const Function pfnReal = Real("setsockopt", static_cast<Function>(nullptr));
    return Fails(kShimSetsockopt) ? -1 : pfnReal(nSocket, nLevel, nName, pValue, nSize);
}

extern "C" int listen(int nSocket, int nBacklog) noexcept
{
    static int (*const pfnReal)(int, int) = Real("listen", static_cast<int (*)(int, int)>(nullptr));
    return Fails(kShimListen) ? -1 : pfnReal(nSocket, nBacklog);
}

extern "C" int accept4(int nSocket, struct sockaddr *__restrict pAddress,
                       socklen_t *__restrict pSize, int nFlags)
{
    using Function = int (*)(int, struct sockaddr *, socklen_t *, int);
    static const Function pfnReal = Real("accept4", static_cast<Function>(nullptr));
    return Fails(kShimAccept) ? -1 : pfnReal(nSocket, pAddress, pSize, nFlags);
}

extern "C" int pthread_create(pthread_t *__restrict pThread,
                              const pthread_attr_t *__restrict pAttributes,
                              void *(*pfnBody)(void *), void *__restrict pArgument) noexcept
{
    using Function = int (*)(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *);
    static const Function pfnReal = Real("pthread_create", static_cast<Function>(nullptr));
    return Fails(kShimThread) ? g_nError.load() : pfnReal(pThread, pAttributes, pfnBody, pArgument);
}

KovaFixedRand::KovaFixedRand(const std::vector<int> &values)
{
    const std::lock_guard<std::mutex> lock(g_mutex);
    g_values = values;
    g_nNext = 0;
}

KovaFixedRand::~KovaFixedRand()
{
    const std::lock_guard<std::mutex> lock(g_mutex);
    g_values.clear();
}

int KovaFixedRand::Draws() const
{
    const std::lock_guard<std::mutex> lock(g_mutex);
    return static_cast<int>(g_nNext);
}

KovaFailingCall::KovaFailingCall(KovaShimmedCall call, int nError, int nGood, int nTimes)
{
    g_nError = nError;
    g_nGood = nGood;
    g_nTimes = nTimes;
    g_nFailed = 0;
    g_nArmed = call;
}

KovaFailingCall::~KovaFailingCall()
{
    g_nArmed = kShimCount;
}

int KovaFailingCall::Failed() const
{
    return g_nFailed;
}
