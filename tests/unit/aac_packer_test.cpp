#include "classic/rtp/aac_packer.h"
#include "tests/support/failing_heap.h"
#include "tests/support/packer_probe.h"

#include <gtest/gtest.h>

#include <malloc.h>

#include <string>
#include <vector>

namespace {

constexpr uint32_t kSsrc = 0x01020304;

using Payloads = std::vector<KovaBytes>;

/// An ADTS frame of nLength bytes, header included: 44100 Hz stereo by default.
KovaBytes Frame(uint32_t nLength, uint8_t nByte2 = 0x50)
{
    KovaBytes frame = KovaFilled(nLength, 0xFF);
    frame[1] = 0xF1;
    frame[2] = nByte2;
    frame[3] = static_cast<uint8_t>(0x80 | nLength >> 11);
    frame[4] = static_cast<uint8_t>(nLength >> 3);
    frame[5] = static_cast<uint8_t>(nLength << 5 | 0x1F);
    frame[6] = 0xFC;
    return frame;
}

/// The RTP payload that a frame becomes.
KovaBytes PayloadOfFrame(const KovaBytes &frame)
{
    const size_t nRaw = frame.size() - 7;
    return KovaJoin({{0, 16, static_cast<uint8_t>(nRaw >> 5), static_cast<uint8_t>(nRaw << 3)},
                     KovaBytes(frame.begin() + 7, frame.end())});
}

KovaSeenReport RateReport(const std::string &text)
{
    KovaBytes bytes(text.begin(), text.end());
    bytes.resize(6);
    return {bytes, 4};
}

struct AacPackerTest : testing::Test {
    KovaPackerProbe probe{1, 96, kSsrc};

