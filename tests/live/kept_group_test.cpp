#include "kova_live.h"
#include "tests/support/live_client.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

// Newcomers who are given the current picture group from memory.

namespace {

using namespace std::string_literals;

constexpr uint32_t kGroupPictures = 10;

struct KeptGroupTest : testing::Test {
    KovaLive *pLive = nullptr;
    KovaLiveStream *pStream = nullptr;
    KovaLiveTrack *pVideo = nullptr;
    std::atomic<uint32_t> nOverflows{0};
    int64_t nTime = 0;

    void Open(uint32_t nPlayerBytes, uint32_t nDelayMs = 0)
    {
        KovaLiveConfig config = {};
        config.size = sizeof(config);
        config.address = "127.0.0.1";
        config.player_max_bytes = nPlayerBytes;
        config.player_stall_ms = 60000;
        config.delay_ms = nDelayMs;
        config.context = this;
        config.on_event = [](void *pTest, const KovaLiveEvent *pEvent) {
            if (pEvent->type == KOVA_LIVE_EVENT_OVERFLOW)
                static_cast<KeptGroupTest *>(pTest)->nOverflows++;
        };
        ASSERT_EQ(KovaLiveOpen(&config, &pLive), KOVA_LIVE_OK);
        KovaLiveStreamConfig stream = {};
        stream.size = sizeof(stream);
        stream.keep_group = 1;
        stream.keep_max_bytes = 64 * 1024 * 1024;
        ASSERT_EQ(KovaLiveAddStream(pLive, "cam", &stream, &pStream), KOVA_LIVE_OK);
        KovaLiveTrackConfig track = {};
        track.size = sizeof(track);
        track.codec = KOVA_LIVE_H264;
        ASSERT_EQ(KovaLiveAddTrack(pStream, &track, &pVideo), KOVA_LIVE_OK);
    }
    ~KeptGroupTest() override
    {
        KovaLiveClose(pLive);
    }

    /// An IDR picture, with its parameter sets, or another one.
    void Push(bool bKey, size_t nSize)
    {
        std::string unit = bKey ? "\0\0\0\1\x67\x42\xC0\x1E\xDA\x02\x80\xBF\xE5\xC0"
                                  "\0\0\0\1\x68\xCE\x3C\x80\0\0\0\1\x65\x88"s
                                : "\0\0\0\1\x41\x9A"s;
        unit.append(nSize, '\x55');
        ASSERT_EQ(KovaLivePush(pVideo, unit.data(), unit.size(), nTime), KOVA_LIVE_OK);
        nTime += 40000;
    }
    void PushGroup(size_t nSize)
    {
        for (uint32_t nPicture = 0; nPicture < kGroupPictures; nPicture++)
            Push(nPicture == 0, nSize);
    }

    /// A player with a small window, so that what it does not read waits in the server.
    void Join(KovaLiveClient *pClient)
    {
        uint16_t nPort = 0;
        KovaLivePort(pLive, &nPort);
        ASSERT_TRUE(pClient->Connect(nPort));
        constexpr int kSmall = 65536;
        setsockopt(pClient->Rtsp().Socket(), SOL_SOCKET, SO_RCVBUF, &kSmall, sizeof(kSmall));
        ASSERT_EQ(pClient->Describe("cam").nStatus, 200);
        ASSERT_EQ(pClient->SetupTcp("cam", 1).nStatus, 200);
        ASSERT_EQ(pClient->Play("cam").nStatus, 200);
    }

    /// How many pictures come.
    static uint32_t TakePictures(KovaLiveClient *pClient, uint32_t nMost)
    {
        uint32_t nPictures = 0;
        KovaLiveRtp packet;
        while (nPictures < nMost && pClient->NextRtp(1, &packet))
            nPictures += packet.header.bMarker ? 1 : 0;
        return nPictures;
    }

