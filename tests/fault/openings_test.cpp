#include "tests/fault/fault_bench.h"

namespace {

class Openings : public KovaFaultTest, public testing::WithParamInterface<KovaVisitKind> {};

/// A flag that is set in a second step comes too late for the program that
/// another thread of the host starts in between.
TEST_P(Openings, AreCloseOnExecFromTheCallThatMakesThem)
{
    const size_t nBefore = KovaInheritableOpenings();
    KovaFaultBench bench;
    KovaExpectWhole(KovaMakeVisit(bench.Plan(GetParam())), GetParam());
    bench.End();
    EXPECT_EQ(KovaInheritableOpenings(), nBefore);
}

INSTANTIATE_TEST_SUITE_P(Transports, Openings, testing::Values(kVisitUdp, kVisitInterleaved),
                         [](const auto &entry) {
                             return entry.param == kVisitUdp ? "Udp" : "Interleaved";
                         });

} // namespace
