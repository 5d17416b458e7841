#include "tests/fault/fault_bench.h"

#include "tests/support/wait_until.h"

#include <cerrno>

namespace {

class LostConnection : public KovaFaultTest {};

/// Whatever was short when the player came: when its connection breaks, the
/// stream's count is what it was before, not one less.
TEST_F(LostConnection, OfAPlayerSetUpShortOfMemoryCountsOnce)
{
    KovaFailEach(kFaultHeap, {ENOMEM}, 25, [](KovaFaults *pFaults) {
        KovaFaultBench bench;
        KovaVisitPlan plan = bench.Plan(kVisitInterleaved);
        plan.pFaults = pFaults;
        plan.bLeave = false;
        // Nothing is sent before the reset, or the first failure could be in that.
        plan.onPlaying = [pFaults] { pFaults->Stop(); };
        const KovaVisit visit = KovaMakeVisit(plan);
        pFaults->Stop();
        KovaExpectLawful(visit, kVisitInterleaved, true);
        EXPECT_TRUE(KovaPackersWork(bench.Stream()));
        // Each track's sending thread finds out with a packet of its own.
        const bool bGone = KovaWaitUntil(10000, [&] {
            KovaPushUnits(bench.Stream(), 1);
            return KovaClientsOf(bench.Stream()) == 0;
        });
        EXPECT_TRUE(bGone || !visit.bPlayed);
        // A PLAY that found no client counts for good.
        const int32_t nRight = visit.bPlayed && visit.nClientsAtPlay == 0 ? 1 : 0;
        const auto isRight = [&] { return bench.Stream()->nClientCount == nRight; };
        // The last of the threads has yet to count when its client is gone.
        EXPECT_TRUE(KovaWaitUntil(5000, isRight)) << bench.Stream()->nClientCount;
        bench.ExpectServes();
        EXPECT_TRUE(KovaWaitUntil(5000, isRight)) << bench.Stream()->nClientCount;
        bench.End();
    });
}

} // namespace
