#include "kova_live.h"
#include "tests/live/media_track.h"

#include <gtest/gtest.h>

namespace {

using Nals = std::vector<std::string>;

const std::string kIdr = KovaMediaNal(0x65, 60);
const std::string kSlice = KovaMediaNal(0x41, 60);
const std::string kSei = KovaMediaBytes({6, 5, 2, 1, 1, 0x80});
const std::string kRecovery = KovaMediaBytes({6, 6, 1, 0xC4, 0x80});

/// Numbers in Exp-Golomb code, one behind the other, and a stop bit.
std::string Golomb(std::initializer_list<unsigned> numbers)
{
    std::string bits;
    for (const unsigned nNumber : numbers) {
        unsigned nLength = 0;
        while ((nNumber + 1) >> (nLength + 1) != 0)
            nLength++;
        bits += std::string(nLength, '0');
        for (unsigned n = 0; n <= nLength; n++)
            bits += static_cast<char>('0' + ((nNumber + 1) >> (nLength - n) & 1));
    }
    bits += '1';
    std::string bytes;
    for (size_t nAt = 0; nAt < bits.size(); nAt += 8) {
        bits.resize((bits.size() + 7) / 8 * 8, '0');
        bytes += static_cast<char>(std::stoi(bits.substr(nAt, 8), nullptr, 2));
    }
    return bytes;
}

std::string Sps(unsigned nId, const std::string &rest = "s")
{
    return KovaMediaBytes({0x67, 0x64, 0x10, 0x28}) + Golomb({nId}) + rest;
}

std::string Pps(unsigned nId, unsigned nSps = 0, const std::string &rest = "p")
{
    return KovaMediaBytes({0x68}) + Golomb({nId, nSps}) + rest;
}

struct MediaParameterSets : testing::Test {
    KovaMediaTrack track{KovaMediaConfig(KOVA_LIVE_H264)};

