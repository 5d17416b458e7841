#include "tests/fault/fault_bench.h"

#include "classic/streamer/registries.h"
#include "kova_rtsp_server.h"
#include "tests/support/server_records.h"
#include "tests/support/wait_until.h"

#include <chrono>
#include <cstdlib>
#include <map>
#include <thread>

namespace {

constexpr char kNoSession[] = "RTSP/1.0 454 Session Not Found\r\n\r\n";

/// The reference's step with that number.
const KovaVisitStep *StepOf(const KovaVisit &reference, const KovaVisitStep &step)
{
    for (const KovaVisitStep &other : reference.steps) {
        if (other.nCSeq == step.nCSeq && other.method == step.method)
            return &other;
    }
    return nullptr;
}

/// A PLAY answer without the part that names tracks: one that is short of memory
/// leaves tracks out of it.
std::string WithoutTracks(const std::string &text)
{
    const size_t nBegin = text.find("RTP-Info: ");
    const size_t nEnd = text.find("\r\n", nBegin == std::string::npos ? 0 : nBegin);
    return nBegin == std::string::npos ? text : text.substr(0, nBegin) + text.substr(nEnd + 2);
}

/// A SETUP answer as it would be with ports: a search that meets a shortage has
/// found none, and says so with zeros.
std::string WithPorts(std::string text)
{
    constexpr char kNoPorts[] = "server_port=0-0;";
    const size_t nAt = text.find(kNoPorts);
    return nAt == std::string::npos ? text
                                    : text.replace(nAt, sizeof(kNoPorts) - 1, "server_port=N;");
}

/// The payloads, each aggregation followed by its units: short of memory for one
/// of two units, the packer sends the other alone.
std::vector<std::string> WithParts(const std::vector<std::string> &payloads)
{
    std::vector<std::string> whole;
    for (const std::string &payload : payloads) {
        const std::vector<std::string> units = KovaAggregated(payload);
        whole.push_back(payload);
        whole.insert(whole.end(), units.begin(), units.end());
    }
    return whole;
}

/// A stream with nothing under way.
bool IsQuiet(KovaRtspStreamer *pStream)
{
    return KovaRingbufferAvail(&pStream->audioRing) == 0 &&
           KovaRingbufferAvail(&pStream->videoRing) == 0 &&
           KovaQueuedPackets(pStream, KOVA_PAYLOAD_ID_AUDIO) == 0 &&
           KovaQueuedPackets(pStream, KOVA_PAYLOAD_ID_VIDEO) == 0;
}

} // namespace

std::vector<int> KovaFaultNumbers(int nCalls, int nMost)
{
    std::vector<int> numbers;
    const bool bAll = getenv("KOVA_FAULT_ALL") != nullptr || nCalls <= nMost;
    const int nFirst = bAll ? nCalls : nMost / 2;
    for (int nNumber = 1; nNumber <= nFirst; nNumber++)
        numbers.push_back(nNumber);
    const int nSpread = nMost - nFirst;
    for (int nIndex = 1; !bAll && nIndex <= nSpread; nIndex++)
        numbers.push_back(nFirst + (nCalls - nFirst) * nIndex / nSpread);
    return numbers;
}

bool KovaPackersWork(KovaRtspStreamer *pStream)
{
    return KovaThreadRuns(pStream->nAudioPackerState) && KovaThreadRuns(pStream->nVideoPackerState);
}

void KovaExpectHeld(const KovaHoldings &before)
{
    // Threads that end by themselves may still be giving back what they had.
    KovaHoldings now = {};
    KovaWaitUntil(5000, [&] {
        now = KovaHoldingsNow();
        return now.nBlocks == before.nBlocks && now.nThreads == before.nThreads &&
               now.nDescriptors == before.nDescriptors;
    });
    EXPECT_EQ(now.nBlocks, before.nBlocks) << "blocks of the heap";
    EXPECT_EQ(now.nThreads, before.nThreads) << "threads";
    EXPECT_EQ(now.nDescriptors, before.nDescriptors) << "descriptors";
}

