#include "classic/rtp/rtp_packer.h"
#include "rtp/rtp_header.h"
#include "tests/support/failing_heap.h"
#include "tests/support/packer_probe.h"

#include <gtest/gtest.h>

#include <array>
#include <optional>
#include <vector>

namespace {

constexpr uint32_t kSsrc = 0xA1B2C3D4;

/// An access unit of one NAL unit of nSize bytes.
KovaBytes OneNal(size_t nSize, uint8_t nHeader = 0x65)
{
    return KovaJoin({{0, 0, 0, 1}, KovaFilled(nSize, nHeader)});
}

void Callback(const uint8_t *, uint32_t, uint32_t, uint32_t, void *) {}

TEST(RtpPacker, CreateFillsTheHead)
{
    int nContext = 0;
    for (const uint32_t nCodec : {1U, 2U}) {
        const auto pfnCreate = nCodec == 1 ? KovaRtpAudioPackerCreate : KovaRtpVideoPackerCreate;
        KovaRtpPacker *pPacker = pfnCreate(nCodec, 98, kSsrc, Callback, &nContext);
        ASSERT_NE(pPacker, nullptr);
        EXPECT_EQ(pPacker->nPayloadType, 98U);
        EXPECT_EQ(pPacker->nCodec, nCodec);
        EXPECT_EQ(pPacker->nSsrc, kSsrc);
        EXPECT_EQ(pPacker->nPts, 0U);
        EXPECT_EQ(pPacker->nTimestamp, 0U);
        EXPECT_EQ(pPacker->bMarker, 0U);
        EXPECT_EQ(pPacker->nSequence, 0U);
        EXPECT_EQ(pPacker->pfnStreamInfo, &Callback);
        EXPECT_EQ(pPacker->pStreamInfoContext, &nContext);
        KovaRtpPackerDestroy(pPacker);
    }
}

TEST(RtpPacker, CreateAcceptsOnlyItsOwnCodec)
{
    for (const uint32_t nCodec : {0U, 1U, 3U, 0xFFFFFFFFU})
        EXPECT_EQ(KovaRtpVideoPackerCreate(nCodec, 97, kSsrc, nullptr, nullptr), nullptr);
    for (const uint32_t nCodec : {0U, 2U, 3U, 0xFFFFFFFFU})
        EXPECT_EQ(KovaRtpAudioPackerCreate(nCodec, 96, kSsrc, nullptr, nullptr), nullptr);
}

TEST(RtpPacker, CreateGivesNullWithoutMemory)
{
    const KovaFailingHeap heap;
    EXPECT_EQ(KovaRtpVideoPackerCreate(2, 97, kSsrc, nullptr, nullptr), nullptr);
    EXPECT_EQ(KovaRtpAudioPackerCreate(1, 96, kSsrc, nullptr, nullptr), nullptr);
}

TEST(RtpPacker, NullAndUnknownCodecsAreRefused)
{
    const KovaBytes unit = OneNal(10);
    const uint32_t nSize = static_cast<uint32_t>(unit.size());
    KovaRtpPacket *pPacket = nullptr;
    KovaRtpPackerDestroy(nullptr);
    EXPECT_EQ(KovaRtpPackerPushData(nullptr, unit.data(), nSize, 0), 0x80100000U);
    EXPECT_EQ(KovaRtpPackerGetRtpPacket(nullptr, &pPacket), 0x80100000U);

    for (const uint32_t nCodec : {0U, 3U}) {
        KovaPackerProbe probe(2, 97, kSsrc);
        KovaRtpPacker *pPacker = probe.Packer();
        pPacker->nCodec = nCodec;
        EXPECT_EQ(KovaRtpPackerPushData(pPacker, unit.data(), nSize, 0), 0x80100000U);
        EXPECT_EQ(KovaRtpPackerGetRtpPacket(pPacker, &pPacket), 0x80100000U);
        EXPECT_EQ(pPacket, nullptr);
        // Not freed: it is used on, and destroyed with its own codec.
        KovaRtpPackerDestroy(pPacker);
        pPacker->nCodec = 2;
        EXPECT_EQ(probe.Push(unit, 0), 0U);
        EXPECT_EQ(probe.Drain().size(), 1U);
    }
}

TEST(RtpPacker, HeaderIsVersion2WithBigEndianFields)
{
    KovaPackerProbe probe(2, 97, kSsrc);
    probe.Packer()->nSequence = 0x12345;
    ASSERT_EQ(probe.Push(OneNal(3), 0x01020304 / 90), 0U);
    const std::vector<KovaSeenPacket> packets = probe.Drain();
    ASSERT_EQ(packets.size(), 1U);
    const uint32_t nTimestamp = 0x01020304 / 90 * 90;
    EXPECT_EQ(
        packets[0].bytes,
        (KovaBytes{0x80, 0x80 | 97, 0x23, 0x45, 0x01, 0x02, static_cast<uint8_t>(nTimestamp >> 8),
                   static_cast<uint8_t>(nTimestamp), 0xA1, 0xB2, 0xC3, 0xD4, 0x65, 3, 4}));
    EXPECT_EQ(packets[0].nPts, 0x01020304U / 90);
}

TEST(RtpPacker, PayloadTypeIsItsLowByte)
{
    KovaPackerProbe probe(2, 0x1E1, kSsrc);
    ASSERT_EQ(probe.Push(OneNal(3000), 0), 0U);
    const std::vector<KovaSeenPacket> packets = probe.Drain();
    ASSERT_EQ(packets.size(), 3U);
    EXPECT_EQ(packets[0].bytes[1], 0xE1);
    EXPECT_EQ(packets[2].bytes[1], 0xE1);

    KovaPackerProbe low(2, 0x160, kSsrc);
    ASSERT_EQ(low.Push(OneNal(1399 + 1398), 0), 0U);
    EXPECT_EQ(low.Next()->bytes[1], 0x60);
    EXPECT_EQ(low.Next()->bytes[1], 0xE0);
}

TEST(RtpPacker, SequenceStartsAt0AndWrapsInTheHeaderOnly)
{
    KovaPackerProbe probe(2, 97, kSsrc);
    ASSERT_EQ(probe.Push(OneNal(3000), 0), 0U);
    uint16_t nExpected = 0;
    for (const KovaSeenPacket &packet : probe.Drain())
        EXPECT_EQ(KovaRtpFieldsOf(packet).nSequence, nExpected++);
    EXPECT_EQ(probe.Packer()->nSequence, 3U);

    probe.Packer()->nSequence = 65534;
    ASSERT_EQ(probe.Push(OneNal(3000), 1), 0U);
    nExpected = 65534;
    for (const KovaSeenPacket &packet : probe.Drain())
        EXPECT_EQ(KovaRtpFieldsOf(packet).nSequence, nExpected++);
    EXPECT_EQ(nExpected, 1);
    EXPECT_EQ(probe.Packer()->nSequence, 65537U);
}

TEST(RtpPacker, PacketsOfOnePushShareTheTimestamp)
{
    KovaPackerProbe probe(2, 97, kSsrc);
    ASSERT_EQ(probe.Push(OneNal(6000), 1000), 0U);
    for (const KovaSeenPacket &packet : probe.Drain()) {
        EXPECT_EQ(KovaRtpFieldsOf(packet).nTimestamp, 90000U);
        EXPECT_EQ(packet.nPts, 1000U);
    }
}

TEST(RtpPacker, NothingPendingLeavesSequenceAndResultAlone)
{
    for (const uint32_t nCodec : {1U, 2U}) {
        KovaPackerProbe probe(nCodec, 97, kSsrc);
        probe.Packer()->nSequence = 7;
        KovaRtpPacket *pPacket = nullptr;
        EXPECT_EQ(KovaRtpPackerGetRtpPacket(probe.Packer(), &pPacket), 0x80100005U);
        EXPECT_EQ(pPacket, nullptr);
        EXPECT_EQ(probe.Packer()->nSequence, 7U);
    }
}

TEST(RtpPacker, ShortageLosesNoPacketAndNoNumber)
{
    KovaPackerProbe probe(2, 97, kSsrc);
    const KovaBytes unit = KovaJoin({OneNal(3000), OneNal(100)});
    ASSERT_EQ(probe.Push(unit, 0), 0U);
    std::vector<KovaSeenPacket> packets;
    for (int n = 0; n < 10; n++) {
        KovaRtpPacket *pPacket = nullptr;
        {
            const KovaFailingHeap heap;
            // Also when there is nothing to build.
            EXPECT_EQ(KovaRtpPackerGetRtpPacket(probe.Packer(), &pPacket), 0x80000001U);
            EXPECT_EQ(pPacket, nullptr);
        }
        EXPECT_EQ(probe.Packer()->nSequence, packets.size());
        const std::optional<KovaSeenPacket> packet = probe.Next();
        if (!packet)
            break;
        packets.push_back(*packet);
    }
    KovaPackerProbe untroubled(2, 97, kSsrc);
    ASSERT_EQ(untroubled.Push(unit, 0), 0U);
    EXPECT_TRUE(packets == untroubled.Drain());
}

TEST(RtpPacker, DiscardDropsWhatIsLeft)
{
    KovaPackerProbe probe(2, 97, kSsrc);
    ASSERT_EQ(probe.Push(KovaJoin({OneNal(3000), OneNal(100)}), 0), 0U);
    ASSERT_TRUE(probe.Next().has_value());
    KovaRtpPackerDiscard(probe.Packer());
    EXPECT_FALSE(probe.Next().has_value());
    EXPECT_EQ(probe.Push(OneNal(5), 1), 0U);
    EXPECT_EQ(probe.Drain().size(), 1U);
}

TEST(RtpPacker, DestroyFreesWhatIsPending)
{
    // What is not freed is found by the leak check.
    for (const size_t nTaken : {0U, 1U, 2U}) {
        KovaPackerProbe probe(2, 97, kSsrc);
        ASSERT_EQ(probe.Push(KovaJoin({OneNal(3000), OneNal(100)}), 0), 0U);
        for (size_t n = 0; n < nTaken; n++)
            EXPECT_TRUE(probe.Next().has_value());
    }
}

TEST(RtpHeader, ReadsWhatItWrote)
{
    KovaRtpHeader fields = {96, false, 0x1FEDC, 0x89ABCDEF, 0x01020304};
    std::array<uint8_t, 12> header = {};
    KovaRtpHeaderWrite(header.data(), fields);
    EXPECT_EQ(header,
              (std::array<uint8_t, 12>{0x80, 96, 0xFE, 0xDC, 0x89, 0xAB, 0xCD, 0xEF, 1, 2, 3, 4}));
    EXPECT_EQ(KovaRtpHeaderSequence(header.data()), 0xFEDC);
    EXPECT_EQ(KovaRtpHeaderTimestamp(header.data()), 0x89ABCDEFU);
    fields.bMarker = true;
    KovaRtpHeaderWrite(header.data(), fields);
    EXPECT_EQ(header[1], 0xE0);
}

} // namespace
