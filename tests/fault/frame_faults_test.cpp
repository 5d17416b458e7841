#include "tests/fault/fault_bench.h"

#include <cerrno>

namespace {

/// A full socket that takes so many tries is full for that many milliseconds.
constexpr int kStorm = 30;

/// Failures that hit the sending of frames, and nothing but that: the player has
/// its answers before, and asks on afterwards.
class FrameFaults : public KovaFaultTest {
protected:
    static KovaVisit Visit(KovaFaultBench *pBench, KovaFaults *pFaults, bool bLossy)
    {
        pFaults->Stop();
        KovaVisitPlan plan = pBench->Plan(kVisitInterleaved);
        plan.pFaults = bLossy ? pFaults : nullptr;
        plan.onPlaying = [pFaults] { pFaults->Start(); };
        plan.onWatched = [pFaults] { pFaults->Stop(); };
        const KovaVisit visit = KovaMakeVisit(plan);
        EXPECT_GT(pFaults->Hits(), 0) << "no call was made to fail";
        return visit;
    }

    /// Nothing is lost and no frame is torn.
    void ExpectUnharmed(const std::vector<KovaFaultRule> &rules)
    {
        KovaFaultBench bench;
        KovaFaults faults(rules);
        KovaExpectWhole(Visit(&bench, &faults, false), kVisitInterleaved);
        bench.ExpectServes();
        bench.End();
    }

    /// What comes is whole, or the connection has ended.
    void ExpectFramesWhole(const std::vector<KovaFaultRule> &rules)
    {
        KovaFaultBench bench;
        KovaFaults faults(rules);
        const KovaVisit visit = Visit(&bench, &faults, true);
        KovaExpectLawful(visit, kVisitInterleaved, false);
        for (const KovaVisitStep &step : visit.steps)
            EXPECT_TRUE(step.bComplete || visit.bEnded) << step.method;
        bench.Republish();
        bench.ExpectServes();
        bench.End();
    }

    /// How often the frames of a visit call for this, cut to nMost bytes or not.
    int CountCalls(uint32_t nCalls, size_t nMost)
    {
        KovaFaultBench bench;
        const int nShort = nMost != 0 ? kFaultForEver : 0;
        KovaFaults faults({{nCalls, 1, 0}, {kFaultSend, 1, nShort, 0, nMost}});
        faults.Stop();
        KovaVisitPlan plan = bench.Plan(kVisitInterleaved);
        plan.onPlaying = [&] { faults.Start(); };
        plan.onWatched = [&] { faults.Stop(); };
        KovaExpectWhole(KovaMakeVisit(plan), kVisitInterleaved);
        bench.End();
        return faults.Calls();
    }
};

TEST_F(FrameFaults, EachFullSocketIsWaitedFor)
{
    const int nCalls = CountCalls(kFaultSend, 0);
    ASSERT_GE(nCalls, 13);
    for (const int nNumber : KovaFaultNumbers(nCalls, 10)) {
        SCOPED_TRACE(nNumber);
        ExpectUnharmed({{kFaultSend, nNumber, 3, EINTR}});
    }
}

TEST_F(FrameFaults, StormOfFullSocketsDelaysAndLosesNothing)
{
    for (const int nNumber : {1, 4, 9}) {
        SCOPED_TRACE(nNumber);
        ExpectUnharmed({{kFaultSend, nNumber, kStorm, EAGAIN}});
    }
}

TEST_F(FrameFaults, FramesInManyPiecesAreWhole)
{
    for (const size_t nMost : {size_t{1}, size_t{3}, size_t{100}, size_t{1000}}) {
        SCOPED_TRACE(nMost);
        ExpectUnharmed({{kFaultSend, 1, kFaultForEver, 0, nMost}});
    }
}

TEST_F(FrameFaults, PiecesBetweenFullSocketsAreWhole)
{
    ExpectUnharmed({{kFaultSend, 1, kFaultForEver, 0, 200}, {kFaultSend, 1, 400, EAGAIN, 0, 2}});
    ExpectUnharmed({{kFaultSend, 1, kFaultForEver, 0, 100}, {kFaultSend, 1, 400, EINTR, 0, 3}});
}

TEST_F(FrameFaults, OtherErrorsCostAFrameOrTheConnection)
{
    const int nCalls = CountCalls(kFaultSend, 0);
    for (const int nError : {EPIPE, ETIMEDOUT, ECONNRESET, ENOBUFS, ENOMEM}) {
        for (const int nNumber : KovaFaultNumbers(nCalls, 3)) {
            SCOPED_TRACE("send " + std::to_string(nNumber) + ", error " + std::to_string(nError));
            ExpectFramesWhole({{kFaultSend, nNumber, 1, nError}});
        }
    }
}

/// In the middle of a frame there is no way back: nothing but its rest may
/// follow.
TEST_F(FrameFaults, ErrorsWithinAFrameNeverTearTheStream)
{
    constexpr size_t kPiece = 500;
    const int nCalls = CountCalls(kFaultSend, kPiece);
    for (const int nError : {EPIPE, ECONNRESET, ENOBUFS, ENOMEM}) {
        for (const int nNumber : KovaFaultNumbers(nCalls, 6)) {
            SCOPED_TRACE("send " + std::to_string(nNumber) + ", error " + std::to_string(nError));
            ExpectFramesWhole(
                {{kFaultSend, nNumber, 1, nError}, {kFaultSend, 1, kFaultForEver, 0, kPiece}});
        }
    }
}

TEST_F(FrameFaults, NoMemoryForTheRestOfAFrameNeverTearsTheStream)
{
    constexpr size_t kPiece = 40;
    const int nCalls = CountCalls(kFaultHeap, kPiece);
    for (const int nNumber : KovaFaultNumbers(nCalls, 16)) {
        SCOPED_TRACE(nNumber);
        KovaFaultBench bench;
        // The first rule counts the heap's calls only, and comes before the cuts.
        KovaFaults faults(
            {{kFaultHeap, nNumber, 1, ENOMEM}, {kFaultSend, 1, kFaultForEver, 0, kPiece}});
        const KovaVisit visit = Visit(&bench, &faults, true);
        KovaExpectLawful(visit, kVisitInterleaved, true);
        bench.Republish();
        bench.ExpectServes();
        bench.End();
    }
}

} // namespace