const KovaVisit &KovaReferenceVisit(KovaVisitKind nKind)
{
    static std::map<KovaVisitKind, KovaVisit> visits;
    const auto found = visits.find(nKind);
    if (found != visits.end())
        return found->second;
    KovaFaultBench bench;
    const KovaVisit visit = KovaMakeVisit(bench.Plan(nKind));
    bench.End();
    return visits.emplace(nKind, visit).first->second;
}

void KovaExpectWhole(const KovaVisit &visit, KovaVisitKind nKind)
{
    const KovaVisit &reference = KovaReferenceVisit(nKind);
    EXPECT_TRUE(visit.bConnected);
    EXPECT_FALSE(visit.bEnded);
    ASSERT_EQ(visit.steps.size(), reference.steps.size());
    for (size_t n = 0; n < visit.steps.size(); n++) {
        EXPECT_TRUE(visit.steps[n].bComplete) << visit.steps[n].method;
        EXPECT_EQ(visit.steps[n].text, reference.steps[n].text);
    }
    EXPECT_EQ(visit.audio, reference.audio);
    EXPECT_EQ(visit.video, reference.video);
    EXPECT_EQ(visit.strays, "");
}

void KovaExpectLawful(const KovaVisit &visit, KovaVisitKind nKind, bool bShort)
{
    const KovaVisit &reference = KovaReferenceVisit(nKind);
    for (const KovaVisitStep &step : visit.steps) {
        if (!step.bComplete)
            continue;
        if (bShort && step.text == kNoSession)
            continue;
        const KovaVisitStep *pRight = StepOf(reference, step);
        ASSERT_NE(pRight, nullptr) << step.method;
        const bool bTracksMayMiss = bShort && step.method == "PLAY";
        const std::string text = bShort ? WithPorts(step.text) : step.text;
        EXPECT_EQ(bTracksMayMiss ? WithoutTracks(text) : text,
                  bTracksMayMiss ? WithoutTracks(pRight->text) : pRight->text);
    }
    EXPECT_TRUE(KovaIsSubsequence(visit.audio, reference.audio));
    EXPECT_TRUE(
        KovaIsSubsequence(visit.video, bShort ? WithParts(reference.video) : reference.video));
    EXPECT_TRUE(visit.bEnded || visit.strays.empty()) << visit.strays;
}

KovaFaultBench::KovaFaultBench()
    : m_before(KovaHoldingsNow()), m_pServer(std::make_unique<KovaTestServer>()),
      m_pStream(m_pServer->Stream())
{
    if (m_pStream != nullptr)
        KovaTestServer::MakeReady(m_pStream);
}

KovaVisitPlan KovaFaultBench::Plan(KovaVisitKind nKind)
{
    KovaVisitPlan plan;
    plan.nKind = nKind;
    plan.nPort = m_pServer->Port();
    plan.pStream = m_pStream;
    return plan;
}

void KovaFaultBench::Republish()
{
    if (m_pStream != nullptr && KovaPackersWork(m_pStream))
        return;
    KovaRtspServerRemoveUri(m_pServer->Server(), kVisitUri);
    m_pStream = m_pServer->AddStream(kVisitUri);
    ASSERT_NE(m_pStream, nullptr);
    KovaTestServer::MakeReady(m_pStream);
}

void KovaFaultBench::ExpectServes(KovaVisitKind nKind)
{
    // A unit may be in nobody's queue while it is being packed: look twice.
    for (int nLook = 0; nLook < 2; nLook++) {
        ASSERT_TRUE(KovaWaitUntil(10000, [this] { return IsQuiet(m_pStream); }));
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    SCOPED_TRACE("afterwards");
    KovaExpectWhole(KovaMakeVisit(Plan(nKind)), nKind);
}

void KovaFaultBench::End()
{
    m_pServer.reset();
    KovaExpectHeld(m_before);
}
