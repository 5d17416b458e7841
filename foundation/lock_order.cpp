#include "foundation/lock_order.h"

#if defined(KOVA_CHECK_LOCK_ORDER)

#include <cstdio>
#include <cstdlib>

namespace {

/// How often the thread holds a lock of each rank.
thread_local uint8_t g_held[kRankLog + 1];

} // namespace

void KovaLockOrderTake(KovaLockRank rank)
{
    for (unsigned nRank = rank; nRank <= kRankLog; nRank++) {
        if (g_held[nRank] == 0)
            continue;
        fprintf(stderr, "lock order: rank %u is wanted while rank %u is held\n",
                static_cast<unsigned>(rank), nRank);
        abort();
    }
    KovaLockOrderTaken(rank);
}

void KovaLockOrderTaken(KovaLockRank rank)
{
    g_held[rank]++;
}

void KovaLockOrderGive(KovaLockRank rank)
{
    g_held[rank]--;
}

#endif
