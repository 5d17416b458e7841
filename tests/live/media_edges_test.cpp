#include "kova_live.h"
#include "live/media/aac_config.h"
#include "live/media/rtp_time.h"
#include "tests/live/media_track.h"
#include "tests/support/c_calls.h"

#include <gtest/gtest.h>

#include <atomic>

namespace {

using Nals = std::vector<std::string>;

const std::string kIdr = KovaMediaNal(0x65, 60);
const std::string kSlice = KovaMediaNal(0x41, 60);

TEST(MediaEdges, LowDelaySoundWithoutAChannelConfigurationIsNone)
{
    // ER AAC ELD, 48 kHz, channel configuration 0: it has no program config element, whatever the
    // bits behind look like. Here they look like one of a single channel.
    const std::string bytes =
        KovaMediaBytes({0xF8, 0xE6, 0x00, 0x13, 0x10, 0x00, 0x00, 0x00, 0x00, 0x00});
    KovaAacConfig config;
    EXPECT_FALSE(
        KovaAacConfigRead(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size(), &config));
}

TEST(MediaEdges, ParametricStereoMakesTwoChannelsOfOneOnly)
{
    // In front of AAC LC, 22.05 and 44.1 kHz; channel configurations 1, 2 and 6.
    const std::pair<int, uint32_t> cases[] = {{0x8A, 2}, {0x92, 2}, {0xB2, 6}};
    for (const auto &each : cases) {
        const std::string bytes = KovaMediaBytes({0xEB, each.first, 0x08, 0x00});
        KovaAacConfig config;
        ASSERT_TRUE(KovaAacConfigRead(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size(),
                                      &config));
        EXPECT_EQ(config.nRate, 44100U);
        EXPECT_EQ(config.nChannels, each.second);
    }
}

TEST(MediaEdges, BandReplicationDoublesTheRateOrLeavesItAndNothingElse)
{
    // AAC LC of 8 kHz behind 8, 16 and 48 kHz, and of 48 kHz behind 24 kHz.
    const struct {
        int nFirst;
        int nSecond;
        int nThird;
        uint32_t nRate; ///< 0: none
    } cases[] = {{0x2D, 0x95, 0x88, 8000},
                 {0x2D, 0x94, 0x08, 16000},
                 {0x2D, 0x91, 0x88, 0},
                 {0x29, 0x93, 0x08, 0}};
    for (const auto &each : cases) {
        const std::string bytes = KovaMediaBytes({each.nFirst, each.nSecond, each.nThird, 0x00});
        KovaAacConfig config;
        const bool bRead = KovaAacConfigRead(reinterpret_cast<const uint8_t *>(bytes.data()),
                                             bytes.size(), &config);
        EXPECT_EQ(bRead ? config.nRate : 0, each.nRate);
    }
}

TEST(MediaEdges, EmulationPreventionFollowsTwoZerosInARowOnly)
{
    // A message of four bytes, 0 7 0 3, of which the 3 is one, and then a recovery point.
    const std::string sei = KovaMediaBytes({6, 1, 4, 0, 7, 0, 3, 6, 1, 0xC4, 0x80});
    KovaMediaTrack track(KovaMediaConfig(KOVA_LIVE_H264));
    EXPECT_TRUE(track.Push(KovaMediaAnnexB({sei, kSlice})).bEntry);
}

TEST(MediaEdges, NothingButZerosStandsInFrontOfTheFirstStartCode)
{
    KovaMediaTrack track(KovaMediaConfig(KOVA_LIVE_H264));
    const std::string unit = KovaMediaAnnexB({kSlice});
    EXPECT_EQ(KovaMediaNals(track.Push(std::string(9, '\0') + unit)), Nals{kSlice});
    for (const std::string &front : {KovaMediaBytes({0, 5}), KovaMediaBytes({0, 5, 0}),
                                     KovaMediaBytes({5, 0}), KovaMediaBytes({0, 1})})
        EXPECT_EQ(track.Push(front + unit).nResult, KOVA_LIVE_ERROR_DATA);
}

TEST(MediaEdges, UnitWithoutASliceCountsAsAReference)
{
    // Nobody can tell what it is for, so it must not be the first to be left out.
    KovaMediaTrack track(KovaMediaConfig(KOVA_LIVE_H264));
    for (const int nHeader : {0x06, 0x0A, 0x0B, 0x13}) {
        const KovaMediaUnit unit = track.Push(KovaMediaAnnexB({KovaMediaNal(nHeader, 9)}));
        EXPECT_TRUE(unit.bUnit && unit.bReference) << nHeader;
    }
    const std::string sei = KovaMediaNal(0x06, 9);
    EXPECT_FALSE(track.Push(KovaMediaAnnexB({sei, KovaMediaNal(0x01, 9)})).bReference);
}

TEST(MediaEdges, DataPartitionsAreSlices)
{
    KovaMediaTrack track(KovaMediaConfig(KOVA_LIVE_H264));
    for (const int nType : {2, 3, 4}) {
        EXPECT_FALSE(track.Push(KovaMediaAnnexB({KovaMediaNal(nType, 9)})).bReference) << nType;
        EXPECT_TRUE(track.Push(KovaMediaAnnexB({KovaMediaNal(0x20 | nType, 9)})).bReference);
    }
}

TEST(MediaEdges, OneNalUnitOfSeveralMakesAnEntryOrAReference)
{
    KovaMediaTrack track(KovaMediaConfig(KOVA_LIVE_H264));
    const std::string recovery = KovaMediaBytes({6, 6, 1, 0xC4, 0x80});
    const std::string other = KovaMediaBytes({6, 5, 2, 1, 1, 0x80});
    const std::string sparable = KovaMediaNal(0x01, 9);
    for (const Nals &nals : {Nals{recovery, other, sparable}, Nals{other, recovery, sparable}}) {
        const KovaMediaUnit unit = track.Push(KovaMediaAnnexB(nals));
        EXPECT_TRUE(unit.bEntry && !unit.bReference);
    }
    for (const Nals &nals : {Nals{kSlice, sparable}, Nals{sparable, kSlice}}) {
        const KovaMediaUnit unit = track.Push(KovaMediaAnnexB(nals));
        EXPECT_TRUE(!unit.bEntry && unit.bReference);
    }
    for (const Nals &nals : {Nals{kIdr, kSlice}, Nals{kSlice, kIdr}})
        EXPECT_TRUE(track.Push(KovaMediaAnnexB(nals)).bKey);
}

TEST(MediaEdges, ParameterSetsOf1024BytesAreRemembered)
{
    KovaMediaTrack track(KovaMediaConfig(KOVA_LIVE_H264));
    const std::string sps = KovaMediaBytes({0x67, 0x64, 0x10, 0x28, 0xC0}) + std::string(1019, 's');
    const std::string pps = KovaMediaBytes({0x68, 0xE0}) + std::string(1022, 'p');
    track.Push(KovaMediaAnnexB({sps, pps, kIdr}));
    EXPECT_EQ(KovaMediaNals(track.Push(KovaMediaAnnexB({kIdr}))), (Nals{sps, pps, kIdr}));
    // One byte more only goes through; what was there before is not touched.
    track.Push(KovaMediaAnnexB({sps + 's', pps + 'p', kIdr}));
    EXPECT_EQ(KovaMediaNals(track.Push(KovaMediaAnnexB({kIdr}))), (Nals{sps, pps, kIdr}));
}

TEST(MediaEdges, OneBadGivenSetRefusesTheTrack)
{
    const std::string sps = KovaMediaBytes({0x67, 0x64, 0x10, 0x28, 0xC0, 0x55});
    const std::string pps = KovaMediaBytes({0x68, 0xE0, 0x55});
    const auto created = [](const std::string &givenSps, const std::string &givenPps) {
        KovaLiveTrackConfig config = KovaMediaConfig(KOVA_LIVE_H264);
        config.sps = reinterpret_cast<const uint8_t *>(givenSps.data());
        config.sps_size = static_cast<uint32_t>(givenSps.size());
        config.pps = reinterpret_cast<const uint8_t *>(givenPps.data());
        config.pps_size = static_cast<uint32_t>(givenPps.size());
        return KovaMediaTrack(config).Created();
    };
    EXPECT_EQ(created(sps, pps), KOVA_LIVE_OK);
    EXPECT_EQ(created(pps, pps), KOVA_LIVE_ERROR_DATA);
    EXPECT_EQ(created(sps, sps), KOVA_LIVE_ERROR_DATA);
    EXPECT_EQ(created(sps.substr(0, 4), pps), KOVA_LIVE_ERROR_DATA);
    EXPECT_EQ(created(sps, pps.substr(0, 1)), KOVA_LIVE_ERROR_DATA);
}

TEST(MediaEdges, SoundStepsAsLongAsItIsNoFurtherAwayThanHalfAFrameOr20Milliseconds)
{
    const struct {
        uint32_t nFrameTicks;
        uint32_t nRate;
        uint32_t nMost;
    } cases[] = {{1024, 44100, 512}, {1024, 8000, 160}, {2048, 48000, 960}, {480, 48000, 240}};
    constexpr uint32_t kNext = 5; // so that the distances reach over the wrap
    for (const auto &each : cases) {
        const auto timeOf = [&](uint32_t nPushed) {
            return KovaSoundTimeOf({true, kNext}, nPushed, each.nFrameTicks, each.nRate);
        };
        const uint32_t nLate = kNext + each.nMost;
        const uint32_t nEarly = kNext - each.nMost;
        EXPECT_EQ(timeOf(nLate), kNext);
        EXPECT_EQ(timeOf(nLate + 1), nLate + 1);
        EXPECT_EQ(timeOf(nEarly), kNext);
        EXPECT_EQ(timeOf(nEarly - 1), nEarly - 1);
    }
}

TEST(MediaEdges, PacketsMayBeAsLargeAsAnInterleavedFrame)
{
    KovaMediaTrack track(KovaMediaConfig(KOVA_LIVE_H264), 65535);
    ASSERT_EQ(track.Created(), KOVA_LIVE_OK);
    const std::string nal = KovaMediaNal(0x41, 65535 - 12);
    const KovaMediaUnit unit = track.Push(KovaMediaAnnexB({nal}));
    ASSERT_EQ(unit.packets.size(), 1U);
    EXPECT_EQ(unit.packets[0].payload, nal);
    EXPECT_EQ(track.Push(KovaMediaAnnexB({nal + 'x'})).packets.size(), 2U);
}

TEST(MediaEdges, ConfigurationOfSoundMayHave64Bytes)
{
    const std::string bytes = KovaMediaBytes({0x12, 0x10}) + std::string(62, '\0');
    KovaLiveTrackConfig config = KovaMediaConfig(KOVA_LIVE_AAC, KOVA_LIVE_FORM_RAW);
    config.audio_config = reinterpret_cast<const uint8_t *>(bytes.data());
    config.audio_config_size = 64;
    KovaMediaTrack track(config);
    ASSERT_EQ(track.Created(), KOVA_LIVE_OK);
    EXPECT_NE(track.Description().find("config=1210" + std::string(124, '0') + "\r\n"),
              std::string::npos);
}

TEST(MediaEdges, PushThatGivesNoUnitTellsSo)
{
    KovaMediaTrack track(KovaMediaConfig(KOVA_LIVE_H264));
    const std::string sps = KovaMediaAnnexB({KovaMediaBytes({0x67, 0x64, 0x10, 0x28, 0xC0, 1})});
    const std::string large(16 * 1024 * 1024 + 1, 'x');
    const std::pair<const std::string *, int32_t> pushes[] = {
        {&sps, KOVA_LIVE_OK}, {&kSlice, KOVA_LIVE_ERROR_DATA}, {&large, KOVA_LIVE_ERROR_TOO_LARGE}};
    for (const auto &push : pushes) {
        KovaUnit earlier = {};
        KovaUnit *pUnit = &earlier;
        EXPECT_EQ(KovaTrackMediaCut(track.Media(),
                                    reinterpret_cast<const uint8_t *>(push.first->data()),
                                    push.first->size(), 0, &pUnit),
                  push.second);
        EXPECT_EQ(pUnit, nullptr);
    }
}

std::atomic<int> g_nHeld{0};
std::atomic<bool> g_bEmpty{false}; ///< the heap gives nothing

void *HoldingCalloc(size_t nCount, size_t nSize)
{
    void *pBlock = g_bEmpty ? nullptr : __real_calloc(nCount, nSize);
    g_nHeld += pBlock != nullptr ? 1 : 0;
    return pBlock;
}

void HoldingFree(void *pBlock)
{
    g_nHeld -= pBlock != nullptr ? 1 : 0;
    __real_free(pBlock);
}

/// What the library holds of the heap, by its own calls, since this lives.
struct Held {
    Held()
    {
        g_nHeld = 0;
        KovaReplaceCall<__real_calloc>(HoldingCalloc);
        KovaReplaceCall<__real_free>(HoldingFree);
    }
    ~Held()
    {
        KovaReplaceCall<__real_calloc>(nullptr);
        KovaReplaceCall<__real_free>(nullptr);
    }
};

TEST(MediaEdges, TrackThatIsDestroyedLeavesNothingBehind)
{
    const Held held;
    {
        KovaMediaTrack video(KovaMediaConfig(KOVA_LIVE_H264));
        KovaMediaTrack sound(KovaMediaConfig(KOVA_LIVE_AAC));
        Nals nals(200, kSlice); // more than the first list of NAL units holds
        nals.insert(nals.begin(), {KovaMediaBytes({0x67, 0x64, 0x10, 0x28, 0xC0, 0x55}),
                                   KovaMediaBytes({0x68, 0xE0, 0x55})});
        video.Push(KovaMediaAnnexB(nals));
        nals[1].back() = 0x56; // another set in the place of the first one
        video.Push(KovaMediaAnnexB(nals));
        EXPECT_EQ(video.Push("x" + KovaMediaAnnexB(nals)).nResult, KOVA_LIVE_ERROR_DATA);
        sound.Push(KovaMediaAdts("abcdef"));
        EXPECT_TRUE(KovaTrackMediaKnown(video.Media()));
        EXPECT_GT(g_nHeld, 0);
    }
    EXPECT_EQ(g_nHeld, 0);
}

TEST(MediaEdges, PoolThatLackedMemoryForAUnitIsFreedAtItsEnd)
{
    const Held held;
    KovaUnitPool *pPool = KovaUnitPoolCreate();
    ASSERT_NE(pPool, nullptr);
    g_bEmpty = true;
    EXPECT_EQ(KovaUnitPoolTake(pPool, 1, 100), nullptr);
    g_bEmpty = false;
    KovaUnit *pUnit = KovaUnitPoolTake(pPool, 1, 100);
    ASSERT_NE(pUnit, nullptr);
    KovaUnitPoolDestroy(pPool);
    EXPECT_EQ(g_nHeld, 2) << "the pool stays for its last unit";
    KovaUnitRelease(pUnit);
    EXPECT_EQ(g_nHeld, 0);
}

} // namespace
