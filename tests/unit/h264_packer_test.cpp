#include "classic/rtp/h264_packer.h"
#include "tests/support/failing_heap.h"
#include "tests/support/packer_probe.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

constexpr uint32_t kSsrc = 0x01020304;
constexpr uint8_t kIdr = 0x65;
constexpr uint8_t kSlice = 0x41;

const KovaBytes kCode3 = {0, 0, 1};
const KovaBytes kCode4 = {0, 0, 0, 1};
const KovaBytes kSps = {0x67, 0x42, 0x00, 0x1E};
const KovaBytes kPps = {0x68, 0xCE, 0x38};

using Payloads = std::vector<KovaBytes>;

/// An access unit of these NAL units behind 4-byte start codes.
KovaBytes Unit(const std::vector<KovaBytes> &nals)
{
    KovaBytes unit;
    for (const KovaBytes &nal : nals)
        unit = KovaJoin({unit, kCode4, nal});
    return unit;
}

struct H264PackerTest : testing::Test {
    KovaPackerProbe probe{2, 97, kSsrc};

    KovaRtpH264Packer *Codec()
    {
        return reinterpret_cast<KovaRtpH264Packer *>(probe.Packer());
    }
};

TEST_F(H264PackerTest, IsMadeWithEverythingZero)
{
    KovaRtpPacker *pPacker = KovaRtpH264PackerCreate();
    ASSERT_NE(pPacker, nullptr);
    const KovaBytes zeros(sizeof(KovaRtpH264Packer), 0);
    const uint8_t *pBytes = reinterpret_cast<uint8_t *>(pPacker);
    EXPECT_EQ(KovaBytes(pBytes, pBytes + sizeof(KovaRtpH264Packer)), zeros);
    KovaRtpH264PackerDestroy(pPacker);
    KovaRtpH264PackerDestroy(nullptr);
}

TEST_F(H264PackerTest, TimestampIsPtsTimes90Modulo32Bits)
{
    ASSERT_EQ(probe.Pack(Unit({KovaFilled(9, kSlice)}), 1000).size(), 1U);
    EXPECT_EQ(probe.Packer()->nTimestamp, 90000U);
    EXPECT_EQ(probe.Packer()->nPts, 1000U);
    const std::vector<KovaSeenPacket> packets =
        probe.Pack(Unit({KovaFilled(9, kSlice)}), 0xFFFFFFFF);
    ASSERT_EQ(packets.size(), 1U);
    EXPECT_EQ(KovaRtpFieldsOf(packets[0]).nTimestamp, 0xFFFFFFA6U);
    EXPECT_EQ(packets[0].nPts, 0xFFFFFFFFU);
}

TEST_F(H264PackerTest, LargestSingleNalIs1398Bytes)
{
    const KovaBytes nal = KovaFilled(1398, kIdr);
    const std::vector<KovaSeenPacket> packets = probe.Pack(Unit({nal}));
    ASSERT_EQ(packets.size(), 1U);
    EXPECT_EQ(packets[0].bytes.size(), 1410U);
    EXPECT_EQ(KovaPayloadOf(packets[0]), nal);
    EXPECT_TRUE(KovaRtpFieldsOf(packets[0]).bMarker);
    EXPECT_EQ(packets[0].nFrameType, 2U);
}

TEST_F(H264PackerTest, Nal1399BytesLongIsOneFragmentWithoutMarker)
{
    const KovaBytes nal = KovaFilled(1399, kIdr);
    const std::vector<KovaSeenPacket> packets = probe.Pack(Unit({nal}));
    ASSERT_EQ(packets.size(), 1U);
    EXPECT_EQ(packets[0].bytes.size(), 1412U);
    EXPECT_EQ(KovaPayloadOf(packets[0]),
              KovaJoin({{0x60 | 28, 0x80 | 0x40 | 5}, KovaBytes(nal.begin() + 1, nal.end())}));
    EXPECT_FALSE(KovaRtpFieldsOf(packets[0]).bMarker);
    EXPECT_EQ(packets[0].nFrameType, 2U);
    EXPECT_EQ(Codec()->pFragmentNal, nullptr);
}

