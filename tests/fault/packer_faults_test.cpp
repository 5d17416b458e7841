#include "tests/fault/fault_bench.h"

#include "classic/rtp/rtp_packer.h"
#include "classic/rtp/rtp_packet.h"

#include <algorithm>
#include <cerrno>

namespace {

using Units = std::vector<std::string>;

constexpr int kMostPackets = 100;

/// What came of two pushes into one packer.
struct Packing {
    bool bMade = false;
    std::vector<uint32_t> results;    ///< of the pushes
    std::vector<std::string> packets; ///< whole ones
    int nNoMemory = 0;                ///< packets that could not be made at the first try
};

std::string Joined(const Units &units)
{
    std::string all;
    for (const std::string &unit : units)
        all += unit;
    return all;
}

void Drain(KovaRtpPacker *pPacker, Packing *pPacking)
{
    for (int nTry = 0; nTry < kMostPackets; nTry++) {
        KovaRtpPacket *pPacket = nullptr;
        const uint32_t nResult = KovaRtpPackerGetRtpPacket(pPacker, &pPacket);
        if (nResult == kPackerNothing)
            return;
        if (nResult == kPackerOk) {
            pPacking->packets.emplace_back(reinterpret_cast<char *>(pPacket->pData),
                                           pPacket->nSize);
            KovaRtpFreePacket(pPacket);
        } else {
            EXPECT_EQ(nResult, kPackerNoMemory);
            pPacking->nNoMemory++;
        }
    }
    FAIL() << "the packer does not run dry";
}

/// Pushes the units twice and takes all packets. Whoever is told that memory is
/// short may ask again.
Packing Pack(uint32_t nCodec, const Units &first, const Units &second)
{
    const KovaInsideLibrary inside;
    Packing packing;
    KovaRtpPacker *pPacker = nCodec == 1
                                 ? KovaRtpAudioPackerCreate(nCodec, 96, 7, nullptr, nullptr)
                                 : KovaRtpVideoPackerCreate(nCodec, 97, 7, nullptr, nullptr);
    packing.bMade = pPacker != nullptr;
    if (pPacker == nullptr)
        return packing;
    uint32_t nPts = 1000;
    for (const Units *pUnits : {&first, &second}) {
        const std::string all = Joined(*pUnits);
        packing.results.push_back(
            KovaRtpPackerPushData(pPacker, reinterpret_cast<const uint8_t *>(all.data()),
                                  static_cast<uint32_t>(all.size()), nPts));
        Drain(pPacker, &packing);
        nPts += 40;
    }
    KovaRtpPackerDestroy(pPacker);
    return packing;
}

std::string Nal(char nHeader, size_t nSize)
{
    return std::string("\0\0\0\1", 4) + nHeader + std::string(nSize, '\x33');
}

/// The access unit without its n-th part.
Units Without(Units units, size_t nPart)
{
    units.erase(units.begin() + static_cast<std::ptrdiff_t>(nPart));
    return units;
}

/// What may go out when one part of either unit was lost for want of memory, or all of
/// the first, of which there is one copy; the second goes into the same block.
std::vector<std::vector<std::string>> Reduced(uint32_t nCodec, const Units &first,
                                              const Units &second)
{
    std::vector<std::vector<std::string>> all = {Pack(nCodec, {}, second).packets};
    for (size_t nPart = 0; nPart < first.size(); nPart++)
        all.push_back(Pack(nCodec, Without(first, nPart), second).packets);
    for (size_t nPart = 0; nPart < second.size(); nPart++)
        all.push_back(Pack(nCodec, first, Without(second, nPart)).packets);
    return all;
}

class PackerFaults : public KovaFaultTest {
protected:
    static void FailEach(uint32_t nCodec, const Units &first, const Units &second)
    {
        const Packing whole = Pack(nCodec, first, second);
        const auto reduced = Reduced(nCodec, first, second);
        ASSERT_GT(whole.packets.size(), 5U);
        KovaFailEach(kFaultHeap, {ENOMEM}, 1000, [&](KovaFaults *pFaults) {
            const KovaHoldings before = KovaHoldingsNow();
            const Packing packing = Pack(nCodec, first, second);
            pFaults->Stop();
            KovaExpectHeld(before);
            if (!packing.bMade) {
                EXPECT_EQ(pFaults->Calls(), 1);
                return;
            }
            EXPECT_EQ(packing.results, whole.results);
            if (pFaults->Hits() == packing.nNoMemory) {
                EXPECT_EQ(packing.packets, whole.packets);
                return;
            }
            EXPECT_EQ(packing.nNoMemory, 0);
            // Less than was asked for may have been enough.
            EXPECT_TRUE(packing.packets == whole.packets ||
                        std::count(reduced.begin(), reduced.end(), packing.packets) == 1);
        });
    }
};

TEST_F(PackerFaults, VideoLosesAUnitOrNothing)
{
    FailEach(2, {Nal(0x65, 100), Nal(0x65, 210), Nal(0x41, 3000), Nal(0x41, 50)},
             {Nal(0x41, 1350), Nal(0x21, 60), Nal(0x01, 1500)});
}

TEST_F(PackerFaults, AudioLosesAFrameOrNothing)
{
    FailEach(1, {KovaTestAacFrame(40), KovaTestAacFrame(2300), KovaTestAacFrame(50)},
             {KovaTestAacFrame(60), KovaTestAacFrame(70)});
}

} // namespace
