#include "foundation/thread.h"

#include "tests/support/wait_until.h"

#include <gtest/gtest.h>

#include <pthread.h>

#include <atomic>

namespace {

/// What a thread finds out about itself.
struct Seen {
    int nDetached = -1;
    size_t nStack = 0;
    std::atomic<bool> bDone{false};
};

void *Look(void *pArgument)
{
    auto *pSeen = static_cast<Seen *>(pArgument);
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) == 0) {
        pthread_attr_getdetachstate(&attributes, &pSeen->nDetached);
        pthread_attr_getstacksize(&attributes, &pSeen->nStack);
        pthread_attr_destroy(&attributes);
    }
    pSeen->bDone = true;
    return nullptr;
}

TEST(Thread, IsDetachedAndHasASmallStack)
{
    Seen seen;
    ASSERT_TRUE(KovaThreadStart(nullptr, Look, &seen));
    ASSERT_TRUE(KovaWaitUntil([&] { return seen.bDone.load(); }));
    EXPECT_EQ(seen.nDetached, PTHREAD_CREATE_DETACHED) << "nobody would ever join it";
    EXPECT_GE(seen.nStack, 256U * 1024U);
    EXPECT_LE(seen.nStack, 1024U * 1024U) << "a 32-bit address space takes few large ones";
}

} // namespace
