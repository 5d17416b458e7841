#include "tests/fault/fault_bench.h"

#include "classic/rtsp/server_calls.h"
#include "classic/streamer/registries.h"

#include <cerrno>
#include <chrono>
#include <functional>
#include <thread>

namespace {

constexpr char kLoopback[KOVA_ADDRESS_SIZE] = "127.0.0.1";
const KovaAudioDescription kAudio = {64, 44100, 2};
const KovaVideoDescription kVideo = {2000};

/// A host that makes everything itself, step by step. What it calls counts as
/// the library's.
struct Host {
    KovaRtspServer *pServer = nullptr;
    KovaRtspStreamer *pStream = nullptr;
    uint16_t nPort = KovaFreeTcpPort();

    void Create()
    {
        const KovaInsideLibrary inside;
        pServer = KovaRtspServerCreate(kLoopback, nPort, 16);
    }
    int32_t Start() const
    {
        const KovaInsideLibrary inside;
        return KovaRtspServerStart(pServer);
    }
    void Publish()
    {
        const KovaInsideLibrary inside;
        pStream = KovaRtspServerAddUri(pServer, kVisitUri);
    }
    int32_t AddPayloadType(uint32_t nMediaType, uint32_t *pPayloadId) const
    {
        const KovaInsideLibrary inside;
        const void *pDescription = nMediaType == KOVA_MEDIA_AUDIO
                                       ? static_cast<const void *>(&kAudio)
                                       : static_cast<const void *>(&kVideo);
        return KovaRtspServerAddPayloadType(pStream, nMediaType, pPayloadId, pDescription);
    }
    void Withdraw()
    {
        EXPECT_EQ(KovaRtspServerRemoveUri(pServer, kVisitUri), KOVA_OK);
        pStream = nullptr;
    }

