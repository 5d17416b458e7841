// AAC frames to RTP packets.
#include "bench/access_units.h"
#include "bench/micro/packing.h"

namespace {

void Aac(benchmark::State &state)
{
    KovaMicroPack(state, KovaRtpAudioPackerCreate(1, 96, 1, nullptr, nullptr),
                  KovaBenchSound(static_cast<size_t>(state.range(0))));
}

BENCHMARK(Aac)->Arg(170)->Arg(700);

} // namespace
