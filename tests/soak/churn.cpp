#include "classic/streamer/registries.h"
#include "tests/soak/modes.h"
#include "tests/soak/parked_players.h"
#include "tests/soak/resources.h"
#include "tests/soak/scenarios.h"
#include "tests/soak/soak_feed.h"
#include "tests/soak/watchdog.h"
#include "tests/support/server_records.h"
#include "tests/support/test_server.h"

#include <chrono>
#include <cstdio>

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned kWorkers = 24;
constexpr int kWarmUpSeconds = 4;
constexpr int kSettleMilliseconds = 60000;
constexpr int kHangSeconds = 120;
constexpr size_t kHeapSlack = 64 * 1024;

/// Lets so many players begin per second, whoever asks. What a slow machine
/// misses is not made up for.
class Gate {
public:
    explicit Gate(unsigned nRate) : m_interval(std::chrono::microseconds(1000000 / nRate)) {}

    void Pass()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        const Clock::time_point now = Clock::now();
        if (m_next < now - std::chrono::milliseconds(200))
            m_next = now;
        const Clock::time_point mine = m_next;
        m_next += m_interval;
        lock.unlock();
        std::this_thread::sleep_until(mine);
    }

private:
    const Clock::duration m_interval;
    std::mutex m_mutex;
    Clock::time_point m_next;
};

struct Churn {
    KovaTestServer server{{"live", KOVA_MAX_CLIENTS, true}};
    KovaSoakScore score;
    KovaSoakFeed feed{server.Stream()};
    KovaSoakSessions sessions{server.Server()};
    const KovaSoakStage stage{server.Port(), server.Stream(), &sessions, &score};
    KovaParkedPlayers parked{stage};
    KovaWatchdog watchdog{kHangSeconds};
};

void Work(Churn *pChurn, Gate *pGate, unsigned nSeed, Clock::time_point end)
{
    KovaSoakRandom random(nSeed);
    for (pGate->Pass(); Clock::now() < end; pGate->Pass()) {
        const KovaSoakScenario &scenario = KovaPickScenario(&random);
        auto player = std::make_unique<KovaSoakPlayer>(pChurn->stage, scenario.szName);
        scenario.pfnBehave(player.get(), &pChurn->score, &random);
        pChurn->parked.Add(std::move(player));
        pChurn->score.nPlayers++;
        pChurn->watchdog.Note(std::string("the players, after \"") + scenario.szName + "\"");
    }
}

void RunPlayers(Churn *pChurn, const KovaSoakOptions &options, int nSeconds, unsigned nSeed)
{
    const Clock::time_point end = Clock::now() + std::chrono::seconds(nSeconds);
    Gate gate(options.nRate);
    std::vector<std::thread> workers;
    for (unsigned i = 0; i < kWorkers; i++)
        workers.emplace_back([=, &gate] { Work(pChurn, &gate, nSeed + i, end); });
    for (std::thread &worker : workers)
        worker.join();
}

unsigned QueuedPackets(KovaRtspStreamer *pStream)
{
    return KovaQueuedPackets(pStream, KOVA_PAYLOAD_ID_AUDIO) +
           KovaQueuedPackets(pStream, KOVA_PAYLOAD_ID_VIDEO);
}

/// Everybody is gone and nothing is on its way; the feed pauses.
bool Settle(Churn *pChurn)
{
    pChurn->watchdog.Note("waiting for everybody to be gone");
    KovaTestServer &server = pChurn->server;
    const bool bGone =
        pChurn->parked.WaitEmpty(kSettleMilliseconds) &&
        server.WaitHandlers(0, kSettleMilliseconds) && KovaWaitUntil(kSettleMilliseconds, [&] {
            return server.SessionCount() == 0 && server.Clients(KOVA_PAYLOAD_ID_AUDIO).empty() &&
                   server.Clients(KOVA_PAYLOAD_ID_VIDEO).empty();
        });
    pChurn->feed.Pause(true);
    const bool bSent =
        KovaWaitUntil(kSettleMilliseconds, [&] { return QueuedPackets(server.Stream()) == 0; });
    if (!bGone || !bSent)
        pChurn->score.Complain("afterwards: " + std::to_string(server.HandlerCount()) +
                               " connections, " + std::to_string(server.SessionCount()) +
                               " sessions, " + std::to_string(QueuedPackets(server.Stream())) +
                               " packets are left");
    return bGone && bSent;
}

/// Each PLAY raised the stream's count, each session that had clients lowered it.
void CheckClientCount(Churn *pChurn)
{
    const int nExpected = pChurn->score.nPlays - pChurn->score.nSessions;
    const int nCount = pChurn->server.Stream()->nClientCount;
    if (nCount != nExpected)
        pChurn->score.Complain("the client count is " + std::to_string(nCount) + ", not " +
                               std::to_string(nExpected));
}

void Report(KovaSoakScore *pScore, const KovaResources &before, const KovaResources &after,
            double dSeconds)
{
    fprintf(stderr,
            "churn: %u players in %.1f s (%.1f/s), %u units right, %u requests, %u sessions "
            "expired, %u players did not read\n",
            pScore->nPlayers.load(), dSeconds, pScore->nPlayers / dSeconds, pScore->nUnits.load(),
            pScore->nRequests.load(), pScore->nExpired.load(), pScore->nUnread.load());
    KovaReportResources("churn", before, after);
    pScore->Report("churn");
}

} // namespace

int KovaRunChurn(const KovaSoakOptions &options)
{
    Churn churn;
    if (!churn.server.IsUp() ||
        !KovaWaitUntil(10000, [&] { return KovaRtspStreamerSdpIsReady(churn.server.Stream()); })) {
        fprintf(stderr, "churn: no server\n");
        return 1;
    }
    RunPlayers(&churn, options, kWarmUpSeconds, options.nSeed + 1000000);
    Settle(&churn);
    const KovaResources before = KovaTakeResources();
    churn.feed.Pause(false);

    const Clock::time_point begin = Clock::now();
    const unsigned nPlayersBefore = churn.score.nPlayers;
    RunPlayers(&churn, options, options.nSeconds, options.nSeed);
    const std::chrono::duration<double> time = Clock::now() - begin;
    churn.score.nPlayers -= nPlayersBefore;
    Settle(&churn);
    CheckClientCount(&churn);
    KovaResources after = {};
    const std::string difference = KovaCompareResources(before, kHeapSlack, &after);
    if (!difference.empty())
        churn.score.Complain("afterwards: " + difference);
    if (churn.score.nUnits == 0)
        churn.score.Complain("no media was seen");
    Report(&churn.score, before, after, time.count());
    return churn.score.Failures() == 0 ? 0 : 1;
}
