#include "classic/rtp/aac_packer.h"
#include "classic/rtp/h264_packer.h"
#include "classic/rtp/rtp_packer.h"
#include "tests/support/failing_heap.h"
#include "tests/support/media.h"
#include "tests/support/packer_probe.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

/// Where the packers have the bytes of an access unit, and what a packet costs the heap.
namespace {

constexpr uint32_t kSsrc = 1;

KovaBytes BytesOf(const std::string &text)
{
    return KovaBytes(text.begin(), text.end());
}

KovaBytes Nals(size_t nCount, size_t nSize)
{
    return KovaJoin(std::vector<KovaBytes>(nCount, KovaJoin({{0, 0, 1}, KovaFilled(nSize, 0x41)})));
}

uint32_t Lend(KovaPackerProbe *pProbe, KovaBytes *pUnit, uint32_t nPts = 0)
{
    return KovaRtpPackerTake(pProbe->Packer(), pUnit->data(), pUnit->data(),
                             static_cast<uint32_t>(pUnit->size()), nPts);
}

KovaRtpH264Packer *Video(const KovaPackerProbe &probe)
{
    return reinterpret_cast<KovaRtpH264Packer *>(const_cast<KovaPackerProbe &>(probe).Packer());
}

TEST(PushedBytes, LentUnitComesOutLikeAPushedOne)
{
    const std::vector<KovaBytes> video = {Nals(3, 100), Nals(2, 5000), Nals(40, 700),
                                          KovaBytes(50, 9), Nals(1, 1)};
    const std::string frame = KovaTestAacFrame(60);
    const std::vector<KovaBytes> audio = {BytesOf(frame), BytesOf(KovaTestAacFrame(2300)),
                                          BytesOf(frame + frame + "rest"), BytesOf(frame + frame)};
    for (const uint32_t nCodec : {1U, 2U}) {
        KovaPackerProbe pushed(nCodec, 97, kSsrc);
        KovaPackerProbe lent(nCodec, 97, kSsrc);
        uint32_t nPts = 100;
        for (const KovaBytes &unit : nCodec == 1 ? audio : video) {
            KovaBytes own = unit; // the packer may write to it until it is drained
            EXPECT_EQ(Lend(&lent, &own, nPts), pushed.Push(unit, nPts));
            EXPECT_TRUE(pushed.reports == lent.reports);
            EXPECT_TRUE(pushed.Drain() == lent.Drain());
            EXPECT_EQ(pushed.Packer()->nTimestamp, lent.Packer()->nTimestamp);
            nPts += 40;
        }
    }
}

TEST(PushedBytes, LentUnitIsNotCopied)
{
    KovaPackerProbe probe(2, 97, kSsrc);
    KovaBytes unit = Nals(2, 100);
    ASSERT_EQ(Lend(&probe, &unit), 0U);
    const auto *pNal = static_cast<KovaNalUnit *>(Video(probe)->pNalList->data);
    EXPECT_EQ(pNal->pData, unit.data() + 3);
    EXPECT_EQ(probe.Drain().size(), 1U);
}

TEST(PushedBytes, LendingAgainBeforeTheListIsDrainedIsRefused)
{
    for (const uint32_t nCodec : {1U, 2U}) {
        KovaPackerProbe probe(nCodec, 97, kSsrc);
        KovaBytes unit = nCodec == 1 ? BytesOf(KovaTestAacFrame(60)) : Nals(1, 60);
        KovaBytes other = unit;
        ASSERT_EQ(Lend(&probe, &unit, 10), 0U);
        EXPECT_EQ(Lend(&probe, &other, 20), 0x80100002U);
        EXPECT_EQ(probe.Packer()->nPts, 10U);
        EXPECT_EQ(probe.Drain().size(), 1U);
    }
    EXPECT_EQ(KovaRtpPackerTake(nullptr, nullptr, nullptr, 0, 0), 0x80100000U);
}

TEST(PushedBytes, RefusedUnitIsAsItWas)
{
    KovaPackerProbe probe(1, 96, kSsrc);
    KovaBytes unit = BytesOf(KovaTestAacFrame(60) + "left over");
    const KovaBytes before = unit;
    EXPECT_EQ(Lend(&probe, &unit), 0x80100003U);
    EXPECT_EQ(unit, before);
}

TEST(PushedBytes, FragmentUnderWayKeepsItsBytesThroughFurtherPushes)
{
    const KovaBytes nal = KovaFilled(4000, 0x41);
    KovaPackerProbe probe(2, 97, kSsrc);
    ASSERT_EQ(probe.Push(KovaJoin({{0, 0, 1}, nal}), 10), 0U);
    ASSERT_TRUE(probe.Next().has_value());
    EXPECT_EQ(probe.Push(KovaBytes(9000, 5), 20), 0x80100004U);
    KovaBytes lent = {0, 0, 1, 9, 9};
    EXPECT_EQ(Lend(&probe, &lent, 30), 0U);
    ASSERT_EQ(probe.Push(Nals(30, 900), 40), 0U);
    std::vector<KovaSeenPacket> packets = probe.Drain();
    ASSERT_EQ(packets.size(), 32U);
    KovaBytes rest;
    for (size_t n = 0; n < 2; n++) {
        const KovaBytes payload = KovaPayloadOf(packets[n]);
        rest.insert(rest.end(), payload.begin() + 2, payload.end());
    }
    EXPECT_EQ(rest, KovaBytes(nal.begin() + 1399, nal.end()));
    for (size_t n = 2; n < 32; n++)
        EXPECT_EQ(KovaPayloadOf(packets[n]), KovaFilled(900, 0x41));
}

TEST(PushedBytes, FragmentUnderWayOutlivesAPushWithoutMemory)
{
    KovaPackerProbe probe(2, 97, kSsrc);
    ASSERT_EQ(probe.Push(Nals(1, 2000), 10), 0U);
    ASSERT_TRUE(probe.Next().has_value());
    {
        const KovaFailingHeap heap;
        EXPECT_EQ(probe.Push(Nals(1, 9000), 20), 0U);
    }
    const std::vector<KovaSeenPacket> packets = probe.Drain();
    ASSERT_EQ(packets.size(), 1U);
    const KovaBytes payload = KovaPayloadOf(packets[0]);
    const KovaBytes nal = KovaFilled(2000, 0x41);
    EXPECT_EQ(KovaBytes(payload.begin() + 2, payload.end()),
              KovaBytes(nal.begin() + 1399, nal.end()));
}

TEST(PushedBytes, PacketIsOneAllocationAndAUnitNone)
{
    for (const uint32_t nCodec : {1U, 2U}) {
        KovaPackerProbe probe(nCodec, 97, kSsrc, false);
        KovaBytes unit;
        for (int n = 0; n < 12; n++)
            unit = KovaJoin({unit, nCodec == 1 ? BytesOf(KovaTestAacFrame(300)) : Nals(1, 300)});
        ASSERT_EQ(probe.Push(unit, 0), 0U);
        const size_t nPackets = probe.Drain().size();
        ASSERT_EQ(nPackets, nCodec == 1 ? 12U : 3U);
        // What the first one left is used again. One more finds out that there is no
        // packet left.
        const KovaFailingHeap heap(static_cast<int>(nPackets) + 1);
        EXPECT_EQ(probe.Push(unit, 40), 0U);
        EXPECT_EQ(probe.Drain().size(), nPackets);
        EXPECT_EQ(heap.Failed(), 0);
    }
}

TEST(PushedBytes, RoomForALargeUnitGoesWithTheNextOne)
{
    KovaPackerProbe probe(2, 97, kSsrc);
    ASSERT_EQ(probe.Push(KovaJoin({Nals(3000, 600), Nals(40000, 1)}), 0), 0U);
    const KovaUnitStore &store = Video(probe)->store;
    EXPECT_GT(store.copy.nRoom, kMostKept);
    EXPECT_GT(store.slots.nRoom, kMostKept);
    KovaRtpPackerDiscard(probe.Packer());
    ASSERT_EQ(probe.Push(Nals(2, 600), 0), 0U);
    EXPECT_EQ(probe.Drain().size(), 1U);
    EXPECT_LT(store.copy.nRoom, 10000U);
    EXPECT_LT(store.slots.nRoom, 10000U);
}

TEST(PushedBytes, ListIsWhatItAlwaysWas)
{
    KovaPackerProbe probe(2, 97, kSsrc);
    ASSERT_EQ(probe.Push(KovaJoin({{0, 0, 1, 0x65, 1, 0, 0, 1, 0x41}, Nals(1, 300)}), 0), 0U);
    const KovaRtpH264Packer *pPacker = Video(probe);
    ASSERT_EQ(KovaListLength(pPacker->pNalList), 3U);
    EXPECT_EQ(KovaListLast(pPacker->pNalList), pPacker->pNalListTail);
    EXPECT_EQ(KovaListFirst(pPacker->pNalListTail), pPacker->pNalList);
    const std::vector<KovaBytes> expected = {{0x65, 1}, {0x41}, KovaFilled(300, 0x41)};
    KovaList *pNode = pPacker->pNalList;
    for (const KovaBytes &nal : expected) {
        const auto *pNal = static_cast<KovaNalUnit *>(pNode->data);
        EXPECT_EQ(pNal->nHeader, nal[0]);
        EXPECT_EQ(KovaBytes(pNal->pData, pNal->pData + pNal->nSize), nal);
        pNode = KovaListNext(pNode);
    }
    KovaPackerProbe sound(1, 96, kSsrc);
    ASSERT_EQ(sound.Push(BytesOf(KovaTestAacFrame(3)), 0), 0U);
    const auto *pUnit = static_cast<KovaAacUnit *>(
        reinterpret_cast<KovaRtpAacPacker *>(sound.Packer())->pAuList->data);
    EXPECT_EQ(KovaBytes(pUnit->pData, pUnit->pData + 4), (KovaBytes{0, 16, 0, 3 << 3}));
    EXPECT_EQ(pUnit->nSize, 7U);
}

} // namespace
