// Access units of H.264 to RTP packets.
#include "bench/access_units.h"
#include "bench/micro/packing.h"

namespace {

void H264(benchmark::State &state, bool bKey)
{
    KovaMicroPack(state, KovaRtpVideoPackerCreate(2, 97, 1, nullptr, nullptr),
                  KovaBenchPicture(bKey, static_cast<size_t>(state.range(0))));
}

BENCHMARK_CAPTURE(H264, Picture, false)->Arg(1'000)->Arg(20'000);
BENCHMARK_CAPTURE(H264, KeyFrame, true)->Arg(80'000)->Arg(200'000);

} // namespace