TEST_F(H264PackerTest, Nal2797BytesLongIsTwoFullFragments)
{
    const KovaBytes nal = KovaFilled(1399 + 1398, kIdr);
    const std::vector<KovaSeenPacket> packets = probe.Pack(Unit({nal}));
    ASSERT_EQ(packets.size(), 2U);
    EXPECT_EQ(packets[0].bytes.size(), 1412U);
    EXPECT_EQ(packets[1].bytes.size(), 1412U);
    EXPECT_EQ(KovaPayloadOf(packets[0]),
              KovaJoin({{0x7C, 0x85}, KovaBytes(nal.begin() + 1, nal.begin() + 1399)}));
    EXPECT_EQ(KovaPayloadOf(packets[1]),
              KovaJoin({{0x7C, 0x45}, KovaBytes(nal.begin() + 1399, nal.end())}));
    EXPECT_FALSE(KovaRtpFieldsOf(packets[0]).bMarker);
    EXPECT_TRUE(KovaRtpFieldsOf(packets[1]).bMarker);
}

TEST_F(H264PackerTest, OnlyTheFirstFragmentIsAKeyFrame)
{
    const std::vector<KovaSeenPacket> packets = probe.Pack(Unit({KovaFilled(2798, kIdr)}));
    ASSERT_EQ(packets.size(), 3U);
    EXPECT_EQ(packets[0].nFrameType, 2U);
    EXPECT_EQ(packets[1].nFrameType, 0U);
    EXPECT_EQ(packets[2].nFrameType, 0U);
    EXPECT_EQ(KovaPayloadOf(packets[1])[1], 5);
    EXPECT_EQ(packets[2].bytes.size(), 12U + 2 + 1);
    EXPECT_TRUE(KovaRtpFieldsOf(packets[2]).bMarker);
}

TEST_F(H264PackerTest, EachFragmentedNalEndsWithTheMarker)
{
    const std::vector<KovaSeenPacket> packets =
        probe.Pack(Unit({KovaFilled(2000, kSlice), KovaFilled(2000, kSlice)}));
    ASSERT_EQ(packets.size(), 4U);
    for (size_t n = 0; n < 4; n++) {
        EXPECT_EQ(KovaRtpFieldsOf(packets[n]).bMarker, n % 2 == 1) << n;
        EXPECT_EQ(packets[n].nFrameType, 0U);
    }
}

TEST_F(H264PackerTest, HeaderByte7AloneMarksTheFirstFragment)
{
    const std::vector<KovaSeenPacket> odd = probe.Pack(Unit({KovaFilled(3000, 0x07)}));
    ASSERT_EQ(odd.size(), 3U);
    EXPECT_TRUE(KovaRtpFieldsOf(odd[0]).bMarker);
    EXPECT_FALSE(KovaRtpFieldsOf(odd[1]).bMarker);
    EXPECT_TRUE(KovaRtpFieldsOf(odd[2]).bMarker);
    const std::vector<KovaSeenPacket> usual = probe.Pack(Unit({KovaFilled(3000, 0x67)}));
    ASSERT_EQ(usual.size(), 3U);
    EXPECT_FALSE(KovaRtpFieldsOf(usual[0]).bMarker);
}

TEST_F(H264PackerTest, SmallNalsAreAggregated)
{
    const KovaBytes a = KovaFilled(600, kSlice);
    const KovaBytes b = KovaFilled(600, 0x01);
    const KovaBytes c = KovaFilled(600, 0x61);
    const std::vector<KovaSeenPacket> packets = probe.Pack(Unit({a, b, c}));
    ASSERT_EQ(packets.size(), 2U);
    EXPECT_EQ(packets[0].bytes.size(), 12U + 1205);
    EXPECT_EQ(KovaPayloadOf(packets[0]), KovaJoin({{0x40 | 24}, {0x02, 0x58}, a, {0x02, 0x58}, b}));
    EXPECT_TRUE(KovaRtpFieldsOf(packets[0]).bMarker);
    EXPECT_EQ(KovaPayloadOf(packets[1]), c);
    EXPECT_TRUE(KovaRtpFieldsOf(packets[1]).bMarker);
}

TEST_F(H264PackerTest, AggregateMayTakeOneByteMoreThanASingleNal)
{
    const KovaBytes a = KovaFilled(698, kSlice);
    EXPECT_EQ(probe.PayloadsOf(Unit({a, a}))[0].size(), 1401U);
    const Payloads payloads = probe.PayloadsOf(Unit({a, KovaFilled(699, kSlice)}));
    ASSERT_EQ(payloads.size(), 2U);
    EXPECT_EQ(payloads[0], a);
}

