#include "classic/rtp/rtp_packer.h"
#include "tests/support/packer_model.h"
#include "tests/support/packer_probe.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <optional>
#include <random>
#include <vector>

/// Random access units, given to the library's packers and to the model, must
/// come out the same: codes, packets and reports, byte for byte.
namespace {

/// Seeded, so that each case can be repeated.
class KovaRandom {
public:
    explicit KovaRandom(uint32_t nSeed) : m_engine(nSeed) {}

    uint32_t Below(uint32_t nBound)
    {
        return static_cast<uint32_t>(m_engine() % nBound);
    }
    bool OneIn(uint32_t n)
    {
        return Below(n) == 0;
    }
    template <typename Value> Value Of(const std::vector<Value> &values)
    {
        return values[Below(static_cast<uint32_t>(values.size()))];
    }
    KovaBytes Bytes(size_t nSize)
    {
        KovaBytes bytes(nSize);
        for (uint8_t &nByte : bytes)
            nByte = static_cast<uint8_t>(m_engine());
        return bytes;
    }

private:
    std::mt19937 m_engine;
};

/// One NAL unit: every type, sizes about the limits, now and then full of what
/// looks like start codes.
KovaBytes RandomNal(KovaRandom *pRandom)
{
    static const std::vector<uint32_t> kSizes = {
        0,    1,    2,    3,    4,    5,    600,  698,  699,  700,  1396, 1397, 1398, 1399, 1400,
        1401, 2795, 2796, 2797, 2798, 2799, 4193, 4194, 4195, 4196, 5591, 5592, 5593, 5594};
    const uint32_t nSize = pRandom->OneIn(3)   ? pRandom->Below(100)
                           : pRandom->OneIn(4) ? pRandom->Below(9000)
                                               : pRandom->Of(kSizes);
    KovaBytes nal = pRandom->Bytes(nSize);
    if (pRandom->OneIn(6))
        for (uint8_t &nByte : nal)
            nByte = pRandom->OneIn(4) ? 1 : 0;
    if (!nal.empty()) {
        const uint8_t nType = pRandom->OneIn(2) ? pRandom->Of<uint8_t>({1, 5, 6, 7, 8, 9})
                                                : static_cast<uint8_t>(pRandom->Below(32));
        nal[0] = static_cast<uint8_t>(pRandom->Below(8) << 5 | nType);
        if (pRandom->OneIn(20))
            nal[0] = 7;
    }
    return nal;
}

KovaBytes RandomAnnexB(KovaRandom *pRandom)
{
    if (pRandom->OneIn(40))
        return pRandom->Bytes(pRandom->Below(8));
    KovaBytes unit;
    if (pRandom->OneIn(8))
        unit = pRandom->Bytes(pRandom->Below(20));
    const uint32_t nNals = pRandom->OneIn(10) ? pRandom->Below(40) : pRandom->Below(7);
    for (uint32_t n = 0; n < nNals; n++) {
        const KovaBytes code = pRandom->OneIn(2) ? KovaBytes{0, 0, 1} : KovaBytes{0, 0, 0, 1};
        unit = KovaJoin({unit, code, RandomNal(pRandom)});
        if (pRandom->OneIn(8))
            unit.resize(unit.size() + pRandom->Below(6));
    }
    if (pRandom->OneIn(6)) {
        const std::vector<KovaBytes> ends = {{0, 0, 1},    {0, 0, 0, 1},    {0, 0},      {0, 0, 0},
                                             {0, 0, 1, 5}, {0, 0, 0, 1, 7}, {0, 0, 1, 9}};
        unit = KovaJoin({unit, pRandom->Of(ends)});
    }
    return unit;
}

/// One ADTS frame; its length field now and then lies or names a length that
/// reads as negative.
KovaBytes RandomAdts(KovaRandom *pRandom)
{
    static const std::vector<uint32_t> kLengths = {8,    9,    100,  1000, 1022, 1023, 1024,
                                                   1391, 1392, 2048, 2100, 2779, 2780, 3071,
                                                   4096, 4168, 4169, 5119, 6144, 7167, 8191};
    const uint32_t nLength = pRandom->OneIn(2) ? 8 + pRandom->Below(500) : pRandom->Of(kLengths);
    KovaBytes frame = pRandom->Bytes(nLength);
    const uint32_t nField = pRandom->OneIn(20) ? pRandom->Below(8192) : nLength;
    const uint32_t nIndex = pRandom->OneIn(3) ? pRandom->Below(16) : 4;
    frame[0] = 0xFF;
    frame[1] = static_cast<uint8_t>(0xF0 | pRandom->Below(16));
    frame[2] = static_cast<uint8_t>((pRandom->Below(256) & 0xC3) | nIndex << 2);
    frame[3] = static_cast<uint8_t>((frame[3] & 0xFC) | nField >> 11);
    frame[4] = static_cast<uint8_t>(nField >> 3);
    frame[5] = static_cast<uint8_t>((frame[5] & 0x1F) | nField << 5);
    return frame;
}

KovaBytes RandomAac(KovaRandom *pRandom)
{
    if (pRandom->OneIn(40))
        return pRandom->Bytes(pRandom->Below(30));
    KovaBytes unit;
    const uint32_t nFrames = 1 + pRandom->Below(6);
    for (uint32_t n = 0; n < nFrames; n++) {
        if (pRandom->OneIn(10))
            unit = KovaJoin({unit, pRandom->Bytes(1 + pRandom->Below(20))});
        unit = KovaJoin({unit, RandomAdts(pRandom)});
    }
    if (pRandom->OneIn(10))
        unit = KovaJoin({unit, pRandom->Bytes(1 + pRandom->Below(9))});
    if (pRandom->OneIn(8))
        unit.resize(1 + pRandom->Below(static_cast<uint32_t>(unit.size())));
    return unit;
}

/// Mostly forth by a frame, now and then back, far ahead or about the wrap.
uint32_t NextPts(KovaRandom *pRandom, uint32_t nPts)
{
    if (pRandom->OneIn(20))
        return nPts - pRandom->Below(5000);
    if (pRandom->OneIn(40))
        return pRandom->Below(0xFFFFFFFF);
    if (pRandom->OneIn(40))
        return 0xFFFFFFFF - pRandom->Below(50);
    return nPts + pRandom->Below(100);
}

/// What both sides have come to, to know that the units were worth comparing.
struct KovaTally {
    int nPackets = 0;
    int nRefused = 0;
    int nReports = 0;
    int nFragments = 0;
    int nKeyPackets = 0;
};

/// Compares up to nMost packets; false when something differed.
bool ComparePackets(KovaPackerProbe *pProbe, KovaPackerModel *pModel, uint32_t nMost,
                    KovaTally *pTally)
{
    for (uint32_t n = 0; n < nMost; n++) {
        const std::optional<KovaSeenPacket> seen = pProbe->Next();
        const std::optional<KovaSeenPacket> expected = pModel->Next();
        EXPECT_EQ(seen.has_value(), expected.has_value()) << "packet " << n;
        if (!seen || !expected)
            return seen.has_value() == expected.has_value();
        EXPECT_EQ(seen->bytes, expected->bytes) << "packet " << n;
        EXPECT_EQ(seen->nFrameType, expected->nFrameType) << "packet " << n;
        EXPECT_EQ(seen->nPts, expected->nPts) << "packet " << n;
        if (!(*seen == *expected))
            return false;
        pTally->nPackets++;
        pTally->nFragments += seen->bytes.size() >= 1400 ? 1 : 0;
        pTally->nKeyPackets += seen->nFrameType == 2 ? 1 : 0;
    }
    return true;
}

/// One stream of nUnits units through both.
KovaTally CompareStream(uint32_t nCodec, uint32_t nSeed, int nUnits)
{
    KovaRandom random(nSeed);
    const uint32_t nPayloadType = 96 + random.Below(2);
    const uint32_t nSsrc = random.Below(0xFFFFFFFF);
    KovaPackerProbe probe(nCodec, nPayloadType, nSsrc);
    std::unique_ptr<KovaPackerModel> pModel;
    if (nCodec == 1)
        pModel = std::make_unique<KovaAacModel>(static_cast<uint8_t>(nPayloadType), nSsrc);
    else
        pModel = std::make_unique<KovaH264Model>(static_cast<uint8_t>(nPayloadType), nSsrc);
    if (random.OneIn(2)) {
        probe.Packer()->nSequence = 65500;
        pModel->nSequence = 65500;
    }

    KovaTally tally;
    uint32_t nPts = random.OneIn(4) ? 0xFFFFFF00 : random.Below(100000);
    for (int n = 0; n < nUnits; n++) {
        SCOPED_TRACE(testing::Message() << "seed " << nSeed << ", unit " << n);
        const KovaBytes unit = nCodec == 1 ? RandomAac(&random) : RandomAnnexB(&random);
        nPts = NextPts(&random, nPts);
        const uint32_t nResult = probe.Push(unit, nPts);
        EXPECT_EQ(nResult, pModel->Push(unit, nPts));
        EXPECT_TRUE(probe.reports == pModel->reports);
        EXPECT_EQ(probe.Packer()->nTimestamp, pModel->nTimestamp);
        EXPECT_EQ(probe.Packer()->nPts, pModel->nPts);
        tally.nRefused += nResult != 0 ? 1 : 0;
        tally.nReports += static_cast<int>(pModel->reports.size());
        probe.reports.clear();
        pModel->reports.clear();
        // Mostly until nothing is left; now and then the next unit comes early.
        const uint32_t nMost = random.OneIn(10) ? random.Below(4) : 100000;
        if (!ComparePackets(&probe, pModel.get(), nMost, &tally) || testing::Test::HasFailure())
            return tally;
        EXPECT_EQ(probe.Packer()->nSequence, pModel->nSequence);
    }
    return tally;
}

KovaTally CompareStreams(uint32_t nCodec, uint32_t nFirstSeed)
{
    KovaTally total;
    for (uint32_t n = 0; n < 60 && !testing::Test::HasFailure(); n++) {
        const KovaTally tally = CompareStream(nCodec, nFirstSeed + n, 100);
        total.nPackets += tally.nPackets;
        total.nRefused += tally.nRefused;
        total.nReports += tally.nReports;
        total.nFragments += tally.nFragments;
        total.nKeyPackets += tally.nKeyPackets;
    }
    return total;
}

TEST(PackerModel, H264PackerAgreesOnRandomAccessUnits)
{
    const KovaTally tally = CompareStreams(2, 1000);
    EXPECT_GT(tally.nPackets, 10000);
    EXPECT_GT(tally.nRefused, 100);
    EXPECT_GT(tally.nReports, 1000);
    EXPECT_GT(tally.nFragments, 1000);
    EXPECT_GT(tally.nKeyPackets, 1000);
}

TEST(PackerModel, AacPackerAgreesOnRandomPushes)
{
    const KovaTally tally = CompareStreams(1, 5000);
    EXPECT_GT(tally.nPackets, 10000);
    EXPECT_GT(tally.nRefused, 100);
    EXPECT_GT(tally.nReports, 10000);
    EXPECT_GT(tally.nFragments, 1000);
    EXPECT_EQ(tally.nKeyPackets, 0);
}

} // namespace
