#include "tests/fault/fault_bench.h"

#include <cerrno>
#include <ostream>
#include <tuple>

namespace {

/// What one failed call may do to the player whom it meets.
enum Harm {
    kUnharmed,        ///< nothing: everything comes, as ever
    kNotServed,       ///< the connection is closed before the first answer
    kLosesAnything,   ///< the session, tracks or packets may be missing
    kLosesPackets,    ///< packets may be missing
    kLosesConnection, ///< the connection may end at any point
};

/// One kind of failure.
struct Failure {
    const char *szName;
    uint32_t nCalls;
    std::vector<int> errors;
    Harm nHarm;
    int nMost; ///< numbers tried per error
};

void PrintTo(const Failure &failure, std::ostream *pStream)
{
    *pStream << failure.szName;
}

/// A shortage while tracks are set up leaves a PLAY nothing to play: the stream
/// then counts a player, as it does for every PLAY.
void ExpectCount(KovaFaultBench *pBench, const KovaVisit &visit)
{
    if (visit.steps.empty())
        return;
    const KovaVisitStep &last = visit.steps.back();
    if (last.method != "TEARDOWN" || !last.bComplete)
        return;
    EXPECT_EQ(pBench->Stream()->nClientCount.load(),
              visit.bPlayed && visit.nClientsAtPlay == 0 ? 1 : 0);
}

void ExpectAnswers(const KovaVisit &visit, Harm nHarm)
{
    EXPECT_TRUE(visit.bConnected);
    ASSERT_FALSE(visit.steps.empty());
    if (nHarm == kLosesConnection)
        return;
    if (visit.bEnded) {
        EXPECT_TRUE(nHarm == kNotServed || nHarm == kLosesAnything);
        EXPECT_EQ(visit.steps.size(), 1U) << "ended in the middle";
        return;
    }
    for (const KovaVisitStep &step : visit.steps)
        EXPECT_TRUE(step.bComplete) << step.method;
}

void VisitWith(KovaVisitKind nKind, Harm nHarm, KovaFaults *pFaults)
{
    KovaFaultBench bench;
    KovaVisitPlan plan = bench.Plan(nKind);
    plan.pFaults = nHarm != kUnharmed ? pFaults : nullptr;
    const KovaVisit visit = KovaMakeVisit(plan);
    pFaults->Stop();
    if (pFaults->Hits() == 0 || nHarm == kUnharmed)
        KovaExpectWhole(visit, nKind);
    ExpectAnswers(visit, nHarm);
    KovaExpectLawful(visit, nKind, nHarm == kLosesAnything);
    ExpectCount(&bench, visit);
    bench.Republish();
    bench.ExpectServes(nKind);
    bench.End();
}

class PlayerFaults : public KovaFaultTest,
                     public testing::WithParamInterface<std::tuple<KovaVisitKind, Failure>> {};

TEST_P(PlayerFaults, HarmOnlyWhatTheyMeet)
{
    const auto &[nKind, failure] = GetParam();
    KovaFailEach(failure.nCalls, failure.errors, failure.nMost,
                 [&](KovaFaults *pFaults) { VisitWith(nKind, failure.nHarm, pFaults); });
}

const Failure kEither[] = {
    {"Memory", kFaultHeap, {ENOMEM}, kLosesAnything, 30},
    {"Thread", kFaultThread, {EAGAIN}, kNotServed, 2},
    {"Option", kFaultSetOption, {ENOPROTOOPT}, kUnharmed, 2},
    {"Accept",
     kFaultAccept,
     {EINTR, EAGAIN, EMFILE, ENFILE, ENOBUFS, ENOMEM, ECONNABORTED},
     kUnharmed,
     2},
    {"Receive", kFaultReceive, {EINTR, EAGAIN}, kUnharmed, 5},
    {"LostReceive", kFaultReceive, {ECONNRESET, ETIMEDOUT}, kLosesConnection, 6},
    {"Wait", kFaultPoll, {EINTR, ENOMEM}, kUnharmed, 4},
    {"Rest", kFaultSleep, {EINTR}, kUnharmed, 4},
    {"Control", kFaultControl, {EBADF}, kUnharmed, 4},
};

const Failure kUdpOnly[] = {
    {"Socket", kFaultSocket, {EMFILE, ENFILE, ENOBUFS, ENOMEM}, kLosesAnything, 4},
    {"OtherSocket", kFaultSocket, {EACCES, EAFNOSUPPORT}, kUnharmed, 4},
    {"ShortBind", kFaultBind, {ENOBUFS, ENOMEM}, kLosesAnything, 4},
    {"Bind", kFaultBind, {EADDRINUSE, EACCES}, kUnharmed, 4},
    {"Report", kFaultReceiveFrom, {EINTR, EAGAIN, ECONNREFUSED, ENOMEM}, kUnharmed, 3},
    {"FullSocket", kFaultSendTo, {EINTR, EAGAIN}, kUnharmed, 10},
    {"LostPacket", kFaultSendTo, {ENOBUFS, ECONNREFUSED, EPERM, ENETUNREACH}, kLosesPackets, 4},
};

constexpr auto kNameOf = [](const auto &entry) {
    const auto &[nKind, failure] = entry.param;
    return std::string(failure.szName) + (nKind == kVisitUdp ? "Udp" : "Interleaved");
};

INSTANTIATE_TEST_SUITE_P(EitherTransport, PlayerFaults,
                         testing::Combine(testing::Values(kVisitUdp, kVisitInterleaved),
                                          testing::ValuesIn(kEither)),
                         kNameOf);
INSTANTIATE_TEST_SUITE_P(Udp, PlayerFaults,
                         testing::Combine(testing::Values(kVisitUdp), testing::ValuesIn(kUdpOnly)),
                         kNameOf);

} // namespace