TEST_F(H264PackerTest, AggregateJoinsTheReferenceBitsAndTheKeyFrame)
{
    const std::vector<KovaSeenPacket> packets = probe.Pack(Unit({{0x21, 9}, {0x45, 9}, {0x81, 9}}));
    ASSERT_EQ(packets.size(), 1U);
    EXPECT_EQ(KovaPayloadOf(packets[0]),
              (KovaBytes{0x80 | 0x60 | 24, 0, 2, 0x21, 9, 0, 2, 0x45, 9, 0, 2, 0x81, 9}));
    EXPECT_EQ(packets[0].nFrameType, 2U);
    EXPECT_EQ(Codec()->nNalCount, 0U);
}

TEST_F(H264PackerTest, LargeNalEndsAnAggregate)
{
    const KovaBytes large = KovaFilled(1399, kSlice);
    const Payloads payloads = probe.PayloadsOf(Unit({{0x41, 1}, {0x41, 2}, large, {0x41, 3}}));
    ASSERT_EQ(payloads.size(), 3U);
    EXPECT_EQ(payloads[0], (KovaBytes{0x40 | 24, 0, 2, 0x41, 1, 0, 2, 0x41, 2}));
    EXPECT_EQ(payloads[1].size(), 1400U);
    EXPECT_EQ(payloads[2], (KovaBytes{0x41, 3}));
}

TEST_F(H264PackerTest, ParameterSetsGoToTheCallbackOnly)
{
    const KovaBytes slice = KovaFilled(50, kIdr);
    EXPECT_EQ(probe.PayloadsOf(Unit({kSps, kPps, slice})), Payloads{slice});
    EXPECT_TRUE(probe.reports == (std::vector<KovaSeenReport>{{kSps, 2}, {kPps, 3}}));
}

TEST_F(H264PackerTest, ParameterSetsAreDroppedWithoutACallback)
{
    KovaPackerProbe silent(2, 97, kSsrc, false);
    const KovaBytes slice = KovaFilled(50, kIdr);
    ASSERT_EQ(silent.Push(Unit({kSps, kPps, slice}), 0), 0U);
    const std::vector<KovaSeenPacket> packets = silent.Drain();
    ASSERT_EQ(packets.size(), 1U);
    EXPECT_EQ(KovaPayloadOf(packets[0]), slice);
}

TEST_F(H264PackerTest, LastNalIsPacketizedWhateverItsType)
{
    EXPECT_EQ(probe.PayloadsOf(Unit({kSps, kPps})), Payloads{kPps});
    EXPECT_TRUE(probe.reports == (std::vector<KovaSeenReport>{{kSps, 2}}));
    EXPECT_EQ(probe.PayloadsOf(Unit({kSps})), Payloads{kSps});
    EXPECT_EQ(probe.reports.size(), 1U);
}

TEST_F(H264PackerTest, DelimiterAndSeiAreDroppedAnywhere)
{
    const KovaBytes slice = KovaFilled(50, kIdr);
    const KovaBytes sei = {0x06, 5, 5};
    const KovaBytes delimiter = {0x09, 0xF0};
    EXPECT_EQ(probe.PayloadsOf(Unit({delimiter, sei, slice, sei, delimiter})), Payloads{slice});
    EXPECT_EQ(probe.PayloadsOf(Unit({delimiter})), Payloads{});
    EXPECT_EQ(probe.PayloadsOf(Unit({{0x66, 1}, {0x29, 1}})), Payloads{});
    EXPECT_TRUE(probe.reports.empty());
}

TEST_F(H264PackerTest, BothStartCodesEndANalWhereTheyBegin)
{
    const KovaBytes unit = KovaJoin({{7, 7},
                                     kCode3,
                                     {kSlice, 2},
                                     kCode4,
                                     {kSlice, 3, 0},
                                     kCode4,
                                     {kSlice, 4},
                                     kCode3,
                                     {kSlice, 5}});
    EXPECT_EQ(probe.PayloadsOf(unit), (Payloads{{0x40 | 24, 0, 2, kSlice, 2, 0, 3, kSlice, 3, 0, 0,
                                                 2, kSlice, 4, 0, 2, kSlice, 5}}));
}

TEST_F(H264PackerTest, TrailingZerosStayWithTheLastNal)
{
    EXPECT_EQ(probe.PayloadsOf(KovaJoin({kCode3, {kSlice, 2, 0, 0, 0}})),
              (Payloads{{kSlice, 2, 0, 0, 0}}));
}