    /// Whatever failed before: done once more, it works, and players are served.
    void ExpectServes()
    {
        if (pStream != nullptr)
            Withdraw();
        uint32_t nPayloadId = 0;
        Publish();
        ASSERT_NE(pStream, nullptr);
        ASSERT_EQ(AddPayloadType(KOVA_MEDIA_AUDIO, &nPayloadId), KOVA_OK);
        ASSERT_EQ(AddPayloadType(KOVA_MEDIA_VIDEO, &nPayloadId), KOVA_OK);
        KovaTestServer::MakeReady(pStream);
        KovaVisitPlan plan;
        plan.nKind = kVisitInterleaved;
        plan.nPort = nPort;
        plan.pStream = pStream;
        KovaExpectWhole(KovaMakeVisit(plan), plan.nKind);
    }
};

class HostFaults : public KovaFaultTest {};

TEST_F(HostFaults, ServerWithoutMemoryIsNull)
{
    KovaFailEach(kFaultHeap, {ENOMEM}, 40, [](KovaFaults *pFaults) {
        const KovaHoldings before = KovaHoldingsNow();
        Host host;
        host.Create();
        pFaults->Stop();
        ASSERT_EQ(host.pServer == nullptr, pFaults->Hits() != 0);
        if (host.pServer == nullptr)
            host.Create();
        ASSERT_EQ(host.Start(), KOVA_OK);
        host.ExpectServes();
        EXPECT_EQ(KovaRtspServerUninit(host.pServer), KOVA_OK);
        KovaExpectHeld(before);
    });
}

/// The kinds of calls that a start needs, and what it returns without one.
struct StartStep {
    uint32_t nCalls;
    std::vector<int> errors;
    int32_t nResult;
    const char *szMessage; ///< printed in front of the error; null: nothing
};

const StartStep kStartSteps[] = {
    {kFaultSocket, {EMFILE, ENFILE, ENOBUFS, ENOMEM}, KOVA_ERROR_SOCKET, nullptr},
    {kFaultSetOption,
     {ENOPROTOOPT, ENOMEM},
     KOVA_ERROR_SETSOCKOPT,
     "setsockopt (REUSEADDR) fail, error: "},
    {kFaultBind, {EADDRINUSE, EACCES, EADDRNOTAVAIL}, KOVA_ERROR_BIND, "bind fail, error: "},
    {kFaultListen, {EADDRINUSE, EOPNOTSUPP}, KOVA_ERROR_LISTEN, "listen fail, error: "},
};

TEST_F(HostFaults, StartTellsWhichStepFailed)
{
    for (const StartStep &step : kStartSteps) {
        KovaFailEach(step.nCalls, step.errors, 4, [&](KovaFaults *pFaults) {
            const KovaHoldings before = KovaHoldingsNow();
            Host host;
            host.Create();
            capture.Clear();
            const int32_t nResult = host.Start();
            pFaults->Stop();
            EXPECT_EQ(nResult, pFaults->Hits() != 0 ? step.nResult : KOVA_OK);
            if (nResult != KOVA_OK && step.szMessage != nullptr) {
                EXPECT_NE(
                    capture.Text().find("KovaRtspServerStart, " + std::string(step.szMessage)),
                    std::string::npos);
            }
            if (nResult != KOVA_OK) {
                EXPECT_EQ(KovaRtspServerStop(host.pServer), KOVA_OK);
                EXPECT_EQ(host.Start(), KOVA_OK);
            }
            host.ExpectServes();
            EXPECT_EQ(KovaRtspServerUninit(host.pServer), KOVA_OK);
            KovaExpectHeld(before);
        });
    }
}

TEST_F(HostFaults, InitGivesEverythingBackWhenItFails)
{
    std::vector<StartStep> steps(std::begin(kStartSteps), std::end(kStartSteps));
    steps.push_back({kFaultHeap, {ENOMEM}, KOVA_ERROR_CREATE, nullptr});
    for (const StartStep &step : steps) {
        KovaFailEach(step.nCalls, step.errors, 4, [&](KovaFaults *pFaults) {
            const KovaHoldings before = KovaHoldingsNow();
            Host host;
            int nMark = 0;
            KovaRtspServer *const pUntouched = reinterpret_cast<KovaRtspServer *>(&nMark);
            host.pServer = pUntouched;
            int32_t nResult = KOVA_OK;
            {
                const KovaInsideLibrary inside;
                nResult = KovaRtspServerInit(&host.pServer, kLoopback, host.nPort, 16);
            }
            pFaults->Stop();
            EXPECT_EQ(nResult, pFaults->Hits() != 0 ? step.nResult : KOVA_OK);
            EXPECT_EQ(host.pServer == pUntouched, nResult != KOVA_OK);
            if (nResult != KOVA_OK) {
                KovaExpectHeld(before);
                ASSERT_EQ(KovaRtspServerInit(&host.pServer, kLoopback, host.nPort, 16), KOVA_OK);
            }
            host.ExpectServes();
            EXPECT_EQ(KovaRtspServerUninit(host.pServer), KOVA_OK);
            KovaExpectHeld(before);
        });
    }
}

/// A start without one of its threads leaves that thread's state word running,
/// and a stop would wait for it for ever: that is how it is meant to be. So this
/// stops short of the stop, and first does what the missing thread would have
/// done last. Nor is KovaRtspServerInit tried, which stops by itself.
TEST_F(HostFaults, StartWithoutAThreadSaysSo)
{
    KovaFailEach(kFaultThread, {EAGAIN, EPERM}, 4, [](KovaFaults *pFaults) {
        const KovaHoldings before = KovaHoldingsNow();
        Host host;
        host.Create();
        const int32_t nResult = host.Start();
        pFaults->Stop();
        EXPECT_EQ(nResult, pFaults->Hits() != 0 ? KOVA_ERROR_THREAD : KOVA_OK);
        if (nResult != KOVA_OK) {
            const bool bNoListener = host.pServer->nMonitorState == kThreadNever;
            KovaStateWord &missing =
                bNoListener ? host.pServer->nListenState : host.pServer->nMonitorState;
            EXPECT_EQ(missing, kThreadRunning);
            missing = kThreadStopped;
            EXPECT_EQ(KovaRtspServerStop(host.pServer), KOVA_OK);
            EXPECT_EQ(host.Start(), KOVA_OK);
        }
        host.ExpectServes();
        EXPECT_EQ(KovaRtspServerUninit(host.pServer), KOVA_OK);
        KovaExpectHeld(before);
    });
}

/// A started server with nothing published, for what fails afterwards.
void WithServer(KovaFaults *pFaults, const std::function<void(Host *)> &step)
{
    pFaults->Stop();
    const KovaHoldings before = KovaHoldingsNow();
    Host host;
    host.Create();
    ASSERT_EQ(host.Start(), KOVA_OK);
    step(&host);
    pFaults->Stop();
    host.ExpectServes();
    EXPECT_EQ(KovaRtspServerUninit(host.pServer), KOVA_OK);
    KovaExpectHeld(before);
}

TEST_F(HostFaults, UriWithoutMemoryIsNotPublished)
{
    KovaFailEach(kFaultHeap, {ENOMEM}, 40, [](KovaFaults *pFaults) {
        WithServer(pFaults, [&](Host *pHost) {
            pFaults->Start();
            pHost->Publish();
            pFaults->Stop();
            // The description alone may be missing: players are then told nothing.
            const bool bMute =
                pHost->pStream != nullptr && pHost->pStream->pSdpGenerator == nullptr;
            EXPECT_EQ(pHost->pStream == nullptr || bMute, pFaults->Hits() != 0);
            EXPECT_EQ(KovaRtspServerIsUriExist(pHost->pServer, kVisitUri),
                      pHost->pStream != nullptr ? 1 : 0);
        });
    });
}

TEST_F(HostFaults, UriWithoutAThreadIsNotPublished)
{
    KovaFailEach(kFaultThread, {EAGAIN}, 4, [](KovaFaults *pFaults) {
        WithServer(pFaults, [&](Host *pHost) {
            pFaults->Start();
            pHost->Publish();
            pFaults->Stop();
            EXPECT_EQ(pHost->pStream == nullptr, pFaults->Hits() != 0);
            EXPECT_EQ(KovaRtspServerIsUriExist(pHost->pServer, kVisitUri),
                      pFaults->Hits() != 0 ? 0 : 1);
        });
    });
}

/// What a payload type consists of, as far as it is registered.
struct Parts {
    bool bMediaInfo;
    bool bPacker;
    bool bSender;
};

Parts PartsOf(KovaRtspStreamer *pStream, uint32_t nPayloadId)
{
    return {KovaRtspStreamerGetRtspMediaInfoByPayloadId(pStream, nPayloadId) != nullptr,
            KovaRtspStreamerGetRtpPackerByPayloadId(pStream, nPayloadId) != nullptr,
            KovaRtspStreamerGetRtpSenderByPayloadId(pStream, nPayloadId) != nullptr};
}

TEST_F(HostFaults, PayloadTypeWithoutMemoryFailsAndKeepsItsNumber)
{
    for (const uint32_t nMediaType : {KOVA_MEDIA_AUDIO, KOVA_MEDIA_VIDEO}) {
        KovaFailEach(kFaultHeap, {ENOMEM}, 40, [&](KovaFaults *pFaults) {
            WithServer(pFaults, [&](Host *pHost) {
                pHost->Publish();
                pFaults->Start();
                uint32_t nPayloadId = 0;
                const int32_t nResult = pHost->AddPayloadType(nMediaType, &nPayloadId);
                pFaults->Stop();
                EXPECT_EQ(nPayloadId, 96U);
                // Each part is registered only behind the one before it.
                const Parts parts = PartsOf(pHost->pStream, 96);
                EXPECT_EQ(nResult, parts.bSender ? 0 : 1);
                EXPECT_TRUE(parts.bPacker || !parts.bSender);
                EXPECT_TRUE(parts.bMediaInfo || !parts.bPacker);
                EXPECT_TRUE(nResult == 0 || pFaults->Hits() != 0);
                EXPECT_EQ(KovaRtspServerRemovePayloadType(pHost->pStream, 96), KOVA_OK);
                EXPECT_EQ(pHost->AddPayloadType(nMediaType, &nPayloadId), KOVA_OK);
                EXPECT_EQ(nPayloadId, 97U);
            });
        });
    }
}

/// The sender does not mind: its group gets the thread when a player comes.
TEST_F(HostFaults, PayloadTypeWithoutAThreadServesAllTheSame)
{
    for (const int nNumber : {1, 2}) {
        SCOPED_TRACE(nNumber);
        const KovaHoldings before = KovaHoldingsNow();
        Host host;
        host.Create();
        ASSERT_EQ(host.Start(), KOVA_OK);
        host.Publish();
        uint32_t nPayloadId = 0;
        KovaFaults faults({{kFaultThread, nNumber, 1, EAGAIN}});
        EXPECT_EQ(host.AddPayloadType(KOVA_MEDIA_AUDIO, &nPayloadId), KOVA_OK);
        EXPECT_EQ(host.AddPayloadType(KOVA_MEDIA_VIDEO, &nPayloadId), KOVA_OK);
        faults.Stop();
        EXPECT_EQ(faults.Hits(), 1);
        KovaTestServer::MakeReady(host.pStream);
        // What is pushed before anybody is there does not pile up.
        KovaPushUnits(host.pStream, 3);
        KovaVisitPlan plan;
        plan.nKind = kVisitInterleaved;
        plan.nPort = host.nPort;
        plan.pStream = host.pStream;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        KovaExpectWhole(KovaMakeVisit(plan), plan.nKind);
        EXPECT_EQ(KovaRtspServerUninit(host.pServer), KOVA_OK);
        KovaExpectHeld(before);
    }
}

} // namespace
