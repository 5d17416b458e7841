// AAC frames to RTP packets.
#include "bench/access_units.h"
#include "bench/micro/packing.h"
#include "classic/server/server.h"
#include "classic/streamer/packer_thread.h"
#include "classic/streamer/streamer.h"
#include "tests/support/ready_stream.h"

namespace {

void Aac(benchmark::State &state, KovaMicroPush push)
{
    KovaMicroPacking(KovaRtpAudioPackerCreate(1, 96, 1, nullptr, nullptr),
                     KovaBenchSound(static_cast<size_t>(state.range(0))), push)
        .Run(&state);
}

/// The same with the session description behind it, which is told about each frame.
void AacDescribed(benchmark::State &state)
{
    const char szAddress[KOVA_ADDRESS_SIZE] = "127.0.0.1";
    KovaRtspServer *pServer = KovaRtspServerCreate(szAddress, 554, 16);
    KovaRtspStreamer *pStream = KovaPublishAudioVideo(pServer, "live");
    KovaMicroPacking(KovaRtpAudioPackerCreate(1, 96, 1, pAudioStreamInfoCallback, pStream),
                     KovaBenchSound(static_cast<size_t>(state.range(0))), KovaMicroPush::kLent)
        .Run(&state);
    KovaRtspServerDestroy(pServer);
}

BENCHMARK(AacDescribed)->Arg(170)->UseManualTime();
BENCHMARK_CAPTURE(Aac, Copied, KovaMicroPush::kCopied)->Arg(170)->Arg(700)->UseManualTime();
BENCHMARK_CAPTURE(Aac, Lent, KovaMicroPush::kLent)->Arg(170)->Arg(700)->UseManualTime();

} // namespace