TEST_F(H264PackerTest, StartCodeInTheLastThreeBytesBelongsToTheNal)
{
    EXPECT_EQ(probe.PayloadsOf(KovaJoin({kCode3, kSps, kCode3})),
              (Payloads{KovaJoin({kSps, kCode3})}));
    EXPECT_TRUE(probe.reports.empty());
    EXPECT_EQ(probe.PayloadsOf(KovaJoin({kCode3, kSps, kCode4})), Payloads{});
    EXPECT_TRUE(probe.reports == (std::vector<KovaSeenReport>{{kSps, 2}}));
}

TEST_F(H264PackerTest, EmptyNalsAreDropped)
{
    EXPECT_EQ(probe.PayloadsOf(KovaJoin(
                  {kCode4, kCode4, {kSlice, 2}, kCode3, kCode3, kCode4, {kSlice, 3}, kCode4})),
              (Payloads{{0x40 | 24, 0, 2, kSlice, 2, 0, 2, kSlice, 3}}));
    EXPECT_EQ(probe.PayloadsOf(kCode4), Payloads{});
    EXPECT_EQ(probe.PayloadsOf(KovaJoin({kCode3, kCode4})), Payloads{});
}

TEST_F(H264PackerTest, NalOfOneByteIsSent)
{
    EXPECT_EQ(probe.PayloadsOf(Unit({{kSlice}})), (Payloads{{kSlice}}));
}

TEST_F(H264PackerTest, BufferWithoutAStartCodeIsRefused)
{
    for (const KovaBytes &unit : {KovaBytes{}, KovaBytes{0}, kCode3, KovaBytes{1, 2, 3, 4, 5},
                                  KovaBytes{0, 0, 2, 0, 0, 0, 0}}) {
        EXPECT_EQ(probe.Push(unit, 77), 0x80100004U);
        EXPECT_EQ(Codec()->pNalList, nullptr);
        EXPECT_FALSE(probe.Next().has_value());
    }
    EXPECT_EQ(probe.Packer()->nPts, 77U);
    EXPECT_EQ(probe.Packer()->nTimestamp, 77U * 90);
    EXPECT_EQ(probe.Packer()->nSequence, 0U);
    EXPECT_EQ(KovaRtpPackerPushData(probe.Packer(), nullptr, 0, 1), 0x80100004U);
}

TEST_F(H264PackerTest, PushBeforeTheListIsDrainedIsRefused)
{
    const KovaBytes unit = Unit({KovaFilled(1000, kSlice), KovaFilled(1000, kSlice)});
    ASSERT_EQ(probe.Push(unit, 10), 0U);
    EXPECT_EQ(probe.Push(unit, 20), 0x80100002U);
    ASSERT_TRUE(probe.Next().has_value());
    EXPECT_EQ(probe.Push(unit, 30), 0x80100002U);
    EXPECT_EQ(probe.Packer()->nPts, 10U);
    EXPECT_EQ(probe.Packer()->nTimestamp, 900U);
    EXPECT_EQ(probe.Drain().size(), 1U);
    EXPECT_EQ(probe.Push(unit, 40), 0U);
}

TEST_F(H264PackerTest, FragmentsLeftOverGoOnUnderTheNextPush)
{
    const KovaBytes nal = KovaFilled(2000, kSlice);
    ASSERT_EQ(probe.Push(Unit({nal}), 10), 0U);
    ASSERT_TRUE(probe.Next().has_value());
    const std::vector<KovaSeenPacket> packets = probe.Pack(Unit({{kSlice, 9}}), 20);
    ASSERT_EQ(packets.size(), 2U);
    EXPECT_EQ(KovaPayloadOf(packets[0]),
              KovaJoin({{0x5C, 0x41}, KovaBytes(nal.begin() + 1399, nal.end())}));
    EXPECT_EQ(KovaRtpFieldsOf(packets[0]).nTimestamp, 1800U);
    EXPECT_EQ(KovaPayloadOf(packets[1]), (KovaBytes{kSlice, 9}));
}