    KovaRtpAacPacker *Codec()
    {
        return reinterpret_cast<KovaRtpAacPacker *>(probe.Packer());
    }
};

TEST_F(AacPackerTest, IsMadeWithEverythingZero)
{
    KovaRtpPacker *pPacker = KovaRtpAacPackerCreate();
    ASSERT_NE(pPacker, nullptr);
    const KovaBytes zeros(sizeof(KovaRtpAacPacker), 0);
    const uint8_t *pBytes = reinterpret_cast<uint8_t *>(pPacker);
    EXPECT_EQ(KovaBytes(pBytes, pBytes + sizeof(KovaRtpAacPacker)), zeros);
    KovaRtpAacPackerDestroy(pPacker);
    KovaRtpAacPackerDestroy(nullptr);
}

TEST_F(AacPackerTest, FrameGoesWhole)
{
    const KovaBytes frame = Frame(1000);
    const std::vector<KovaSeenPacket> packets = probe.Pack(frame);
    ASSERT_EQ(packets.size(), 1U);
    EXPECT_EQ(packets[0].bytes.size(), 1009U);
    EXPECT_EQ(KovaPayloadOf(packets[0]), PayloadOfFrame(frame));
    EXPECT_EQ(KovaBytes(packets[0].bytes.begin() + 12, packets[0].bytes.begin() + 16),
              (KovaBytes{0x00, 0x10, 0x1F, 0x08}));
    EXPECT_TRUE(KovaRtpFieldsOf(packets[0]).bMarker);
    EXPECT_EQ(packets[0].nFrameType, 1U);
}

TEST_F(AacPackerTest, FrameOfOneByteIsTheSmallest)
{
    EXPECT_EQ(probe.PayloadsOf(Frame(8)), (Payloads{{0, 16, 0, 8, 9}}));
    KovaBytes frame = Frame(7);
    frame.push_back(1);
    EXPECT_EQ(probe.PayloadsOf(frame), Payloads{});
}

TEST_F(AacPackerTest, FrameWithANegativeLengthStopsTheParse)
{
    const KovaBytes frame = Frame(100);
    ASSERT_EQ(Frame(1391)[4], 0xAD);
    EXPECT_EQ(probe.PayloadsOf(KovaJoin({frame, Frame(1391), frame})),
              Payloads{PayloadOfFrame(frame)});
    EXPECT_EQ(probe.PayloadsOf(Frame(1391)), Payloads{});
    EXPECT_EQ(probe.PayloadsOf(Frame(1024)), Payloads{});
    EXPECT_EQ(probe.PayloadsOf(Frame(1023)), Payloads{PayloadOfFrame(Frame(1023))});
}

TEST_F(AacPackerTest, FrameBeyondTheBufferStopsTheParse)
{
    const KovaBytes frame = Frame(100);
    KovaBytes cut = Frame(200);
    cut.pop_back();
    EXPECT_EQ(probe.PayloadsOf(KovaJoin({frame, cut})), Payloads{PayloadOfFrame(frame)});
    EXPECT_EQ(probe.PayloadsOf(cut), Payloads{});
}

TEST_F(AacPackerTest, LargeFrameIsFragmented)
{
    const KovaBytes frame = Frame(2100);
    const KovaBytes payload = PayloadOfFrame(frame);
    ASSERT_EQ(payload.size(), 2097U);
    const std::vector<KovaSeenPacket> packets = probe.Pack(frame);
    ASSERT_EQ(packets.size(), 2U);
    EXPECT_EQ(packets[0].bytes.size(), 1400U);
    EXPECT_EQ(packets[1].bytes.size(), 721U);
    EXPECT_EQ(KovaPayloadOf(packets[0]), KovaBytes(payload.begin(), payload.begin() + 1388));
    EXPECT_EQ(KovaPayloadOf(packets[1]), KovaBytes(payload.begin() + 1388, payload.end()));
    EXPECT_FALSE(KovaRtpFieldsOf(packets[0]).bMarker);
    EXPECT_TRUE(KovaRtpFieldsOf(packets[1]).bMarker);
    EXPECT_EQ(packets[0].nFrameType, 1U);
    EXPECT_EQ(packets[1].nFrameType, 1U);
    EXPECT_EQ(Codec()->pFragmentUnit, nullptr);
}

TEST_F(AacPackerTest, FragmentsThatFillTheirPacketsExactly)
{
    // 2779 bytes make a payload of 2 * 1388; that length reads as a positive one.
    const std::vector<KovaSeenPacket> packets = probe.Pack(Frame(2779));
    ASSERT_EQ(packets.size(), 2U);
    EXPECT_EQ(packets[1].bytes.size(), 1400U);
    EXPECT_TRUE(KovaRtpFieldsOf(packets[1]).bMarker);
    EXPECT_EQ(probe.Pack(Frame(2780)).size(), 3U);
}

/// The offset is reset by a push only, so the second large frame begins where
/// the first one ended.
TEST_F(AacPackerTest, SecondLargeFrameOfAPushGoesOnFromTheFirst)
{
    const KovaBytes second = PayloadOfFrame(Frame(4200));
    ASSERT_EQ(second.size(), 4197U);
    const Payloads payloads = probe.PayloadsOf(KovaJoin({Frame(2100), Frame(4200)}));
    ASSERT_EQ(payloads.size(), 4U);
    EXPECT_EQ(payloads[2], KovaBytes(second.begin() + 2097, second.begin() + 2097 + 1388));
    EXPECT_EQ(payloads[3], KovaBytes(second.begin() + 2097 + 1388, second.end()));
}

/// Nothing of a heap that is full of other things may get into a packet.
struct DirtyHeapTest : AacPackerTest {
    DirtyHeapTest()
    {
        mallopt(M_PERTURB, 0x5A);
    }
    ~DirtyHeapTest() override
    {
        mallopt(M_PERTURB, 0);
    }
};

TEST_F(DirtyHeapTest, WhatASecondLargeFrameCannotFillIsZero)
{
    for (const uint32_t nLength : {2100U, 2099U, 2048U}) {
        const std::vector<KovaSeenPacket> packets =
            probe.Pack(KovaJoin({Frame(2100), Frame(nLength)}));
        ASSERT_EQ(packets.size(), 3U) << nLength;
        EXPECT_EQ(KovaPayloadOf(packets[2]), KovaBytes(1388, 0)) << nLength;
        EXPECT_FALSE(KovaRtpFieldsOf(packets[2]).bMarker);
    }
}

TEST_F(DirtyHeapTest, WhatIsLeftOfASecondLargeFrameIsFollowedByZeros)
{
    const KovaBytes second = PayloadOfFrame(Frame(2200));
    const std::vector<KovaSeenPacket> packets = probe.Pack(KovaJoin({Frame(2100), Frame(2200)}));
    ASSERT_EQ(packets.size(), 3U);
    EXPECT_EQ(KovaPayloadOf(packets[2]),
              KovaJoin({KovaBytes(second.begin() + 2097, second.end()), KovaBytes(1288, 0)}));
    EXPECT_FALSE(KovaRtpFieldsOf(packets[2]).bMarker);
}

TEST_F(AacPackerTest, PushDuringAFragmentEndsItWithAnEmptyPacket)
{
    ASSERT_EQ(probe.Push(Frame(3000), 0), 0U);
    ASSERT_TRUE(probe.Next().has_value());
    const KovaBytes frame = Frame(100);
    const std::vector<KovaSeenPacket> packets = probe.Pack(frame, 23);
    ASSERT_EQ(packets.size(), 2U);
    EXPECT_EQ(packets[0].bytes.size(), 12U);
    EXPECT_TRUE(KovaRtpFieldsOf(packets[0]).bMarker);
    EXPECT_EQ(KovaPayloadOf(packets[1]), PayloadOfFrame(frame));
}

TEST_F(AacPackerTest, FramesOfOnePushShareTheTimestamp)
{
    const std::vector<KovaSeenPacket> packets = probe.Pack(KovaJoin({Frame(100), Frame(200)}), 23);
    ASSERT_EQ(packets.size(), 2U);
    for (const KovaSeenPacket &packet : packets) {
        EXPECT_EQ(KovaRtpFieldsOf(packet).nTimestamp, 1014U);
        EXPECT_EQ(packet.nPts, 23U);
        EXPECT_TRUE(KovaRtpFieldsOf(packet).bMarker);
    }
}

TEST_F(AacPackerTest, TimestampMovesByTheRoundedSamples)
{
    probe.Pack(Frame(100), 0);
    EXPECT_EQ(probe.Packer()->nTimestamp, 0U);
    probe.Pack(Frame(100), 23);
    EXPECT_EQ(probe.Packer()->nTimestamp, 1014U);
    probe.Pack(Frame(100), 46);
    EXPECT_EQ(probe.Packer()->nTimestamp, 2028U);
    probe.Pack(Frame(100), 46);
    EXPECT_EQ(probe.Packer()->nTimestamp, 2028U);
    // 5 ms are 220.5 samples: rounded up.
    probe.Pack(Frame(100), 51);
    EXPECT_EQ(probe.Packer()->nTimestamp, 2249U);
}

TEST_F(AacPackerTest, PtsThatGoesBackAddsOneFrame)
{
    probe.Pack(Frame(100), 1000);
    EXPECT_EQ(probe.Packer()->nTimestamp, 44100U);
    probe.Pack(Frame(100), 999);
    EXPECT_EQ(probe.Packer()->nTimestamp, 45124U);
    EXPECT_EQ(probe.Packer()->nPts, 999U);
    probe.Pack(Frame(100), 0);
    EXPECT_EQ(probe.Packer()->nTimestamp, 46148U);
}

TEST_F(AacPackerTest, ProductOfALongStepIsCutTo32Bits)
{
    probe.Pack(Frame(100), 100000);
    // 4410000000 - 2^32 = 115032704
    EXPECT_EQ(probe.Packer()->nTimestamp, 115033U);
}

TEST_F(AacPackerTest, ReservedRateDoesNotMoveTheTimestamp)
{
    probe.Pack(Frame(100, 0x74), 1000);
    EXPECT_EQ(Codec()->nSampleRate, 0U);
    EXPECT_EQ(probe.Packer()->nTimestamp, 0U);
    EXPECT_EQ(probe.Packer()->nPts, 1000U);
    EXPECT_TRUE(probe.reports == (std::vector<KovaSeenReport>{RateReport("0"), {{0x16, 0x90}, 1}}));
}

TEST_F(AacPackerTest, LastFrameOfAPushDecidesTheRate)
{
    probe.Pack(KovaJoin({Frame(100, 0x50), Frame(100, 0x60)}), 1000);
    EXPECT_EQ(Codec()->nSampleRate, 16000U);
    EXPECT_EQ(probe.Packer()->nTimestamp, 16000U);
}

TEST_F(AacPackerTest, EveryFrameReportsRateAndConfig)
{
    probe.Pack(KovaJoin({Frame(100), Frame(100, 0x6C)}));
    EXPECT_TRUE(
        probe.reports ==
        (std::vector<KovaSeenReport>{
            RateReport("44100"), {{0x12, 0x10}, 1}, RateReport("8000"), {{0x15, 0x90}, 1}}));
}

TEST_F(AacPackerTest, FrameThatStopsTheParseIsReportedToo)
{
    probe.Pack(Frame(1391));
    EXPECT_TRUE(probe.reports ==
                (std::vector<KovaSeenReport>{RateReport("44100"), {{0x12, 0x10}, 1}}));
}

TEST_F(AacPackerTest, WorksWithoutACallback)
{
    KovaPackerProbe silent(1, 96, kSsrc, false);
    EXPECT_EQ(silent.Push(Frame(100), 0), 0U);
    EXPECT_EQ(silent.Drain().size(), 1U);
}

TEST_F(AacPackerTest, BytesInFrontOfAFrameAreSkipped)
{
    const KovaBytes frame = Frame(100);
    EXPECT_EQ(probe.PayloadsOf(KovaJoin({{1, 2, 0xFF, 0x0F}, frame, {0xFF, 0xE1, 7}, frame})),
              (Payloads{PayloadOfFrame(frame), PayloadOfFrame(frame)}));
}

TEST_F(AacPackerTest, BytesLeftOverWithoutAFrameRefuseThePush)
{
    const KovaBytes frame = Frame(100);
    for (const KovaBytes &rest : {KovaBytes{1}, KovaBytes(20, 1), KovaBytes{0xFF, 0xF1, 0x50}}) {
        EXPECT_EQ(probe.Push(KovaJoin({frame, rest}), 500), 0x80100003U);
        EXPECT_EQ(Codec()->pAuList, nullptr);
        EXPECT_FALSE(probe.Next().has_value());
    }
    EXPECT_EQ(probe.Packer()->nPts, 0U);
    EXPECT_EQ(probe.Packer()->nTimestamp, 0U);
}

TEST_F(AacPackerTest, BufferUsedUpExactlyEndsTheSearch)
{
    EXPECT_EQ(probe.PayloadsOf(KovaJoin({Frame(8), Frame(9)})).size(), 2U);
}

TEST_F(AacPackerTest, BufferWithoutASyncWordIsRefused)
{
    for (const KovaBytes &unit : {KovaBytes(100, 0x11), KovaBytes{}, KovaBytes{0xFF},
                                  KovaBytes{0xFF, 0xF1, 0x50, 0x80, 0, 0x9F, 0xFC}})
        EXPECT_EQ(probe.Push(unit, 0), 0x80100003U);
    EXPECT_TRUE(probe.reports.empty());
    EXPECT_EQ(KovaRtpPackerPushData(probe.Packer(), nullptr, 0, 1), 0x80100003U);
}

TEST_F(AacPackerTest, PushBeforeTheListIsDrainedIsRefused)
{
    const KovaBytes unit = KovaJoin({Frame(100), Frame(100)});
    ASSERT_EQ(probe.Push(unit, 10), 0U);
    ASSERT_TRUE(probe.Next().has_value());
    const size_t nReports = probe.reports.size();
    EXPECT_EQ(probe.Push(unit, 20), 0x80100002U);
    EXPECT_EQ(probe.Packer()->nPts, 10U);
    EXPECT_EQ(probe.reports.size(), nReports);
    EXPECT_EQ(probe.Drain().size(), 1U);
    EXPECT_EQ(probe.Push(unit, 30), 0U);
}

TEST_F(AacPackerTest, StepsTellWhenNothingIsPending)
{
    KovaRtpPacket packet = {};
    KovaBytes data(2000);
    packet.pData = data.data();
    EXPECT_EQ(KovaRtpAacPackerPrepareRtpPacket(probe.Packer(), &packet), 0x80100005U);
    EXPECT_EQ(KovaRtpAacPackerGetRtpPacket(probe.Packer(), &packet), 0x80100005U);
    ASSERT_EQ(probe.Push(Frame(9), 0), 0U);
    EXPECT_EQ(KovaRtpAacPackerPrepareRtpPacket(probe.Packer(), &packet), 0U);
    EXPECT_EQ(packet.nSize, 18U);
    EXPECT_EQ(Codec()->bWholeUnit, 1U);
    EXPECT_EQ(KovaRtpAacPackerGetRtpPacket(probe.Packer(), &packet), 0U);
    EXPECT_EQ(KovaBytes(data.begin() + 12, data.begin() + 19), (KovaBytes{0, 16, 0, 16, 9, 10, 0}));
    EXPECT_EQ(packet.nFrameType, 1U);
    EXPECT_EQ(Codec()->pAuList, nullptr);
}

TEST_F(AacPackerTest, PacketFilledTwiceTakesNoLargerUnit)
{
    ASSERT_EQ(probe.Push(KovaJoin({Frame(9), Frame(1000)}), 0), 0U);
    KovaRtpPacket packet = {};
    ASSERT_EQ(KovaRtpAacPackerPrepareRtpPacket(probe.Packer(), &packet), 0U);
    ASSERT_EQ(packet.nSize, 18U);
    KovaBytes data(packet.nSize);
    packet.pData = data.data();
    EXPECT_EQ(KovaRtpAacPackerGetRtpPacket(probe.Packer(), &packet), 0U);
    EXPECT_EQ(KovaRtpAacPackerGetRtpPacket(probe.Packer(), &packet), 0x80100005U);
    const std::vector<KovaSeenPacket> rest = probe.Drain();
    ASSERT_EQ(rest.size(), 1U);
    EXPECT_EQ(KovaPayloadOf(rest[0]), PayloadOfFrame(Frame(1000)));
}

TEST_F(AacPackerTest, FreeAccessUnitListEmptiesTheList)
{
    ASSERT_EQ(probe.Push(KovaJoin({Frame(100), Frame(100)}), 0), 0U);
    KovaRtpAacPackerFreeAccessUnitList(probe.Packer());
    EXPECT_EQ(Codec()->pAuList, nullptr);
    EXPECT_EQ(Codec()->pAuListTail, nullptr);
    EXPECT_EQ(probe.Pack(Frame(100)).size(), 1U);
}

TEST_F(AacPackerTest, FrameWithoutMemoryIsDropped)
{
    const KovaBytes unit = KovaJoin(std::vector<KovaBytes>(100, Frame(20)));
    // The copy of the buffer, room for some of the nodes, room for more.
    for (const int nGood : {0, 1, 2}) {
        KovaPackerProbe fresh(1, 96, kSsrc);
        {
            const KovaFailingHeap heap(nGood);
            EXPECT_EQ(fresh.Push(unit, 0), 0U);
            EXPECT_GT(heap.Failed(), 0);
        }
        EXPECT_EQ(fresh.reports.size(), 200U);
        const std::vector<KovaSeenPacket> packets = fresh.Drain();
        if (nGood < 2) {
            EXPECT_EQ(packets.size(), 0U);
            continue;
        }
        EXPECT_GE(packets.size(), 4U);
        EXPECT_LT(packets.size(), 100U);
        for (const KovaSeenPacket &packet : packets)
            EXPECT_EQ(KovaPayloadOf(packet), PayloadOfFrame(Frame(20)));
    }
}

} // namespace
