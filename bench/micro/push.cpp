// What a host's thread spends on a push: a header and the bytes, copied into the stream's ring.
#include "classic/streamer/es_input.h"
#include "classic/streamer/streamer.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

namespace {

/// A stream's input alone; no packer thread waits for it.
struct Input {
    Input() : block(kVideoRingSize), pStream(std::make_unique<KovaRtspStreamer>())
    {
        KovaRingbufferInit(&pStream->videoRing, block.data(), kVideoRingSize);
    }
    std::vector<uint8_t> block;
    std::unique_ptr<KovaRtspStreamer> pStream;
};

void Push(benchmark::State &state)
{
    Input input;
    const std::vector<uint8_t> unit(static_cast<size_t>(state.range(0)), 0x5A);
    uint32_t nTime = 40;
    for (auto _ : state) {
        if (KovaRtspStreamerPushData(input.pStream.get(), 97, unit.data(),
                                     static_cast<uint32_t>(unit.size()), nTime++) != 0) {
            state.SkipWithError("the ring is full");
            break;
        }
        KovaRingbufferFlush(&input.pStream->videoRing);
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

/// The same, and out again, as the packer thread does.
void PushAndRead(benchmark::State &state)
{
    Input input;
    std::vector<uint8_t> unit(static_cast<size_t>(state.range(0)), 0x5A);
    uint8_t header[kEsHeaderSize];
    const int32_t nSize = static_cast<int32_t>(unit.size());
    for (auto _ : state) {
        KovaRtspStreamerPushData(input.pStream.get(), 97, unit.data(),
                                 static_cast<uint32_t>(unit.size()), 40);
        if (StreamerRingbufferRead(&input.pStream->videoRing, header, kEsHeaderSize) !=
                kEsHeaderSize ||
            StreamerRingbufferRead(&input.pStream->videoRing, unit.data(), nSize) != nSize) {
            state.SkipWithError("what was pushed is not there");
            break;
        }
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

BENCHMARK(Push)->Arg(200)->Arg(20'000)->Arg(200'000);
BENCHMARK(PushAndRead)->Arg(200)->Arg(20'000)->Arg(200'000);

} // namespace
