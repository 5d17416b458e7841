#pragma once

#include "bench/micro/copying.h"
#include "classic/rtp/rtp_packer.h"
#include "tests/support/media.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// Which call the access unit goes through.
enum class KovaMicroPush {
    kCopied, ///< the exported one
    kLent,   ///< the packer thread's
};

/// Packs one access unit again and again, beside copies of it; reports bytes and RTP packets a
/// second. Small ones go several in a step, so that the clock does not count.
class KovaMicroPacking {
public:
    /// Takes the packer.
    KovaMicroPacking(KovaRtpPacker *pPacker, const std::string &unit, KovaMicroPush push)
        : m_packer(pPacker, KovaRtpPackerDestroy), m_unit(unit), m_push(push),
          m_nTogether(std::max<size_t>(1, 20'000 / unit.size()))
    {}

    void Run(benchmark::State *pState)
    {
        const std::string whole = Together();
        std::vector<uint8_t> room(whole.size());
        KovaCopyClock clock(whole.size());
        for (auto _ : *pState) {
            memcpy(room.data(), whole.data(), whole.size());
            clock.Copy(whole.data(), whole.size());
            const KovaCopyClock::Clock::time_point begin = KovaCopyClock::Clock::now();
            for (size_t nAt = 0; nAt < room.size(); nAt += m_unit.size())
                if (!Pack(room.data() + nAt)) {
                    pState->SkipWithError("the access unit was refused");
                    return;
                }
            clock.Step(pState, begin);
        }
        clock.Report(pState);
        pState->SetBytesProcessed(pState->iterations() * static_cast<int64_t>(whole.size()));
        pState->SetItemsProcessed(m_nPackets);
    }

private:
    std::string Together() const
    {
        std::string whole;
        for (size_t n = 0; n < m_nTogether; n++)
            whole += m_unit;
        return whole;
    }

    bool Pack(uint8_t *pUnit)
    {
        const uint32_t nSize = static_cast<uint32_t>(m_unit.size());
        uint8_t *pLent = m_push == KovaMicroPush::kLent ? pUnit : nullptr;
        const uint32_t nResult = KovaRtpPackerTake(m_packer.get(), pUnit, pLent, nSize, m_nTime++);
        KovaRtpPacket *pPacket = nullptr;
        while (KovaRtpPackerGetRtpPacket(m_packer.get(), &pPacket) == kPackerOk) {
            benchmark::DoNotOptimize(pPacket->pData);
            KovaRtpFreePacket(pPacket);
            m_nPackets++;
        }
        return nResult == kPackerOk;
    }

    std::unique_ptr<KovaRtpPacker, void (*)(KovaRtpPacker *)> m_packer;
    std::string m_unit;
    KovaMicroPush m_push;
    size_t m_nTogether;
    uint32_t m_nTime = 40;
    int64_t m_nPackets = 0;
};