    Nals Pushed(const Nals &nals)
    {
        const KovaMediaUnit unit = track.Push(KovaMediaAnnexB(nals));
        EXPECT_EQ(unit.nResult, KOVA_LIVE_OK);
        return KovaMediaNals(unit);
    }
};

TEST_F(MediaParameterSets, GoBeforeEachIdrThatDoesNotCarryThem)
{
    EXPECT_EQ(Pushed({Sps(0), Pps(0), kIdr}), (Nals{Sps(0), Pps(0), kIdr}));
    EXPECT_EQ(Pushed({kSlice}), Nals{kSlice});
    EXPECT_EQ(Pushed({kIdr}), (Nals{Sps(0), Pps(0), kIdr}));
    EXPECT_EQ(Pushed({kSei, kIdr}), (Nals{Sps(0), Pps(0), kSei, kIdr}));
    EXPECT_EQ(Pushed({Sps(0), kIdr}), (Nals{Sps(0), Pps(0), kIdr}));
    EXPECT_EQ(Pushed({Pps(0), kIdr}), (Nals{Sps(0), Pps(0), kIdr}));
    EXPECT_EQ(Pushed({Sps(0), Pps(0), kIdr}), (Nals{Sps(0), Pps(0), kIdr}));
}

TEST_F(MediaParameterSets, GoBeforeEachRecoveryPoint)
{
    Pushed({Sps(0), Pps(0), kIdr});
    EXPECT_EQ(Pushed({kRecovery, kSlice}), (Nals{Sps(0), Pps(0), kRecovery, kSlice}));
}

TEST_F(MediaParameterSets, SpsComeBeforeEverythingAndPpsBehindTheUnitsOwnSets)
{
    Pushed({Sps(0), Sps(1), Pps(0), Pps(1, 1), kIdr});
    const std::string newSps = Sps(0, "new");
    EXPECT_EQ(Pushed({newSps, kSei, kIdr}), (Nals{Sps(1), newSps, Pps(0), Pps(1, 1), kSei, kIdr}));
    EXPECT_EQ(Pushed({Pps(1, 1), kIdr}), (Nals{newSps, Sps(1), Pps(1, 1), Pps(0), kIdr}));
}

TEST_F(MediaParameterSets, PpsComeBehindTheUnitsOtherSetsToo)
{
    Pushed({Sps(0), Pps(0), kIdr});
    const std::string extension = KovaMediaNal(0x6D, 5);
    const std::string subset = KovaMediaNal(0x6F, 9);
    EXPECT_EQ(Pushed({extension, subset, kIdr}), (Nals{Sps(0), extension, subset, Pps(0), kIdr}));
}

TEST_F(MediaParameterSets, AloneAreRememberedAndNotSent)
{
    const KovaMediaUnit unit = track.Push(KovaMediaAnnexB({Sps(0), Pps(0)}));
    EXPECT_EQ(unit.nResult, KOVA_LIVE_OK);
    EXPECT_FALSE(unit.bUnit);
    EXPECT_TRUE(KovaTrackMediaKnown(track.Media()));
    EXPECT_EQ(Pushed({kIdr}), (Nals{Sps(0), Pps(0), kIdr}));
}

TEST_F(MediaParameterSets, ThatChangedAloneGoBeforeTheNextPictureWhateverItIs)
{
    Pushed({Sps(0), Pps(0), Pps(1), kIdr});
    const std::string newPps = Pps(1, 0, "new");
    EXPECT_FALSE(track.Push(KovaMediaAnnexB({newPps})).bUnit);
    EXPECT_EQ(Pushed({kSlice}), (Nals{newPps, kSlice}));
    EXPECT_EQ(Pushed({kSlice}), Nals{kSlice});
    EXPECT_FALSE(track.Push(KovaMediaAnnexB({newPps})).bUnit);
    EXPECT_EQ(Pushed({kSlice}), Nals{kSlice});
}

TEST_F(MediaParameterSets, OfSeveralIdsAreKept)
{
    Nals nals;
    for (unsigned nId = 0; nId < 4; nId++)
        nals.push_back(Sps(nId * 10));
    for (unsigned nId = 0; nId < 8; nId++)
        nals.push_back(Pps(nId * 36, 30));
    nals.push_back(kIdr);
    EXPECT_EQ(Pushed(nals), nals);
    EXPECT_EQ(Pushed({kIdr}), nals);
}

TEST_F(MediaParameterSets, OldestIsForgottenWhenThereAreTooMany)
{
    for (const unsigned nId : {0U, 1U, 2U, 3U})
        Pushed({Sps(nId), Pps(nId), kIdr});
    const std::string newFirst = Sps(0, "new");
    Pushed({newFirst, Sps(4), kIdr});
    EXPECT_EQ(Pushed({kIdr}),
              (Nals{newFirst, Sps(4), Sps(2), Sps(3), Pps(0), Pps(1), Pps(2), Pps(3), kIdr}));
}

TEST_F(MediaParameterSets, BehindASliceDoNotServeIt)
{
    Pushed({Sps(0), Pps(0), kIdr});
    EXPECT_EQ(Pushed({kIdr, Pps(0)}), (Nals{Sps(0), Pps(0), kIdr, Pps(0)}));
}

TEST_F(MediaParameterSets, ThatAreNoneOnlyGoThrough)
{
    const std::string large = Sps(0, std::string(1020, 'x'));
    ASSERT_EQ(large.size(), 1025U);
    for (const std::string &odd :
         {KovaMediaBytes({0x67}), KovaMediaBytes({0x67, 0x64, 0x10, 0x28}), Sps(32),
          KovaMediaBytes({0x68}), Pps(256), Pps(0, 32), KovaMediaBytes({0x68, 1}),
          KovaMediaBytes({0x68, 0, 0, 3, 0, 0, 3, 0x80, 1, 1, 1, 1, 0xFF}), large}) {
        EXPECT_EQ(Pushed({odd, kIdr}), (Nals{odd, kIdr}));
        EXPECT_EQ(Pushed({kIdr}), Nals{kIdr});
    }
    EXPECT_FALSE(KovaTrackMediaKnown(track.Media()));
    EXPECT_EQ(track.Description(), "");
    EXPECT_EQ(Pushed({Sps(31), Pps(255, 31), kIdr}).size(), 3U);
    EXPECT_EQ(Pushed({kIdr}).size(), 3U);
}

TEST_F(MediaParameterSets, IdsAreReadBehindEmulationPrevention)
{
    const std::string escaped = KovaMediaBytes({0x67, 0x42, 0, 0, 3, 0x01, 0x40, 0x80});
    Pushed({escaped, Pps(0), kIdr});
    // That would be id 159, so it is none; the next one's is 9.
    EXPECT_EQ(Pushed({kIdr}), (Nals{Pps(0), kIdr}));
    const std::string nine = KovaMediaBytes({0x67, 0x42, 0, 0, 3, 0x14, 0x80});
    Pushed({nine, kIdr});
    EXPECT_EQ(Pushed({kIdr}), (Nals{nine, Pps(0), kIdr}));
    const std::string newNine = KovaMediaBytes({0x67, 0x42, 0x10, 0x20, 0x14, 0x80});
    Pushed({newNine, kIdr});
    EXPECT_EQ(Pushed({kIdr}), (Nals{newNine, Pps(0), kIdr}));
}

TEST(MediaGivenSets, AreDescribedAtOnceAndGoBeforeTheFirstIdr)
{
    const std::string sps = Sps(0);
    const std::string pps = Pps(0) + std::string(2, '\0');
    KovaLiveTrackConfig config = KovaMediaConfig(KOVA_LIVE_H264);
    config.sps = reinterpret_cast<const uint8_t *>(sps.data());
    config.sps_size = static_cast<uint32_t>(sps.size());
    config.pps = reinterpret_cast<const uint8_t *>(pps.data());
    config.pps_size = static_cast<uint32_t>(pps.size());
    KovaMediaTrack track(config);
    ASSERT_EQ(track.Created(), KOVA_LIVE_OK);
    EXPECT_TRUE(KovaTrackMediaKnown(track.Media()));
    // The description has them: they need not go out with a picture that nobody begins at.
    EXPECT_EQ(KovaMediaNals(track.Push(KovaMediaAnnexB({kSlice}))), Nals{kSlice});
    EXPECT_EQ(KovaMediaNals(track.Push(KovaMediaAnnexB({kIdr}))), (Nals{sps, Pps(0), kIdr}));
    const std::string newSps = Sps(0, "new");
    track.Push(KovaMediaAnnexB({newSps, kIdr}));
    EXPECT_EQ(KovaMediaNals(track.Push(KovaMediaAnnexB({kIdr}))), (Nals{newSps, Pps(0), kIdr}));
}

TEST(MediaGivenSets, ThatAreNoneAreRefused)
{
    const std::string sps = Sps(0);
    const std::string code = KovaMediaAnnexB({sps});
    const uint8_t *pSps = reinterpret_cast<const uint8_t *>(sps.data());
    const uint8_t *pCode = reinterpret_cast<const uint8_t *>(code.data());
    const uint32_t nSps = static_cast<uint32_t>(sps.size());
    KovaLiveTrackConfig config = KovaMediaConfig(KOVA_LIVE_H264);
    config.sps = pCode;
    config.sps_size = static_cast<uint32_t>(code.size());
    EXPECT_EQ(KovaMediaTrack(config).Created(), KOVA_LIVE_ERROR_DATA);
    config.sps = pCode; // zero bytes only
    config.sps_size = 3;
    EXPECT_EQ(KovaMediaTrack(config).Created(), KOVA_LIVE_ERROR_DATA);
    config.sps = nullptr;
    EXPECT_EQ(KovaMediaTrack(config).Created(), KOVA_LIVE_ERROR_ARGUMENT);
    config.sps_size = 0;
    config.pps_size = 1;
    EXPECT_EQ(KovaMediaTrack(config).Created(), KOVA_LIVE_ERROR_ARGUMENT);
    config.pps = pSps;
    config.pps_size = nSps;
    EXPECT_EQ(KovaMediaTrack(config).Created(), KOVA_LIVE_ERROR_DATA);
}

TEST_F(MediaParameterSets, AreDescribed)
{
    EXPECT_EQ(track.Description(), "");
    EXPECT_FALSE(KovaTrackMediaKnown(track.Media()));
    Pushed({Sps(0), kIdr});
    EXPECT_EQ(track.Description(), "");
    Pushed({Pps(0), kIdr});
    EXPECT_TRUE(KovaTrackMediaKnown(track.Media()));
    EXPECT_EQ(track.Description(), "m=video 0 RTP/AVP 97\r\n"
                                   "a=rtpmap:97 H264/90000\r\n"
                                   "a=fmtp:97 packetization-mode=1;profile-level-id=641028;"
                                   "sprop-parameter-sets=Z2QQKMBz,aOBw\r\n"
                                   "a=control:track1\r\n");
    Pushed({KovaMediaBytes({0x67, 0x42, 0xC0, 0x0A, 0xC0, 1}), Pps(1), kIdr});
    EXPECT_EQ(track.Description(), "m=video 0 RTP/AVP 97\r\n"
                                   "a=rtpmap:97 H264/90000\r\n"
                                   "a=fmtp:97 packetization-mode=1;profile-level-id=42C00A;"
                                   "sprop-parameter-sets=Z0LACsAB,aOBw,aFhw\r\n"
                                   "a=control:track1\r\n");
}

TEST_F(MediaParameterSets, DescriptionFitsOrLeavesTheTextAsItWas)
{
    Pushed({Sps(0), Pps(0), Pps(1), kIdr});
    const std::string whole = track.Description();
    for (size_t nCapacity = 4; nCapacity < whole.size() + 8; nCapacity++) {
        std::vector<char> text(nCapacity, 'x');
        memcpy(text.data(), "abc", 4);
        size_t nLength = 3;
        const bool bFits = KovaTrackMediaDescribe(track.Media(), text.data(), nCapacity, &nLength);
        EXPECT_EQ(bFits, nCapacity > whole.size() + 3);
        EXPECT_EQ(std::string(text.data()), bFits ? "abc" + whole : "abc");
        EXPECT_EQ(nLength, bFits ? whole.size() + 3 : 3);
    }
}

} // namespace
