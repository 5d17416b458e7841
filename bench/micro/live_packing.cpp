// Access units to RTP packets in the second engine, beside a copy of the same bytes.
#include "bench/access_units.h"
#include "live/media/track_media.h"
#include "tests/support/media.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

namespace {

void Cut(benchmark::State &state, uint32_t nCodec, const std::string &unit)
{
    KovaLiveTrackConfig config = {};
    config.size = sizeof(config);
    config.codec = nCodec;
    KovaTrackMedia *pMedia = nullptr;
    if (KovaTrackMediaCreate(config, 96, 0, 1400, &pMedia) != KOVA_LIVE_OK) {
        state.SkipWithError("no track");
        return;
    }
    int64_t nPts = 0;
    int64_t nPackets = 0;
    for (auto _ : state) {
        KovaUnit *pUnit = nullptr;
        if (KovaTrackMediaCut(pMedia, KovaUnitBytes(unit), unit.size(), nPts, &pUnit) !=
            KOVA_LIVE_OK) {
            state.SkipWithError("the access unit was refused");
            break;
        }
        benchmark::DoNotOptimize(pUnit->pBytes);
        nPackets += pUnit->nPackets;
        KovaUnitRelease(pUnit);
        nPts += 40000;
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(unit.size()));
    state.SetItemsProcessed(nPackets);
    KovaTrackMediaDestroy(pMedia);
}

void LiveH264(benchmark::State &state, bool bKey)
{
    Cut(state, KOVA_LIVE_H264, KovaBenchPicture(bKey, static_cast<size_t>(state.range(0))));
}

void LiveAac(benchmark::State &state)
{
    Cut(state, KOVA_LIVE_AAC, KovaBenchSound(static_cast<size_t>(state.range(0))));
}

void Copy(benchmark::State &state)
{
    const std::string unit = KovaBenchPicture(false, static_cast<size_t>(state.range(0)));
    std::vector<char> copy(unit.size());
    for (auto _ : state) {
        memcpy(copy.data(), unit.data(), unit.size());
        benchmark::DoNotOptimize(copy.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(unit.size()));
}

BENCHMARK_CAPTURE(LiveH264, Picture, false)->Arg(1'000)->Arg(20'000);
BENCHMARK_CAPTURE(LiveH264, KeyFrame, true)->Arg(80'000)->Arg(200'000);
BENCHMARK(LiveAac)->Arg(400);
BENCHMARK(Copy)->Arg(1'000)->Arg(20'000)->Arg(80'000)->Arg(200'000);

} // namespace
