#include "tests/soak/fire_host.h"
#include "tests/soak/fire_player.h"
#include "tests/soak/modes.h"
#include "tests/soak/resources.h"
#include "tests/soak/short_sleeps.h"
#include "tests/soak/watchdog.h"
#include "tests/support/test_server.h"

#include <chrono>
#include <cstdio>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned kWorkers = 10;
constexpr unsigned kPlayersPerWorker = 5;
constexpr int kHangSeconds = 120;
constexpr size_t kHeapSlack = 64 * 1024;
/// The monitor's second becomes this much shorter: a server ends in 20 ms.
constexpr unsigned kSleepDivisor = 50;

constexpr int kWarmUpRounds = 4;
constexpr int kPacedEvery = 10; ///< rounds
constexpr int kStopEvery = 20;

/// A few players at once, a step of each in turn.
void RunPlayers(KovaSoakScore *pScore, uint16_t nPort, unsigned nSeed)
{
    std::mt19937 random(nSeed);
    std::vector<std::unique_ptr<KovaFirePlayer>> playing;
    std::vector<std::unique_ptr<KovaFirePlayer>> silent;
    for (unsigned i = 0; i < kPlayersPerWorker; i++)
        playing.push_back(std::make_unique<KovaFirePlayer>(pScore, nPort, random()));
    while (!playing.empty()) {
        for (size_t i = playing.size(); i-- > 0;) {
            if (playing[i]->Step())
                continue;
            silent.push_back(std::move(playing[i]));
            playing.erase(playing.begin() + static_cast<std::ptrdiff_t>(i));
        }
    }
}

void RunRound(KovaSoakScore *pScore, KovaWatchdog *pWatchdog, int nRound, unsigned nSeed)
{
    const std::string name = "round " + std::to_string(nRound);
    std::mt19937 random(nSeed);
    KovaFireHost host(pScore, KovaFreeTcpPort(), random(), nRound % kPacedEvery == 0);
    const uint16_t nPort = host.Port();
    pWatchdog->Note(name + ", the server's start");
    if (!host.Create())
        return;
    std::vector<std::thread> workers;
    for (unsigned i = 0; i < kWorkers; i++)
        workers.emplace_back(RunPlayers, pScore, nPort, random());
    const auto pause = [&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(5 + random() % 40));
    };
    for (unsigned nLeft = 2 + random() % 4; nLeft > 0; nLeft--) {
        pause();
        pWatchdog->Note(name + ", something taken from the server");
        host.DoAnything();
    }
    if (nRound % kStopEvery == 0) {
        pWatchdog->Note(name + ", the server's stop and start");
        host.StopAndStart();
    }
    pause();
    pWatchdog->Note(name + ", the server's end");
    host.Destroy();
    pWatchdog->Note(name + ", the players' end");
    for (std::thread &worker : workers)
        worker.join();
}

void Report(KovaSoakScore *pScore, int nRounds, double dSeconds, const KovaResources &before,
            const KovaResources &after)
{
    fprintf(stderr,
            "fire: %d rounds in %.1f s, %u players, %u requests and %d PLAYs answered 200, "
            "%u packets, %u players did not read\n",
            nRounds, dSeconds, pScore->nPlayers.load(), pScore->nRequests.load(),
            pScore->nPlays.load(), pScore->nUnits.load(), pScore->nUnread.load());
    KovaReportResources("fire", before, after);
    pScore->Report("fire");
}

} // namespace

int KovaRunFire(const KovaSoakOptions &options)
{
    const KovaShortSleeps sleeps(kSleepDivisor);
    KovaWatchdog watchdog(kHangSeconds);
    KovaSoakScore score;
    for (int i = 1; i <= kWarmUpRounds; i++)
        RunRound(&score, &watchdog, i, options.nSeed + 1000000 + static_cast<unsigned>(i));
    const KovaResources before = KovaTakeResources();
    KovaResources after = before;

    const Clock::time_point begin = Clock::now();
    const Clock::time_point end = begin + std::chrono::seconds(options.nSeconds);
    int nRounds = 0;
    while (options.nRounds > 0 ? nRounds < options.nRounds : Clock::now() < end) {
        nRounds++;
        RunRound(&score, &watchdog, nRounds, options.nSeed + static_cast<unsigned>(nRounds));
        const std::string difference = KovaCompareResources(before, kHeapSlack, &after);
        if (!difference.empty())
            score.Complain("after round " + std::to_string(nRounds) + ": " + difference);
    }
    const std::chrono::duration<double> time = Clock::now() - begin;
    if (score.nPlays == 0 || score.nUnits == 0)
        score.Complain("no player ever played");
    Report(&score, nRounds, time.count(), before, after);
    return score.Failures() == 0 ? 0 : 1;
}
