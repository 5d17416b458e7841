#include "live/engine/loop.h"
#include "tests/fault/fault_bench.h"
#include "tests/live/live_host.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>

// The live engine short of everything: what fails costs the newest, the service goes on, and all is
// given back.

namespace {

constexpr int kUnitWaitMs = 100;
constexpr int kTries = 50;

/// A host whose own calls into the engine count as the engine's.
struct Bench {
    std::unique_ptr<KovaLiveHost> host;
    KovaLiveStream *pStream = nullptr;
    KovaLiveTrack *pVideo = nullptr;
    int64_t nPts = 0;

    explicit Bench(uint32_t nLoops = 1)
    {
        host = std::make_unique<KovaLiveHost>([nLoops](KovaLiveConfig *pConfig) {
            pConfig->threads = nLoops;
            pConfig->log_level = KOVA_LIVE_LOG_WARNING;
        });
        pStream = host->AddStream("cam");
        pVideo = KovaLiveHost::AddVideo(pStream);
    }
    bool Arrives(KovaLiveClient *pClient, int nMilliseconds = kLiveWaitMs)
    {
        Push();
        return !KovaLiveNextUnit(pClient, 1, nMilliseconds).empty();
    }
    int32_t Push()
    {
        nPts += 40000;
        const std::string key = KovaLiveKey(3000);
        const KovaInsideLibrary inside;
        return KovaLivePushText(pVideo, key, nPts);
    }
    void ExpectServes()
    {
        KovaLiveClient tcp;
        KovaLiveClient udp;
        EXPECT_TRUE(KovaLivePlayTcp(&tcp, *host));
        EXPECT_TRUE(KovaLivePlayUdp(&udp, *host));
        EXPECT_TRUE(Arrives(&tcp));
        EXPECT_FALSE(KovaLiveNextUnit(&udp, 1).empty());
    }
};

struct Failing {
    const char *szName;
    uint32_t nCalls;
    int nError;
    int nMost; ///< of the first calls of a visit that fail, one after the other
};

class LiveVisitFaults : public testing::TestWithParam<Failing> {};

} // namespace

TEST_P(LiveVisitFaults, OneFailureOfAVisitCostsThatVisitAtMost)
{
    const Failing failing = GetParam();
    const KovaHoldings before = KovaHoldingsNow();
    {
        Bench bench;
        KovaLiveClient player;
        ASSERT_TRUE(KovaLivePlayUdp(&player, *bench.host));
        ASSERT_TRUE(bench.Arrives(&player));
        for (int nNumber = 1; nNumber <= failing.nMost; nNumber++) {
            SCOPED_TRACE(nNumber);
            int nHits = 0;
            {
                KovaFaults faults({{failing.nCalls, nNumber, 1, failing.nError}});
                KovaLiveClient visitor;
                const bool bUdp = nNumber % 2 == 0;
                if (bUdp ? KovaLivePlayUdp(&visitor, *bench.host)
                         : KovaLivePlayTcp(&visitor, *bench.host)) {
                    bench.Arrives(&visitor, kUnitWaitMs);
                    visitor.Teardown("cam");
                }
                nHits = faults.Hits();
            }
            // The one who plays has lost a picture at most; what is left of that one is passed
            // over.
            int nTries = 0;
            while (!bench.Arrives(&player, kUnitWaitMs) && nTries < kTries)
                nTries++;
            ASSERT_LT(nTries, kTries);
            if (nHits == 0)
                break;
        }
        bench.ExpectServes();
    }
    KovaExpectHeld(before);
}

INSTANTIATE_TEST_SUITE_P(Calls, LiveVisitFaults,
                         testing::Values(Failing{"heap", kFaultHeap, ENOMEM, 40},
                                         Failing{"socket", kFaultSocket, EMFILE, 5},
                                         Failing{"bind", kFaultBind, EADDRINUSE, 5},
                                         Failing{"options", kFaultSetOption, ENOPROTOOPT, 20},
                                         Failing{"aborted", kFaultAccept, ECONNABORTED, 5},
                                         Failing{"descriptors", kFaultAccept, EMFILE, 3},
                                         Failing{"buffers", kFaultAccept, ENOBUFS, 3},
                                         Failing{"send_again", kFaultSend, EAGAIN, 12},
                                         Failing{"interrupted", kFaultReceive, EINTR, 12},
                                         Failing{"sendto_again", kFaultSendTo, EAGAIN, 12},
                                         Failing{"sendto_refused", kFaultSendTo, EPERM, 12},
                                         Failing{"rtcp", kFaultReceiveFrom, ECONNREFUSED, 6},
                                         Failing{"names", kFaultNameless, ENOBUFS, 12}),
                         [](const auto &kind) { return std::string(kind.param.szName); });

