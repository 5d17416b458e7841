#include "kova_live.h"
#include "tests/support/fake_clock.h"
#include "tests/support/live_client.h"

#include <gtest/gtest.h>

#include <string>

// When the sound of a player begins who has just come.

namespace {

using namespace std::string_literals;

constexpr uint8_t kSps[] = {0x67, 0x42, 0x00, 0x1E, 0x8D, 0x68, 0x05, 0x0F};
constexpr uint8_t kPps[] = {0x68, 0xCE, 0x06, 0xE2};
const std::string kKeyPicture = "\0\0\0\1\x65\x88\x84\x33"s;
const std::string kPicture = "\0\0\0\1\x41\x9A\x24\x6C"s;

/// A stream with a picture, track 1, and sound, track 2, both known from the beginning.
class NewcomerSound : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(KovaLiveOpen(nullptr, &m_pLive), KOVA_LIVE_OK);
        KovaLiveStream *pStream = nullptr;
        ASSERT_EQ(KovaLiveAddStream(m_pLive, "cam", nullptr, &pStream), KOVA_LIVE_OK);
        KovaLiveTrackConfig track = {};
        track.size = sizeof(track);
        track.codec = KOVA_LIVE_H264;
        track.sps = kSps;
        track.sps_size = sizeof(kSps);
        track.pps = kPps;
        track.pps_size = sizeof(kPps);
        ASSERT_EQ(KovaLiveAddTrack(pStream, &track, &m_pPicture), KOVA_LIVE_OK);
        const uint8_t config[] = {0x11, 0x90};
        track = {};
        track.size = sizeof(track);
        track.codec = KOVA_LIVE_AAC;
        track.form = KOVA_LIVE_FORM_RAW;
        track.audio_config = config;
        track.audio_config_size = sizeof(config);
        ASSERT_EQ(KovaLiveAddTrack(pStream, &track, &m_pSound), KOVA_LIVE_OK);
        uint16_t nPort = 0;
        ASSERT_EQ(KovaLivePort(m_pLive, &nPort), KOVA_LIVE_OK);
        ASSERT_TRUE(m_client.Connect(nPort));
    }
    void TearDown() override
    {
        KovaLiveClose(m_pLive);
    }

    void Push(KovaLiveTrack *pTrack, const std::string &unit)
    {
        m_nTime += 20000;
        ASSERT_EQ(KovaLivePush(pTrack, unit.data(), unit.size(), m_nTime), KOVA_LIVE_OK);
    }

    /// The first frame of sound that comes, behind its AU headers.
    std::string FirstSound()
    {
        KovaLiveRtp packet;
        EXPECT_TRUE(m_client.NextRtp(2, &packet));
        return packet.payload.size() > 4 ? packet.payload.substr(4) : "";
    }

    KovaLive *m_pLive = nullptr;
    KovaLiveTrack *m_pPicture = nullptr;
    KovaLiveTrack *m_pSound = nullptr;
    KovaLiveClient m_client;
    int64_t m_nTime = 0;
};

TEST_F(NewcomerSound, BeginsWithThePicture)
{
    ASSERT_EQ(m_client.SetupTcp("cam", 1).nStatus, 200);
    ASSERT_EQ(m_client.SetupTcp("cam", 2).nStatus, 200);
    ASSERT_EQ(m_client.Play("cam").nStatus, 200);
    Push(m_pSound, "early");
    Push(m_pPicture, kPicture);
    Push(m_pSound, "early too");
    Push(m_pPicture, kKeyPicture);
    Push(m_pSound, "in time");
    EXPECT_EQ(FirstSound(), "in time");
}

TEST_F(NewcomerSound, BeginsWithThePictureBehindAPauseToo)
{
    ASSERT_EQ(m_client.SetupUdp("cam", 1).nStatus, 200);
    ASSERT_EQ(m_client.SetupUdp("cam", 2).nStatus, 200);
    ASSERT_EQ(m_client.Play("cam").nStatus, 200);
    Push(m_pPicture, kKeyPicture);
    Push(m_pSound, "first");
    EXPECT_EQ(FirstSound(), "first");
    ASSERT_EQ(m_client.Pause("cam").nStatus, 200);
    ASSERT_EQ(m_client.Play("cam").nStatus, 200);
    Push(m_pSound, "early");
    Push(m_pPicture, kKeyPicture);
    Push(m_pSound, "in time");
    EXPECT_EQ(FirstSound(), "in time");
}

TEST_F(NewcomerSound, WaitsNoLongerThanFiveSeconds)
{
    KovaFakeClock clock;
    ASSERT_EQ(m_client.SetupTcp("cam", 1).nStatus, 200);
    ASSERT_EQ(m_client.SetupTcp("cam", 2).nStatus, 200);
    ASSERT_EQ(m_client.Play("cam").nStatus, 200);
    Push(m_pSound, "early");
    Push(m_pPicture, kPicture);
    // Whoever has answered twice since has handed out what was pushed before.
    ASSERT_EQ(m_client.Options().nStatus, 200);
    ASSERT_EQ(m_client.Options().nStatus, 200);
    clock.AdvanceMonotonic(6);
    // A round of the engine that had begun goes by the time before.
    KovaLiveRtp packet;
    bool bCame = false;
    for (int nTry = 0; nTry < 100 && !bCame; nTry++) {
        Push(m_pSound, "alone");
        bCame = m_client.NextRtp(2, &packet, 50);
    }
    ASSERT_TRUE(bCame);
    EXPECT_EQ(packet.payload.substr(4), "alone");
}

TEST_F(NewcomerSound, AloneBeginsAtOnce)
{
    ASSERT_EQ(m_client.SetupTcp("cam", 2).nStatus, 200);
    ASSERT_EQ(m_client.Play("cam").nStatus, 200);
    Push(m_pSound, "first");
    EXPECT_EQ(FirstSound(), "first");
}

} // namespace
