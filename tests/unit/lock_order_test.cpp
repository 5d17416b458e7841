#include "foundation/mutex.h"

#include <gtest/gtest.h>

namespace {

TEST(LockOrder, LocksTakenFromTheOutsideInAndGivenBackInAnyOrderAreFine)
{
    KovaMutex outer = {PTHREAD_MUTEX_INITIALIZER};
    KovaMutex inner = {PTHREAD_MUTEX_INITIALIZER};
    for (int nTime = 0; nTime < 2; nTime++) {
        KovaMutexLock outerLock(&outer, kRankSessions);
        KovaMutexLock innerLock(&inner, kRankClients);
        outerLock.Unlock();
        innerLock.Unlock();
        innerLock.Lock();
    }
    EXPECT_EQ(pthread_mutex_trylock(&outer.native), 0);
    EXPECT_EQ(pthread_mutex_trylock(&inner.native), 0);
}

TEST(LockOrder, ATryDoesNotWaitAndSoMayBeOutOfOrder)
{
    KovaMutex outer = {PTHREAD_MUTEX_INITIALIZER};
    KovaMutex inner = {PTHREAD_MUTEX_INITIALIZER};
    const KovaMutexLock innerLock(&inner, kRankClients);
    ASSERT_TRUE(KovaMutexTryTake(&outer, kRankHandlers));
    EXPECT_FALSE(KovaMutexTryTake(&outer, kRankHandlers));
    KovaMutexGive(&outer, kRankHandlers);
}

#if defined(KOVA_CHECK_LOCK_ORDER)

void TakeBoth(KovaLockRank first, KovaLockRank second)
{
    KovaMutex one = {PTHREAD_MUTEX_INITIALIZER};
    KovaMutex two = {PTHREAD_MUTEX_INITIALIZER};
    const KovaMutexLock firstLock(&one, first);
    const KovaMutexLock secondLock(&two, second);
}

TEST(LockOrderDeathTest, AnOuterLockWantedUnderAnInnerOneEndsTheProcess)
{
    EXPECT_DEATH(TakeBoth(kRankClients, kRankSessions),
                 "lock order: rank 2 is wanted while rank 9 is held");
}

TEST(LockOrderDeathTest, TwoLocksOfOneRankEndTheProcess)
{
    EXPECT_DEATH(TakeBoth(kRankClients, kRankClients), "is wanted while rank 9 is held");
}

TEST(LockOrderDeathTest, TheLastRankMayNotBeTakenTwice)
{
    EXPECT_DEATH(TakeBoth(kRankLog, kRankLog), "lock order: rank");
}

#endif

} // namespace
