#include "tests/fault/fault_bench.h"

#include "tests/support/wait_until.h"

#include <cerrno>

namespace {

class Storm : public KovaFaultTest, public testing::WithParamInterface<KovaVisitKind> {
protected:
    /// A visit all through these failures.
    KovaVisit Visit(KovaFaultBench *pBench, const std::vector<KovaFaultRule> &rules)
    {
        KovaFaults faults(rules);
        const KovaVisit visit = KovaMakeVisit(pBench->Plan(GetParam()));
        EXPECT_GT(faults.Hits(), 0) << "no call was made to fail";
        return visit;
    }

    void ExpectUnharmed(const std::vector<KovaFaultRule> &rules)
    {
        KovaFaultBench bench;
        KovaExpectWhole(Visit(&bench, rules), GetParam());
        bench.ExpectServes(kVisitUdp);
        bench.End();
    }
};

/// Responses are not in it: one that meets an interruption is given up.
TEST_P(Storm, EverySecondCallInterruptedHarmsNobody)
{
    ExpectUnharmed({{kFaultAccept, 1, kFaultForEver, EINTR, 0, 2},
                    {kFaultReceive, 1, kFaultForEver, EINTR, 0, 2},
                    {kFaultReceiveFrom, 1, kFaultForEver, EINTR, 0, 2},
                    {kFaultPoll, 1, kFaultForEver, EINTR, 0, 2},
                    {kFaultSleep, 1, kFaultForEver, EINTR, 0, 2},
                    {kFaultSendTo, 1, kFaultForEver, EINTR, 0, 2}});
}

TEST_P(Storm, NothingToReceiveForAWhileHarmsNobody)
{
    ExpectUnharmed({{kFaultAccept, 1, 20, EAGAIN}, {kFaultReceive, 1, 50, EAGAIN}});
}

TEST_P(Storm, ShortageOfDescriptorsEndsByItself)
{
    ExpectUnharmed({{kFaultAccept, 1, 50, EMFILE}});
    ExpectUnharmed({{kFaultAccept, 1, 20, ENFILE}, {kFaultAccept, 25, 10, ENOMEM}});
}

TEST_P(Storm, EverythingSentInSmallPiecesArrivesWhole)
{
    if (GetParam() == kVisitInterleaved)
        ExpectUnharmed({{kFaultSend, 1, kFaultForEver, 0, 1}});
    ExpectUnharmed({{kFaultSend, 1, kFaultForEver, 0, 7}});
}

/// The addresses are text for the description only: the media find their way.
TEST_P(Storm, ConnectionThatTellsNoAddressesIsServed)
{
    KovaFaultBench bench;
    const KovaVisit visit = Visit(&bench, {{kFaultNameless, 1, kFaultForEver, ENOBUFS}});
    const KovaVisit &reference = KovaReferenceVisit(GetParam());
    ASSERT_EQ(visit.steps.size(), reference.steps.size());
    for (const KovaVisitStep &step : visit.steps)
        EXPECT_EQ(step.nStatus, 200) << step.method;
    EXPECT_EQ(visit.audio, reference.audio);
    EXPECT_EQ(visit.video, reference.video);
    bench.ExpectServes();
    bench.End();
}

class NoPorts : public KovaFaultTest {};

/// No port pair: the answer says so with zeros, no client is made, and nothing
/// of the search stays open.
TEST_F(NoPorts, AreSaidWithZeros)
{
    for (const uint32_t nCalls : {kFaultSocket, kFaultBind}) {
        KovaFaultBench bench;
        KovaFaults faults({{nCalls, 1, kFaultForEver, EMFILE}});
        KovaVisitPlan plan = bench.Plan(kVisitUdp);
        plan.pFaults = &faults;
        const KovaVisit visit = KovaMakeVisit(plan);
        faults.Stop();
        EXPECT_EQ(visit.nClientsAtPlay, 0U);
        EXPECT_EQ(visit.audio.size() + visit.video.size(), 0U);
        for (const KovaVisitStep &step : visit.steps) {
            EXPECT_EQ(step.nStatus, 200) << step.method;
            const bool bSetup = step.method == "SETUP";
            EXPECT_EQ(step.text.find("server_port=0-0;") != std::string::npos, bSetup);
        }
        bench.ExpectServes();
        bench.End();
    }
}

INSTANTIATE_TEST_SUITE_P(Transports, Storm, testing::Values(kVisitUdp, kVisitInterleaved),
                         [](const auto &entry) {
                             return entry.param == kVisitUdp ? "Udp" : "Interleaved";
                         });

/// An error of the listening socket itself ends the listener, as a start that
/// follows mends.
class DeadListener : public KovaFaultTest {};

TEST_F(DeadListener, IsReportedAndStartedAnew)
{
    for (const int nError : {EINVAL, EBADF, ENOTSOCK}) {
        SCOPED_TRACE(nError);
        KovaFaultBench bench;
        KovaRtspServer *pServer = bench.Server().Server();
        capture.Clear();
        KovaFaults faults({{kFaultAccept, 1, 1, nError}});
        ASSERT_TRUE(KovaWaitUntil(5000, [&] { return pServer->nListenState == kThreadStopped; }));
        EXPECT_NE(capture.Text().find("pListenProc, " + std::to_string(nError) + "("),
                  std::string::npos);
        EXPECT_EQ(pServer->nListenSocket, -1);
        EXPECT_EQ(KovaRtspServerStop(pServer), KOVA_OK);
        EXPECT_EQ(KovaRtspServerStart(pServer), KOVA_OK);
        bench.ExpectServes();
        bench.End();
    }
}

class LostAnswers : public KovaFaultTest {};

/// A player may meet the same trouble again and again; the others do not notice.
TEST_F(LostAnswers, CostNobodyElseAnything)
{
    for (const int nError : {EPIPE, ECONNRESET, EAGAIN}) {
        for (const KovaVisitKind nKind : {kVisitUdp, kVisitInterleaved}) {
            SCOPED_TRACE(nError);
            KovaFaultBench bench;
            KovaFaults faults({{kFaultSend, 1, 4, nError}});
            KovaVisitPlan plan = bench.Plan(nKind);
            plan.pFaults = &faults;
            plan.bAnswersGetLost = true;
            const KovaVisit visit = KovaMakeVisit(plan);
            faults.Stop();
            // The fifth request is the first that is answered.
            ASSERT_EQ(visit.steps.size(), 7U);
            for (size_t n = 0; n < 4; n++)
                EXPECT_EQ(visit.steps[n].text, "");
            EXPECT_TRUE(visit.steps[4].bComplete);
            bench.ExpectServes();
            bench.End();
        }
    }
}

} // namespace