    uint64_t Late() const
    {
        KovaLiveStreamNumbers numbers = {};
        numbers.size = sizeof(numbers);
        KovaLiveStreamFigures(pStream, &numbers);
        return numbers.late_packets;
    }
};

TEST_F(KeptGroupTest, GroupThatIsLargerThanWhatMayWaitIsGivenWhole)
{
    ASSERT_NO_FATAL_FAILURE(Open(256 * 1024));
    PushGroup(1000000);
    KovaLiveClient client;
    ASSERT_NO_FATAL_FAILURE(Join(&client));
    Push(false, 1000);
    EXPECT_EQ(TakePictures(&client, kGroupPictures + 1), kGroupPictures + 1);
    EXPECT_EQ(nOverflows, 0U);
    EXPECT_EQ(Late(), 0U);
}

TEST_F(KeptGroupTest, GroupThatIsOlderThanWhatMayWaitIsGivenWhole)
{
    ASSERT_NO_FATAL_FAILURE(Open(64 * 1024 * 1024));
    PushGroup(1000000);
    std::this_thread::sleep_for(std::chrono::milliseconds(2100));
    KovaLiveClient client;
    ASSERT_NO_FATAL_FAILURE(Join(&client));
    Push(false, 1000);
    EXPECT_EQ(TakePictures(&client, kGroupPictures + 1), kGroupPictures + 1);
    EXPECT_EQ(nOverflows, 0U);
    EXPECT_EQ(Late(), 0U);
}

TEST_F(KeptGroupTest, ReportStandsInFrontOfTheGroup)
{
    ASSERT_NO_FATAL_FAILURE(Open(64 * 1024 * 1024));
    PushGroup(1000);
    KovaLiveClient client;
    ASSERT_NO_FATAL_FAILURE(Join(&client));
    EXPECT_EQ(TakePictures(&client, kGroupPictures), kGroupPictures);
    std::string report;
    ASSERT_TRUE(client.NextRtcp(1, &report));
    ASSERT_GE(report.size(), 28U);
    EXPECT_EQ(static_cast<uint8_t>(report[1]), 200); // a sender report (RFC 3550, 6.4.1)
    // The sender's packet count: none was sent before.
    EXPECT_EQ(report.substr(20, 4), "\0\0\0\0"s);
}

/// Takes so many pictures, each packet of which must stand right behind the one before.
void TakeInOrder(KovaLiveClient *pClient, uint32_t nPictures)
{
    KovaLiveRtp packet;
    ASSERT_TRUE(pClient->NextRtp(1, &packet));
    uint32_t nTaken = packet.header.bMarker ? 1 : 0;
    while (nTaken < nPictures) {
        const uint16_t nNext = static_cast<uint16_t>(packet.header.nSequence + 1);
        ASSERT_TRUE(pClient->NextRtp(1, &packet)) << "picture " << nTaken;
        ASSERT_EQ(packet.header.nSequence, nNext) << "picture " << nTaken;
        nTaken += packet.header.bMarker ? 1 : 0;
    }
}

TEST_F(KeptGroupTest, NobodyGetsWhatIsDelayedBeforeItsTime)
{
    constexpr std::chrono::milliseconds kDelay{1500};
    ASSERT_NO_FATAL_FAILURE(Open(64 * 1024 * 1024, kDelay.count()));
    PushGroup(1000);
    std::this_thread::sleep_for(kDelay);
    const auto begin = std::chrono::steady_clock::now();
    for (uint32_t nPicture = 0; nPicture < 3; nPicture++)
        Push(false, 1000);
    // The first one finds nothing under way, the second one what the first one has brought.
    KovaLiveClient first;
    ASSERT_NO_FATAL_FAILURE(Join(&first));
    KovaLiveClient second;
    ASSERT_NO_FATAL_FAILURE(Join(&second));
    Push(false, 1000);
    for (KovaLiveClient *pClient : {&first, &second}) {
        ASSERT_NO_FATAL_FAILURE(TakeInOrder(pClient, kGroupPictures + 1));
        EXPECT_GE(std::chrono::steady_clock::now() - begin, kDelay);
        ASSERT_NO_FATAL_FAILURE(TakeInOrder(pClient, 3));
    }
    // Nothing comes twice.
    KovaLiveRtp packet;
    EXPECT_FALSE(first.NextRtp(1, &packet, 100));
    EXPECT_FALSE(second.NextRtp(1, &packet, 100));
}

TEST_F(KeptGroupTest, PlayerThatComesBackWithinTheDelayGetsNothingTwice)
{
    ASSERT_NO_FATAL_FAILURE(Open(64 * 1024 * 1024, 1500));
    KovaLiveClient first;
    ASSERT_NO_FATAL_FAILURE(Push(true, 1000));
    ASSERT_NO_FATAL_FAILURE(Join(&first));
    Push(false, 1000);
    EXPECT_EQ(first.Pause("cam").nStatus, 200);
    Push(false, 1000);
    EXPECT_EQ(first.Play("cam").nStatus, 200);
    Push(false, 1000);
    ASSERT_NO_FATAL_FAILURE(TakeInOrder(&first, 4));
    KovaLiveRtp packet;
    EXPECT_FALSE(first.NextRtp(1, &packet, 100));
}

} // namespace
