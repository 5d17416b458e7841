#pragma once

#include "classic/rtp/rtp_packer.h"
#include "tests/support/media.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>

/// Packs one access unit again and again; reports bytes and RTP packets a second. Takes the packer.
inline void KovaMicroPack(benchmark::State &state, KovaRtpPacker *pPacker, const std::string &unit)
{
    uint32_t nTime = 40;
    int64_t nPackets = 0;
    for (auto _ : state) {
        if (KovaRtpPackerPushData(pPacker, KovaUnitBytes(unit), static_cast<uint32_t>(unit.size()),
                                  nTime++) != kPackerOk) {
            state.SkipWithError("the access unit was refused");
            break;
        }
        KovaRtpPacket *pPacket = nullptr;
        while (KovaRtpPackerGetRtpPacket(pPacker, &pPacket) == kPackerOk) {
            benchmark::DoNotOptimize(pPacket->pData);
            KovaRtpFreePacket(pPacket);
            nPackets++;
        }
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(unit.size()));
    state.SetItemsProcessed(nPackets);
    KovaRtpPackerDestroy(pPacker);
}
