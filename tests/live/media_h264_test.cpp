#include "kova_live.h"
#include "tests/live/media_track.h"

#include <gtest/gtest.h>

namespace {

using Nals = std::vector<std::string>;

constexpr int kIdr = 0x65;
constexpr int kSlice = 0x41;
constexpr int kSparable = 0x01; ///< a slice that no other picture needs
constexpr uint32_t kMax = 1400;
constexpr uint32_t kMaxPayload = kMax - 12;

struct MediaH264 : testing::Test {
    KovaMediaTrack track{KovaMediaConfig(KOVA_LIVE_H264)};

    Nals Pushed(const Nals &nals)
    {
        const KovaMediaUnit unit = track.Push(KovaMediaAnnexB(nals));
        EXPECT_EQ(unit.nResult, KOVA_LIVE_OK);
        return KovaMediaNals(unit);
    }
};

TEST_F(MediaH264, SingleNalUnitUpToThePacketLimitIsFragmentedAbove)
{
    for (size_t nSize = kMaxPayload - 4; nSize <= kMaxPayload + 4; nSize++) {
        const std::string nal = KovaMediaNal(kSlice, nSize);
        const KovaMediaUnit unit = track.Push(KovaMediaAnnexB({nal}));
        EXPECT_EQ(KovaMediaNals(unit), Nals{nal}) << nSize;
        EXPECT_EQ(unit.packets.size(), nSize <= kMaxPayload ? 1U : 2U) << nSize;
    }
}

TEST_F(MediaH264, FragmentsAreAsLargeAsPacketsMayBe)
{
    constexpr size_t kPart = kMaxPayload - 2;
    for (size_t nParts = 2; nParts <= 4; nParts++) {
        for (size_t nMore = 0; nMore < 3; nMore++) {
            const std::string nal = KovaMediaNal(kIdr, 1 + nParts * kPart + nMore);
            const KovaMediaUnit unit = track.Push(KovaMediaAnnexB({nal}));
            EXPECT_EQ(KovaMediaNals(unit), Nals{nal});
            ASSERT_EQ(unit.packets.size(), nParts + (nMore > 0 ? 1 : 0));
            for (size_t n = 0; n < nParts; n++)
                EXPECT_EQ(unit.packets[n].payload.size(), kMaxPayload);
            if (nMore > 0) {
                EXPECT_EQ(unit.packets.back().payload.size(), 2 + nMore);
            }
        }
    }
}

TEST_F(MediaH264, FragmentBytes)
{
    const std::string nal = KovaMediaNal(kIdr, 1 + 2 * (kMaxPayload - 2));
    const KovaMediaUnit unit = track.Push(KovaMediaAnnexB({nal}));
    ASSERT_EQ(unit.packets.size(), 2U);
    EXPECT_EQ(unit.packets[0].payload,
              KovaMediaBytes({0x60 | 28, 0x80 | 5}) + nal.substr(1, kMaxPayload - 2));
    EXPECT_EQ(unit.packets[1].payload,
              KovaMediaBytes({0x60 | 28, 0x40 | 5}) + nal.substr(kMaxPayload - 1));
}

TEST_F(MediaH264, SmallNeighboursShareAPacketInTheirOrder)
{
    const Nals nals = {KovaMediaNal(0x06, 5), KovaMediaNal(0x41, 7), KovaMediaNal(0x61, 3)};
    const KovaMediaUnit unit = track.Push(KovaMediaAnnexB(nals));
    ASSERT_EQ(unit.packets.size(), 1U);
    EXPECT_EQ(unit.packets[0].payload, KovaMediaBytes({0x60 | 24}) + KovaMediaLengths(nals, 2));
    EXPECT_EQ(KovaMediaNals(unit), nals);
}

TEST_F(MediaH264, AggregateTakesTheForbiddenBitOfAny)
{
    const Nals nals = {KovaMediaNal(0x81, 5), KovaMediaNal(0x21, 7)};
    const KovaMediaUnit unit = track.Push(KovaMediaAnnexB(nals));
    ASSERT_EQ(unit.packets.size(), 1U);
    EXPECT_EQ(unit.packets[0].payload.substr(0, 1), KovaMediaBytes({0xA0 | 24}));
}

TEST_F(MediaH264, AggregateGrowsUpToThePacketLimit)
{
    // 1 + 2 + 100 + 2 + n
    for (size_t n = kMaxPayload - 108; n <= kMaxPayload - 100; n++) {
        const Nals nals = {KovaMediaNal(kSlice, 100), KovaMediaNal(kSlice, n, 3)};
        const KovaMediaUnit unit = track.Push(KovaMediaAnnexB(nals));
        EXPECT_EQ(KovaMediaNals(unit), nals);
        EXPECT_EQ(unit.packets.size(), n <= kMaxPayload - 105 ? 1U : 2U) << n;
    }
}

TEST_F(MediaH264, FragmentedNalUnitsShareNothing)
{
    const Nals nals = {KovaMediaNal(kSlice, 20), KovaMediaNal(kSlice, 2000, 5),
                       KovaMediaNal(kSlice, 30), KovaMediaNal(kSlice, 40)};
    const KovaMediaUnit unit = track.Push(KovaMediaAnnexB(nals));
    EXPECT_EQ(KovaMediaNals(unit), nals);
    EXPECT_EQ(unit.packets.size(), 4U);
}

TEST_F(MediaH264, LeavesOutWhatHasNoPlaceInRtp)
{
    for (int nType = 0; nType < 32; nType++) {
        const bool bLeftOut = nType == 0 || nType == 9 || nType == 12 || nType >= 24;
        if (nType == 7 || nType == 8)
            continue;
        const std::string nal = KovaMediaNal(0x20 | nType, 6);
        const std::string slice = KovaMediaNal(kSlice, 20);
        EXPECT_EQ(Pushed({nal, slice}), bLeftOut ? Nals{slice} : (Nals{nal, slice})) << nType;
    }
}

TEST_F(MediaH264, NothingIsSentOfAUnitThatOnlyHasWhatIsLeftOut)
{
    const KovaMediaUnit unit =
        track.Push(KovaMediaAnnexB({KovaMediaNal(9, 2), KovaMediaNal(12, 9)}));
    EXPECT_EQ(unit.nResult, KOVA_LIVE_OK);
    EXPECT_FALSE(unit.bUnit);
}

TEST_F(MediaH264, StartCodesOfAnyLengthAndZerosBehindNalUnitsAreNoPartOfThem)
{
    const std::string first = KovaMediaNal(kSlice, 30);
    const std::string second = KovaMediaNal(kSlice, 40, 9);
    for (unsigned nCode = 3; nCode < 9; nCode++) {
        for (unsigned nZeros = 0; nZeros < 5; nZeros++) {
            const std::string data =
                KovaMediaAnnexB({first, second}, nCode) + std::string(nZeros, '\0');
            EXPECT_EQ(KovaMediaNals(track.Push(data)), (Nals{first, second}));
        }
    }
}

TEST_F(MediaH264, BytesLikeStartCodesInsideStay)
{
    for (const std::string &inside :
         {KovaMediaBytes({0, 0, 3, 1}), KovaMediaBytes({0, 1}), KovaMediaBytes({1, 1, 0, 1}),
          KovaMediaBytes({0, 0, 2}), KovaMediaBytes({0, 0, 3, 0, 0, 3, 1}),
          std::string(50, '\1')}) {
        const std::string nal = KovaMediaBytes({kSlice}) + inside + "end";
        EXPECT_EQ(Pushed({nal, nal}), (Nals{nal, nal}));
    }
}

TEST_F(MediaH264, EmptyNalUnitsAreNone)
{
    const std::string slice = KovaMediaNal(kSlice, 30);
    const std::string code = KovaMediaBytes({0, 0, 1});
    EXPECT_EQ(KovaMediaNals(track.Push(code + code + slice + code)), Nals{slice});
    EXPECT_EQ(track.Push(code + code).nResult, KOVA_LIVE_ERROR_DATA);
}

TEST_F(MediaH264, RefusesWhatIsNotInAnnexBForm)
{
    const std::string slice = KovaMediaNal(kSlice, 300);
    EXPECT_EQ(track.Push("").nResult, KOVA_LIVE_ERROR_DATA);
    EXPECT_EQ(track.Push(slice).nResult, KOVA_LIVE_ERROR_DATA);
    EXPECT_EQ(track.Push("x" + KovaMediaAnnexB({slice})).nResult, KOVA_LIVE_ERROR_DATA);
    EXPECT_EQ(track.Push(std::string(9, '\0')).nResult, KOVA_LIVE_ERROR_DATA);
    EXPECT_EQ(track.Push(KovaMediaBytes({0, 1})).nResult, KOVA_LIVE_ERROR_DATA);
    EXPECT_EQ(KovaMediaNals(track.Push(KovaMediaAnnexB({slice}))), Nals{slice});
}

TEST_F(MediaH264, RefusesUnitsAbove16MiB)
{
    std::string data = KovaMediaAnnexB({KovaMediaNal(kSlice, 16 * 1024 * 1024 - 4)});
    const KovaMediaUnit unit = track.Push(data);
    EXPECT_EQ(KovaMediaNals(unit), Nals{data.substr(4)});
    data += 'x';
    EXPECT_EQ(track.Push(data).nResult, KOVA_LIVE_ERROR_TOO_LARGE);
}

TEST_F(MediaH264, ThousandsOfSlicesComeThrough)
{
    Nals nals;
    for (unsigned n = 0; n < 20000; n++)
        nals.push_back(KovaMediaNal(kSlice, 1 + n % 40, n));
    EXPECT_EQ(Pushed(nals), nals);
}

TEST_F(MediaH264, RefusesMoreNalUnitsThanAnyPictureHas)
{
    const std::string slice = KovaMediaNal(kSlice, 2);
    EXPECT_EQ(Pushed(Nals(65536, slice)).size(), 65536U);
    const std::string data = KovaMediaAnnexB(Nals(65537, slice), 3);
    EXPECT_EQ(track.Push(data).nResult, KOVA_LIVE_ERROR_TOO_LARGE);
    EXPECT_EQ(Pushed({slice}), Nals{slice});
}

TEST(MediaH264Lengths, OfEachSizeAreRead)
{
    for (const unsigned nLengthSize : {1U, 2U, 4U}) {
        KovaLiveTrackConfig config = KovaMediaConfig(KOVA_LIVE_H264, KOVA_LIVE_FORM_LENGTH);
        config.length_size = nLengthSize;
        KovaMediaTrack track(config);
        ASSERT_EQ(track.Created(), KOVA_LIVE_OK);
        const std::string zeros = KovaMediaNal(kSlice, 9) + KovaMediaBytes({0, 0, 1, 0, 0});
        const Nals nals = {KovaMediaNal(kIdr, 255), zeros, KovaMediaNal(kSlice, 1)};
        EXPECT_EQ(KovaMediaNals(track.Push(KovaMediaLengths(nals, nLengthSize))), nals);
        const Nals empty = {"", nals[0], "", nals[1], ""};
        EXPECT_EQ(KovaMediaNals(track.Push(KovaMediaLengths(empty, nLengthSize))),
                  (Nals{nals[0], nals[1]}));
        EXPECT_EQ(track.Push(KovaMediaLengths({"", ""}, nLengthSize)).nResult,
                  KOVA_LIVE_ERROR_DATA);
    }
}

TEST(MediaH264Lengths, AreOfFourBytesByDefault)
{
    KovaMediaTrack track(KovaMediaConfig(KOVA_LIVE_H264, KOVA_LIVE_FORM_LENGTH));
    const Nals nals = {KovaMediaNal(kIdr, 70000)};
    EXPECT_EQ(KovaMediaNals(track.Push(KovaMediaLengths(nals, 4))), nals);
}

TEST(MediaH264Lengths, ThatDoNotFitAreRefused)
{
    for (const unsigned nLengthSize : {1U, 2U, 4U}) {
        KovaLiveTrackConfig config = KovaMediaConfig(KOVA_LIVE_H264, KOVA_LIVE_FORM_LENGTH);
        config.length_size = nLengthSize;
        KovaMediaTrack track(config);
        const std::string whole =
            KovaMediaLengths({KovaMediaNal(kIdr, 20), KovaMediaNal(kSlice, 30)}, nLengthSize);
        for (size_t nSize = 0; nSize < whole.size(); nSize++) {
            const bool bWhole = nSize == nLengthSize + 20;
            EXPECT_EQ(track.Push(whole.substr(0, nSize)).nResult,
                      bWhole ? KOVA_LIVE_OK : KOVA_LIVE_ERROR_DATA)
                << nSize;
        }
        EXPECT_EQ(track.Push(std::string(nLengthSize, '\xFF') + "abc").nResult,
                  KOVA_LIVE_ERROR_DATA);
    }
}

TEST_F(MediaH264, TellsWhatAUnitIsFor)
{
    KovaMediaUnit unit = track.Push(KovaMediaAnnexB({KovaMediaNal(kIdr, 50)}), 5);
    EXPECT_TRUE(unit.bKey && unit.bEntry && unit.bReference);
    EXPECT_EQ(unit.nPts, 5);
    EXPECT_GT(unit.nArrived, 0U);
    unit = track.Push(KovaMediaAnnexB({KovaMediaNal(kSlice, 50)}));
    EXPECT_TRUE(!unit.bKey && !unit.bEntry && unit.bReference);
    unit = track.Push(KovaMediaAnnexB({KovaMediaNal(kSparable, 50)}));
    EXPECT_TRUE(!unit.bKey && !unit.bEntry && !unit.bReference);
    unit = track.Push(KovaMediaAnnexB({KovaMediaNal(kSparable, 50), KovaMediaNal(kSlice, 50)}));
    EXPECT_TRUE(unit.bReference);
}

TEST_F(MediaH264, RecoveryPointIsAnEntry)
{
    const std::string slice = KovaMediaNal(kSlice, 50);
    const struct {
        std::string sei;
        bool bEntry;
    } cases[] = {
        {KovaMediaBytes({6, 6, 1, 0xC4, 0x80}), true},
        {KovaMediaBytes({6, 5, 2, 6, 1, 0x80}), false},
        {KovaMediaBytes({6, 5, 2, 6, 1, 6, 1, 0xC4, 0x80}), true},
        {KovaMediaBytes({6, 1, 3, 0, 0, 3, 1, 6, 1, 0xC4, 0x80}), true}, // 0 0 1: the 3 is none
        {KovaMediaBytes({6, 1, 4, 0, 0, 3, 1, 6, 1, 0xC4, 0x80}), false},
        {KovaMediaBytes({6, 1, 4, 0, 0, 3, 0, 3, 6, 1, 0xC4, 0x80}), true}, // only the first 3
        {KovaMediaBytes({6, 255, 6, 1, 9, 6, 1, 0xC4, 0x80}), true},        // type 261 in front
        {KovaMediaBytes({6, 255, 6, 0x80}), false},
        {KovaMediaBytes({6, 6}), false},
        {KovaMediaBytes({6, 6, 0, 0x80}), false},
        {KovaMediaBytes({6}), false},
        {KovaMediaBytes({6, 5, 255, 1}) + std::string(256, 'x') +
             KovaMediaBytes({6, 1, 0xC4, 0x80}),
         true},
        {KovaMediaBytes({6, 5, 255, 1}) + std::string(255, 'x') +
             KovaMediaBytes({6, 1, 0xC4, 0x80}),
         false},
        {KovaMediaBytes({6}) + std::string(5000, '\xFF'), false},
    };
    for (const auto &each : cases) {
        const KovaMediaUnit unit = track.Push(KovaMediaAnnexB({each.sei, slice}));
        EXPECT_EQ(unit.bEntry, each.bEntry) << testing::PrintToString(each.sei);
        EXPECT_FALSE(unit.bKey);
        EXPECT_EQ(KovaMediaNals(unit), (Nals{each.sei, slice}));
    }
}

TEST_F(MediaH264, UnitsCarryTheirTrack)
{
    KovaMediaTrack other(KovaMediaConfig(KOVA_LIVE_H264), kMax, 3);
    EXPECT_EQ(other.Push(KovaMediaAnnexB({KovaMediaNal(kIdr, 50)})).nTrack, 3U);
    EXPECT_NE(KovaTrackMediaSsrc(other.Media()), KovaTrackMediaSsrc(track.Media()));
    EXPECT_EQ(KovaTrackMediaCodec(other.Media()), uint32_t{KOVA_LIVE_H264});
    EXPECT_EQ(KovaTrackMediaClockRate(other.Media()), 90000U);
}

TEST_F(MediaH264, NumbersBeginAnywhere)
{
    uint32_t nSequences = 0;
    uint32_t nTimestamps = 0;
    const std::string data = KovaMediaAnnexB({KovaMediaNal(kIdr, 50)});
    for (int n = 0; n < 64; n++) {
        KovaMediaTrack other(KovaMediaConfig(KOVA_LIVE_H264));
        const KovaMediaUnit unit = other.Push(data);
        nSequences |= unit.nFirstSequence;
        nTimestamps |= unit.nTimestamp;
    }
    EXPECT_EQ(nSequences, 0xFFFFU);
    EXPECT_EQ(nTimestamps, 0xFFFFFFFFU);
}

} // namespace