TEST(LiveOpening, EveryFailureOfAnOpeningIsToldAndGivenBack)
{
    constexpr Failing kFailing[] = {{"heap", kFaultHeap, ENOMEM, 60},
                                    {"thread", kFaultThread, EAGAIN, 5},
                                    {"socket", kFaultSocket, EMFILE, 5},
                                    {"bind", kFaultBind, EADDRINUSE, 5},
                                    {"listen", kFaultListen, EADDRINUSE, 5}};
    for (const Failing &failing : kFailing) {
        SCOPED_TRACE(failing.szName);
        for (int nNumber = 1; nNumber <= failing.nMost; nNumber++) {
            SCOPED_TRACE(nNumber);
            const KovaHoldings before = KovaHoldingsNow();
            // The system's own stack is the second attempt.
            KovaFaults faults({{failing.nCalls, nNumber, failing.nCalls == kFaultThread ? 2 : 1,
                                failing.nError}});
            KovaLive *pLive = nullptr;
            int32_t nResult = 0;
            {
                const KovaInsideLibrary inside;
                KovaLiveConfig config;
                KovaLiveConfigInit(&config, sizeof(config));
                config.threads = 2;
                nResult = KovaLiveOpen(&config, &pLive);
                KovaLiveStream *pStream = nullptr;
                KovaLiveTrack *pTrack = nullptr;
                KovaLiveTrackConfig track;
                KovaLiveTrackConfigInit(&track, sizeof(track));
                track.codec = KOVA_LIVE_H264;
                if (nResult == KOVA_LIVE_OK &&
                    KovaLiveAddStream(pLive, "cam", nullptr, &pStream) == KOVA_LIVE_OK)
                    KovaLiveAddTrack(pStream, &track, &pTrack);
            }
            const bool bHit = faults.Hits() != 0;
            faults.Stop();
            EXPECT_EQ(pLive == nullptr, nResult != KOVA_LIVE_OK);
            EXPECT_TRUE(bHit || nResult == KOVA_LIVE_OK);
            EXPECT_EQ(KovaLiveClose(pLive), KOVA_LIVE_OK);
            KovaExpectHeld(before);
            if (!bHit)
                break;
        }
    }
}

/// Reports, keep-alives and their answers need no memory, so a shortage ends nobody who plays.
TEST(LiveShortage, NobodyWhoPlaysEndsWithoutMemory)
{
    const KovaHoldings before = KovaHoldingsNow();
    {
        Bench bench;
        KovaLiveClient tcp;
        KovaLiveClient udp;
        ASSERT_TRUE(KovaLivePlayTcp(&tcp, *bench.host));
        ASSERT_TRUE(KovaLivePlayUdp(&udp, *bench.host));
        ASSERT_TRUE(bench.Arrives(&tcp));
        {
            KovaFaults faults({{kFaultHeap, 1, kFaultForEver, ENOMEM}});
            // The second sender report of each falls into it.
            for (int nPicture = 0; nPicture < 15; nPicture++) {
                bench.Push();
                ASSERT_TRUE(tcp.SendRtcp(1, KovaLiveReport(0)));
                ASSERT_TRUE(udp.SendRtcp(1, KovaLiveReport(0)));
                ASSERT_EQ(tcp.Request("GET_PARAMETER", "cam").nStatus, 200);
                std::this_thread::sleep_for(std::chrono::milliseconds(100));
            }
            KovaLiveClient newest;
            EXPECT_FALSE(KovaLivePlayTcp(&newest, *bench.host));
            EXPECT_GT(faults.Hits(), 0);
        }
        EXPECT_EQ(bench.host->Figures().players, 2U);
        while (!KovaLiveNextUnit(&tcp, 1, kUnitWaitMs).empty()) {
        }
        EXPECT_TRUE(bench.Arrives(&tcp));
        bench.ExpectServes();
    }
    KovaExpectHeld(before);
}

/// Allocations fail here and there for a while, with players who come and go.
TEST(LiveShortage, FailuresHereAndThereLoseNothingForGood)
{
    for (const int nEvery : {2, 3, 7}) {
        SCOPED_TRACE(nEvery);
        const KovaHoldings before = KovaHoldingsNow();
        {
            Bench bench(2);
            KovaFaults faults({{kFaultHeap, 1, kFaultForEver, ENOMEM, 0, nEvery},
                               {kFaultSend, 1, kFaultForEver, EAGAIN, 0, 5},
                               {kFaultSendTo, 1, kFaultForEver, EAGAIN, 0, 5}});
            for (int nPlayer = 0; nPlayer < 40; nPlayer++) {
                KovaLiveClient client;
                const bool bUdp = nPlayer % 2 == 0;
                if (bUdp ? KovaLivePlayUdp(&client, *bench.host)
                         : KovaLivePlayTcp(&client, *bench.host)) {
                    bench.Arrives(&client, 20);
                    bench.Arrives(&client, 20);
                }
                client.Close(nPlayer % 3 == 0);
            }
            EXPECT_GT(faults.Hits(), 10);
            faults.Stop();
            bench.ExpectServes();
            // Which loop is the least busy is still known.
            for (uint32_t nLoop = 0; nLoop < 2; nLoop++)
                EXPECT_TRUE(
                    KovaWaitUntil([&] { return bench.host->Live()->pLoops[nLoop]->nLoad == 0; }));
        }
        KovaExpectHeld(before);
    }
}

/// Every connection is taken, or refused, but none is left to wait, and those who play go on.
TEST(LiveShortage, NoDescriptorsSendTheNewestAway)
{
    const KovaHoldings before = KovaHoldingsNow();
    {
        Bench bench;
        KovaLiveClient player;
        ASSERT_TRUE(KovaLivePlayTcp(&player, *bench.host));
        KovaFaults faults({{kFaultAccept, 1, kFaultForEver, EMFILE, 0, 2}});
        for (int nVisitor = 0; nVisitor < 10; nVisitor++) {
            KovaLiveClient visitor;
            ASSERT_TRUE(visitor.Connect(bench.host->Port()));
            EXPECT_TRUE(visitor.WaitClosed());
            EXPECT_TRUE(bench.Arrives(&player));
        }
        faults.Stop();
        bench.ExpectServes();
    }
    KovaExpectHeld(before);
}
