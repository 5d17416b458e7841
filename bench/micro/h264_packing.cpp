// Access units of H.264 to RTP packets.
#include "bench/access_units.h"
#include "bench/micro/packing.h"

namespace {

void H264(benchmark::State &state, bool bKey, KovaMicroPush push)
{
    KovaMicroPacking(KovaRtpVideoPackerCreate(2, 97, 1, nullptr, nullptr),
                     KovaBenchPicture(bKey, static_cast<size_t>(state.range(0))), push)
        .Run(&state);
}

void Picture(benchmark::internal::Benchmark *pBenchmark)
{
    pBenchmark->Arg(1'000)->Arg(20'000)->UseManualTime();
}

void KeyFrame(benchmark::internal::Benchmark *pBenchmark)
{
    pBenchmark->Arg(100'000)->Arg(200'000)->UseManualTime();
}

BENCHMARK_CAPTURE(H264, Picture, false, KovaMicroPush::kCopied)->Apply(Picture);
BENCHMARK_CAPTURE(H264, LentPicture, false, KovaMicroPush::kLent)->Apply(Picture);
BENCHMARK_CAPTURE(H264, KeyFrame, true, KovaMicroPush::kCopied)->Apply(KeyFrame);
BENCHMARK_CAPTURE(H264, LentKeyFrame, true, KovaMicroPush::kLent)->Apply(KeyFrame);

} // namespace
