// What a host's thread spends on a push: a header and the bytes, copied into the stream's ring.
#include "bench/access_units.h"
#include "bench/micro/copying.h"
#include "classic/server/server.h"
#include "classic/streamer/es_input.h"
#include "classic/streamer/streamer.h"
#include "tests/support/ready_stream.h"

#include <benchmark/benchmark.h>

#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

namespace {

using Clock = KovaCopyClock::Clock;

/// A stream's input alone; no packer thread waits for it.
struct Input {
    Input() : block(kVideoRingSize), pStream(std::make_unique<KovaRtspStreamer>())
    {
        KovaRingbufferInit(&pStream->videoRing, block.data(), kVideoRingSize);
    }
    std::vector<uint8_t> block;
    std::unique_ptr<KovaRtspStreamer> pStream;
};

const uint8_t *Bytes(const std::string &unit)
{
    return reinterpret_cast<const uint8_t *>(unit.data());
}

void PushOnce(benchmark::State *pState, KovaCopyClock *pClock, KovaRtspStreamer *pStream,
              const std::string &unit, uint32_t nTime)
{
    pClock->Copy(unit.data(), unit.size());
    const Clock::time_point begin = Clock::now();
    KovaRtspServerPushData(pStream, 97, Bytes(unit), static_cast<uint32_t>(unit.size()), nTime);
    pClock->Step(pState, begin);
}

void Push(benchmark::State &state)
{
    Input input;
    KovaCopyClock clock(kVideoRingSize);
    const std::string unit(static_cast<size_t>(state.range(0)), 'Z');
    uint32_t nTime = 40;
    for (auto _ : state) {
        PushOnce(&state, &clock, input.pStream.get(), unit, nTime++);
        if (KovaRingbufferRmpty(&input.pStream->videoRing) != 0) {
            state.SkipWithError("the ring is full");
            break;
        }
        KovaRingbufferFlush(&input.pStream->videoRing);
    }
    clock.Report(&state);
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

/// The same into a stream whose packer thread waits for it, and has to be woken.
void PushToThread(benchmark::State &state)
{
    const char szAddress[KOVA_ADDRESS_SIZE] = "127.0.0.1";
    KovaRtspServer *pServer = KovaRtspServerCreate(szAddress, 554, 16);
    KovaRtspStreamer *pStream = KovaPublishAudioVideo(pServer, "live");
    KovaCopyClock clock(kVideoRingSize);
    const std::string unit = KovaBenchPicture(false, static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        while (KovaRingbufferRmpty(&pStream->videoRing) == 0 ||
               pStream->videoWork.nWord.load() != 2) // waits
            usleep(10);
        PushOnce(&state, &clock, pStream, unit, 40);
    }
    clock.Report(&state);
    state.SetBytesProcessed(state.iterations() * state.range(0));
    KovaRtspServerDestroy(pServer);
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

BENCHMARK(Push)->Arg(200)->Arg(20'000)->Arg(100'000)->UseManualTime();
BENCHMARK(PushToThread)->Arg(200)->Arg(20'000)->Arg(100'000)->UseManualTime();
BENCHMARK(PushAndRead)->Arg(200)->Arg(20'000)->Arg(100'000);

} // namespace
