#pragma once

#include "tests/fault/fault_shim.h"
#include "tests/fault/fault_visit.h"
#include "tests/support/stdout_capture.h"
#include "tests/support/test_server.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

/// The numbers of the calls, out of nCalls, that are made to fail one after the
/// other: all of them when the environment names KOVA_FAULT_ALL, otherwise the
/// first ones and a spread over the rest, nMost together.
std::vector<int> KovaFaultNumbers(int nCalls, int nMost);

/// Whether both packer threads of the stream are at work.
bool KovaPackersWork(KovaRtspStreamer *pStream);

/// Waits until nothing is held that was not held before; says what is.
void KovaExpectHeld(const KovaHoldings &before);

/// A visit to a server that is as it should be: what every later one must equal.
const KovaVisit &KovaReferenceVisit(KovaVisitKind nKind);

/// Everything came, and as in the reference.
void KovaExpectWhole(const KovaVisit &visit, KovaVisitKind nKind);

/// Every response that came is the right one; packets are missing at most, never
/// changed. Short of memory or descriptors a response may also say that there is
/// no such session, leave tracks out or have no ports, and a packet may carry one
/// unit less.
void KovaExpectLawful(const KovaVisit &visit, KovaVisitKind nKind, bool bShort);

/// Keeps what the library prints to itself, and knows the undisturbed visits.
class KovaFaultTest : public testing::Test {
protected:
    void SetUp() override
    {
        KovaReferenceVisit(kVisitUdp);
        KovaReferenceVisit(kVisitInterleaved);
    }
    KovaStdoutCapture capture;
};

/// A server with a stream that is ready to be played, and what was held before it.
class KovaFaultBench {
public:
    KovaFaultBench();
    KovaFaultBench(const KovaFaultBench &) = delete;
    KovaFaultBench &operator=(const KovaFaultBench &) = delete;

    KovaTestServer &Server()
    {
        return *m_pServer;
    }
    KovaRtspStreamer *Stream()
    {
        return m_pStream;
    }

    /// A plan for a visit to this server.
    KovaVisitPlan Plan(KovaVisitKind nKind);

    /// The host looks after its stream: where a packer thread has left for want of
    /// memory (nothing restarts it), it publishes the URI anew.
    void Republish();

    /// A new player is served in full.
    void ExpectServes(KovaVisitKind nKind = kVisitInterleaved);

    /// Takes the server down; nothing stays behind.
    void End();

private:
    KovaHoldings m_before;
    std::unique_ptr<KovaTestServer> m_pServer;
    KovaRtspStreamer *m_pStream = nullptr;
};

/// Counts what a scenario calls, then runs it again with each number failing.
/// The scenario is given the faults, which are armed; it disarms them with
/// Stop(), and judges by itself.
template <typename Scenario>
void KovaFailEach(uint32_t nCalls, const std::vector<int> &errors, int nMost, Scenario scenario)
{
    int nAll = 0;
    {
        SCOPED_TRACE("without a failure");
        KovaFaults faults({{nCalls, 1, 0}});
        scenario(&faults);
        nAll = faults.Calls();
    }
    ASSERT_GT(nAll, 0) << "the scenario does not make these calls";
    int nHits = 0;
    for (const int nError : errors) {
        for (const int nNumber : KovaFaultNumbers(nAll, nMost)) {
            SCOPED_TRACE("call " + std::to_string(nNumber) + " of " + std::to_string(nAll) +
                         " ends with error " + std::to_string(nError));
            KovaFaults faults({{nCalls, nNumber, 1, nError}});
            scenario(&faults);
            nHits += faults.Hits();
            if (testing::Test::HasFatalFailure() || testing::Test::HasNonfatalFailure())
                return;
        }
    }
    EXPECT_GT(nHits, 0) << "no call was made to fail";
}
