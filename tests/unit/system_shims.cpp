#include "system_shims.h"

#include "tests/support/c_calls.h"

#include <cerrno>
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

template <KovaShimmedCall call> bool Fails()
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

int Rand()
{
    {
        const std::lock_guard<std::mutex> lock(g_mutex);
        if (!g_values.empty())
            return g_values[g_nNext++ % g_values.size()];
    }
    return __real_rand();
}

int CreateThread(pthread_t *pThread, const pthread_attr_t *pAttributes, void *(*pfnBody)(void *),
                 void *pArgument)
{
    return Fails<kShimThread>() ? g_nError.load()
                                : __real_pthread_create(pThread, pAttributes, pfnBody, pArgument);
}

} // namespace

KovaFixedRand::KovaFixedRand(const std::vector<int> &values)
{
    const std::lock_guard<std::mutex> lock(g_mutex);
    g_values = values;
    g_nNext = 0;
    KovaReplaceCall<__real_rand>(Rand);
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
    KovaMakeFailable<__real_socket, Fails<kShimSocket>>();
    KovaMakeFailable<__real_bind, Fails<kShimBind>>();
    KovaMakeFailable<__real_setsockopt, Fails<kShimSetsockopt>>();
    KovaMakeFailable<__real_listen, Fails<kShimListen>>();
    KovaMakeFailable<__real_accept, Fails<kShimAccept>>();
    KovaMakeFailable<__real_accept4, Fails<kShimAccept>>();
    KovaReplaceCall<__real_pthread_create>(CreateThread);
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