TEST_F(H264PackerTest, StepsTellWhenNothingIsPending)
{
    KovaRtpPacket packet = {};
    KovaBytes data(2000);
    packet.pData = data.data();
    EXPECT_EQ(KovaRtpH264PackerPrepareRtpPacket(probe.Packer(), &packet), 0x80100005U);
    EXPECT_EQ(KovaRtpH264PackerGetRtpPacket(probe.Packer(), &packet), 0x80100005U);
    ASSERT_EQ(probe.Push(Unit({{kIdr, 1, 2}}), 0), 0U);
    EXPECT_EQ(KovaRtpH264PackerPrepareRtpPacket(probe.Packer(), &packet), 0U);
    EXPECT_EQ(packet.nSize, 15U);
    EXPECT_EQ(Codec()->nPayloadBytes, 3U);
    EXPECT_EQ(Codec()->nNalCount, 1U);
    EXPECT_EQ(KovaRtpH264PackerGetRtpPacket(probe.Packer(), &packet), 0U);
    EXPECT_EQ(KovaBytes(data.begin(), data.begin() + 16),
              (KovaBytes{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, kIdr, 1, 2, 0}));
    EXPECT_EQ(packet.nFrameType, 2U);
    EXPECT_EQ(Codec()->pNalList, nullptr);
}

TEST_F(H264PackerTest, PacketFilledTwiceTakesNoLargerUnit)
{
    ASSERT_EQ(probe.Push(Unit({{kIdr, 1, 2}, KovaFilled(1398, kSlice)}), 0), 0U);
    KovaRtpPacket packet = {};
    ASSERT_EQ(KovaRtpH264PackerPrepareRtpPacket(probe.Packer(), &packet), 0U);
    ASSERT_EQ(packet.nSize, 15U);
    KovaBytes data(packet.nSize);
    packet.pData = data.data();
    EXPECT_EQ(KovaRtpH264PackerGetRtpPacket(probe.Packer(), &packet), 0U);
    EXPECT_EQ(KovaRtpH264PackerGetRtpPacket(probe.Packer(), &packet), 0x80100005U);
    const std::vector<KovaSeenPacket> rest = probe.Drain();
    ASSERT_EQ(rest.size(), 1U);
    EXPECT_EQ(KovaPayloadOf(rest[0]), KovaFilled(1398, kSlice));
}

TEST_F(H264PackerTest, FreeNalListEmptiesTheList)
{
    ASSERT_EQ(probe.Push(Unit({{kSlice, 1}, {kSlice, 2}}), 0), 0U);
    EXPECT_NE(Codec()->pNalList, nullptr);
    KovaRtpH264PackerFreeNalList(probe.Packer());
    EXPECT_EQ(Codec()->pNalList, nullptr);
    EXPECT_EQ(Codec()->pNalListTail, nullptr);
    EXPECT_EQ(probe.PayloadsOf(Unit({{kSlice, 3}})), (Payloads{{kSlice, 3}}));
}

TEST_F(H264PackerTest, NalWithoutMemoryIsDropped)
{
    const std::vector<KovaBytes> nals(100, {kSlice, 1, 2});
    // The copy of the unit, room for some of the nodes, room for more.
    for (const int nGood : {0, 1, 2}) {
        KovaPackerProbe fresh(2, 97, kSsrc);
        {
            const KovaFailingHeap heap(nGood);
            EXPECT_EQ(fresh.Push(KovaJoin({Unit({kSps}), Unit(nals)}), 0), 0U);
            EXPECT_GT(heap.Failed(), 0);
        }
        EXPECT_TRUE(fresh.reports == (std::vector<KovaSeenReport>{{kSps, 2}}));
        const std::vector<KovaSeenPacket> packets = fresh.Drain();
        if (nGood < 2) {
            EXPECT_EQ(packets.size(), 0U);
            continue;
        }
        ASSERT_EQ(packets.size(), 1U);
        const KovaBytes payload = KovaPayloadOf(packets[0]);
        EXPECT_GE(payload.size(), 1 + 4 * 5U);
        EXPECT_LT(payload.size(), 1 + 100 * 5U);
        EXPECT_EQ(payload.size() % 5, 1U);
    }
}

TEST_F(H264PackerTest, ShortageIsForgottenByTheNextUnit)
{
    {
        const KovaFailingHeap heap;
        EXPECT_EQ(probe.Push(Unit({{kSlice, 1}}), 0), 0U);
        EXPECT_EQ(Codec()->pNalList, nullptr);
    }
    EXPECT_EQ(probe.PayloadsOf(Unit({{kSlice, 2}})), (Payloads{{kSlice, 2}}));
}

} // namespace
