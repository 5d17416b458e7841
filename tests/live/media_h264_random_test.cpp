#include "kova_live.h"
#include "tests/live/media_track.h"

#include <gtest/gtest.h>

#include <random>

namespace {

using Nals = std::vector<std::string>;
using Random = std::mt19937;

size_t Below(Random *pRandom, size_t nBound)
{
    return (*pRandom)() % nBound;
}

/// Sizes around everything that is decided by size, and others.
size_t Size(Random *pRandom, uint32_t nMaxPacket)
{
    switch (Below(pRandom, 4)) {
    case 0:
        return 1 + Below(pRandom, 12);
    case 1:
        return nMaxPacket - 20 + Below(pRandom, 20);
    case 2:
        return 1 + Below(pRandom, 5 * nMaxPacket);
    default:
        return 1 + Below(pRandom, nMaxPacket / 3);
    }
}

/// Any bytes that may stand in a NAL unit in Annex B form; not the type of a parameter set.
std::string AnyNal(Random *pRandom, size_t nSize)
{
    std::string nal(nSize, '\0');
    const size_t nKinds = 2 + Below(pRandom, 254);
    for (char &nByte : nal)
        nByte = static_cast<char>(Below(pRandom, nKinds));
    int nHeader = 0;
    do
        nHeader = static_cast<int>(Below(pRandom, 256));
    while ((nHeader & 31) == 7 || (nHeader & 31) == 8);
    nal[0] = static_cast<char>(nHeader);
    unsigned nZeros = 0;
    for (char &nByte : nal) {
        if (nZeros >= 2 && static_cast<uint8_t>(nByte) <= 2)
            nByte = 3;
        nZeros = nByte == 0 ? nZeros + 1 : 0;
    }
    if (nal.back() == 0 && nSize > 1)
        nal.back() = 4;
    return nal;
}

bool IsSent(const std::string &nal)
{
    const int nType = nal[0] & 31;
    return nType != 0 && nType != 9 && nType != 12 && nType < 24;
}

TEST(MediaH264Random, UnitsComeOutAsTheyWentInWhateverTheForm)
{
    Random random(1);
    for (const uint32_t nMaxPacket : {64U, 200U, 1400U, 9000U, 65000U}) {
        KovaMediaTrack annexB(KovaMediaConfig(KOVA_LIVE_H264), nMaxPacket);
        KovaMediaTrack lengths(KovaMediaConfig(KOVA_LIVE_H264, KOVA_LIVE_FORM_LENGTH), nMaxPacket);
        for (int nUnit = 0; nUnit < (nMaxPacket > 2000 ? 60 : 1200); nUnit++) {
            Nals all;
            Nals sent;
            for (size_t n = 1 + Below(&random, 12); n > 0; n--) {
                all.push_back(AnyNal(&random, Size(&random, nMaxPacket)));
                if (IsSent(all.back()))
                    sent.push_back(all.back());
            }
            const unsigned nCode = 3 + static_cast<unsigned>(Below(&random, 2));
            const KovaMediaUnit first = annexB.Push(KovaMediaAnnexB(all, nCode));
            const KovaMediaUnit second = lengths.Push(KovaMediaLengths(all));
            ASSERT_EQ(second.nResult, KOVA_LIVE_OK);
            ASSERT_EQ(KovaMediaNals(second, nMaxPacket), sent);
            // A NAL unit of the byte 0 alone does not exist in Annex B form.
            if (std::find(all.begin(), all.end(), std::string(1, '\0')) != all.end())
                continue;
            ASSERT_EQ(first.nResult, KOVA_LIVE_OK);
            ASSERT_EQ(KovaMediaNals(first, nMaxPacket), sent);
        }
    }
}

TEST(MediaH264Random, NeighboursThatWouldFitIntoOnePacketAreInOne)
{
    Random random(2);
    constexpr uint32_t kMaxPacket = 200;
    KovaMediaTrack track(KovaMediaConfig(KOVA_LIVE_H264), kMaxPacket);
    for (int nUnit = 0; nUnit < 500; nUnit++) {
        Nals nals;
        for (size_t n = 1 + Below(&random, 20); n > 0; n--)
            nals.push_back(KovaMediaNal(0x41, 1 + Below(&random, 100), static_cast<unsigned>(n)));
        const KovaMediaUnit unit = track.Push(KovaMediaAnnexB(nals));
        ASSERT_EQ(KovaMediaNals(unit, kMaxPacket), nals);
        for (size_t n = 0; n + 1 < unit.packets.size(); n++) {
            const std::string &here = unit.packets[n].payload;
            const std::string &next = unit.packets[n + 1].payload;
            const size_t nFirstOfNext =
                (next[0] & 31) == 24 ? static_cast<size_t>(static_cast<uint8_t>(next[1]) << 8 |
                                                           static_cast<uint8_t>(next[2]))
                                     : next.size();
            const size_t nHere = (here[0] & 31) == 24 ? here.size() : 1 + 2 + here.size();
            EXPECT_GT(nHere + 2 + nFirstOfNext, kMaxPacket - 12);
        }
    }
}

TEST(MediaH264Random, RandomBytesAreTakenOrRefusedAndNothingElse)
{
    Random random(3);
    for (const bool bLengths : {false, true}) {
        KovaLiveTrackConfig config = KovaMediaConfig(
            KOVA_LIVE_H264, bLengths ? KOVA_LIVE_FORM_LENGTH : KOVA_LIVE_FORM_ANNEXB);
        config.length_size = bLengths ? 1 : 0;
        KovaMediaTrack track(config, 200);
        for (int n = 0; n < 6000; n++) {
            std::string data(Below(&random, 300), '\0');
            for (char &nByte : data)
                nByte = static_cast<char>(Below(&random, 4) != 0 ? Below(&random, 3)
                                                                 : Below(&random, 256));
            if (!bLengths && n % 2 == 0)
                data.insert(0, KovaMediaBytes({0, 0, 1}));
            const KovaMediaUnit unit = track.Push(data);
            ASSERT_TRUE(unit.nResult == KOVA_LIVE_OK || unit.nResult == KOVA_LIVE_ERROR_DATA);
            if (unit.bUnit) {
                KovaMediaNals(unit, 200);
            }
        }
    }
}

} // namespace
