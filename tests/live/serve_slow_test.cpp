#include "tests/live/live_host.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <chrono>
#include <string>
#include <thread>

// Players that take less than they are sent: what they get, and that nobody else notices.

namespace {

constexpr int kSmallBuffer = 4096;

/// Pictures of a size, a key frame each tenth, pushed one by one.
struct Feed {
    KovaLiveTrack *pTrack;
    size_t nSize = 60000;
    unsigned nPicture = 0;

    void Push()
    {
        const bool bKey = nPicture % 10 == 0;
        const std::string picture =
            bKey ? KovaLiveKey(nSize, nPicture) : KovaLiveOther(nSize, nPicture);
        EXPECT_EQ(KovaLivePushText(pTrack, picture, int64_t{40000} * nPicture), KOVA_LIVE_OK);
        nPicture++;
    }
};

/// Which picture a slice is; -1: none of ours.
int PictureOf(const std::string &slice, size_t nSize, unsigned nPictures)
{
    for (unsigned nPicture = 0; nPicture < nPictures; nPicture++) {
        if (slice == KovaMediaNal(nPicture % 10 == 0 ? 0x65 : 0x41, nSize, nPicture))
            return static_cast<int>(nPicture);
    }
    return -1;
}

bool PlaySlowly(KovaLiveClient *pClient, const KovaLiveHost &host, const char *szPath = "cam")
{
    return pClient->Connect(host.Port(), kSmallBuffer) &&
           pClient->SetupTcp(szPath, 1).nStatus == 200 && pClient->Play(szPath).nStatus == 200;
}

struct LiveSlow : testing::Test {
    KovaLiveHost host{[](KovaLiveConfig *pConfig) { pConfig->player_max_ms = 500; }};
    KovaLiveStream *pStream = host.AddStream("cam");
    Feed feed{KovaLiveHost::AddVideo(pStream)};
    KovaLiveClient slow;

    /// Pushes until the slow player was cut back.
    void PushUntilOverflow(size_t nNumber = 1)
    {
        EXPECT_TRUE(KovaWaitUntil(30000, [&] {
            feed.Push();
            return host.Events(KOVA_LIVE_EVENT_OVERFLOW).size() >= nNumber;
        }));
    }
};

} // namespace

TEST_F(LiveSlow, PlayerThatDoesNotReadHarmsNoOther)
{
    KovaLiveClient good;
    ASSERT_TRUE(PlaySlowly(&slow, host));
    ASSERT_TRUE(KovaLivePlayTcp(&good, host));
    for (unsigned nPicture = 0; nPicture < 60; nPicture++) {
        feed.Push();
        const std::vector<KovaLiveRtp> unit = KovaLiveNextUnit(&good, 1);
        EXPECT_EQ(PictureOf(KovaLiveSlice(unit), feed.nSize, feed.nPicture),
                  static_cast<int>(nPicture));
    }
    EXPECT_GT(KovaLiveFiguresOf(pStream).packets, 60U * 40);
}

TEST_F(LiveSlow, PlayerIsCutBackToKeyFramesAndItsFramesStayWhole)
{
    ASSERT_TRUE(PlaySlowly(&slow, host));
    PushUntilOverflow();
    const KovaToldEvent event = host.WaitEvent(KOVA_LIVE_EVENT_OVERFLOW);
    EXPECT_EQ(event.nPlayer, host.WaitEvent(KOVA_LIVE_EVENT_PLAYER_CAME).nPlayer);
    // The host was asked when the player came, and is again, though not at once.
    EXPECT_TRUE(KovaWaitUntil([&] {
        if (feed.nPicture % 10 == 9)
            feed.nPicture++;
        feed.Push();
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        return host.Events(KOVA_LIVE_EVENT_KEY_FRAME).size() >= 2;
    }));
    for (int nMore = 0; nMore < 25; nMore++)
        feed.Push();
    EXPECT_GT(KovaLiveFiguresOf(pStream).late_packets, 0U);
    // It reads on: RTSP stays in step, units come whole or not at all, and after the gap there is
    // a key frame.
    KovaLiveRtp packet;
    std::vector<KovaLiveRtp> unit;
    int nLast = -1;
    int nGaps = 0;
    int nSequence = -1;
    const auto readAll = [&] {
        while (slow.NextRtp(1, &packet, 300)) {
            const uint16_t nNext = static_cast<uint16_t>(nSequence + 1);
            if (nSequence >= 0 && packet.header.nSequence != nNext) {
                nGaps++;
                unit.clear();
            }
            nSequence = packet.header.nSequence;
            unit.push_back(packet);
            if (!packet.header.bMarker)
                continue;
            const int nPicture = PictureOf(KovaLiveSlice(unit), feed.nSize, feed.nPicture);
            EXPECT_GT(nPicture, nLast);
            EXPECT_TRUE(nGaps == 0 || nPicture == nLast + 1 || nPicture % 10 == 0) << nPicture;
            nLast = nPicture;
            unit.clear();
        }
    };
    readAll();
    EXPECT_EQ(slow.Options().nStatus, 200);
    while (feed.nPicture % 10 != 0)
        feed.Push();
    for (int nMore = 0; nMore < 4; nMore++) {
        feed.Push();
        readAll();
        EXPECT_EQ(nLast, static_cast<int>(feed.nPicture) - 1) << "it keeps up again";
    }
    EXPECT_GT(nGaps, 0);
}

TEST_F(LiveSlow, EachFallBackIsTold)
{
    ASSERT_TRUE(PlaySlowly(&slow, host));
    KovaLiveRtp packet;
    for (size_t nTime = 1; nTime <= 3; nTime++) {
        PushUntilOverflow(nTime);
        while (slow.NextRtp(1, &packet, 200)) {
        }
    }
}

TEST_F(LiveSlow, BytesThatWaitAreLimited)
{
    KovaLiveHost small([](KovaLiveConfig *pConfig) {
        pConfig->player_max_bytes = 200000;
        pConfig->player_max_ms = 3600000;
    });
    Feed much{KovaLiveHost::AddVideo(small.AddStream("cam"))};
    ASSERT_TRUE(PlaySlowly(&slow, small));
    EXPECT_TRUE(KovaWaitUntil(30000, [&] {
        much.Push();
        return !small.Events(KOVA_LIVE_EVENT_OVERFLOW).empty();
    }));
}

TEST_F(LiveSlow, AnswersOvertakeMediaThatWaits)
{
    ASSERT_TRUE(PlaySlowly(&slow, host));
    PushUntilOverflow();
    const size_t nBefore = KovaLiveFiguresOf(pStream).packets;
    // A player that reads a little at a time, while new media keeps its connection full.
    ASSERT_TRUE(slow.Send(slow.Text("GET_PARAMETER", "cam")));
    bool bAnswered = false;
    for (int nTurn = 0; nTurn < 400 && !bAnswered; nTurn++) {
        feed.Push();
        bAnswered = slow.Receive(5).nStatus == 200;
    }
    EXPECT_TRUE(bAnswered);
    EXPECT_GT(KovaLiveFiguresOf(pStream).packets, nBefore);
}

TEST_F(LiveSlow, PlayerThatTakesNothingIsLetGo)
{
    KovaLiveHost strict([](KovaLiveConfig *pConfig) {
        pConfig->player_max_ms = 300;
        pConfig->player_stall_ms = 1000;
    });
    Feed much{KovaLiveHost::AddVideo(strict.AddStream("cam"))};
    ASSERT_TRUE(PlaySlowly(&slow, strict));
    EXPECT_TRUE(KovaWaitUntil(30000, [&] {
        much.Push();
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        return !strict.Events(KOVA_LIVE_EVENT_PLAYER_WENT).empty();
    }));
    const KovaToldEvent event = strict.WaitEvent(KOVA_LIVE_EVENT_PLAYER_WENT);
    EXPECT_EQ(event.nReason, KOVA_LIVE_WENT_SLOW);
    EXPECT_EQ(event.nPlayers, 0U);
    EXPECT_TRUE(KovaWaitUntil([&] { return strict.Figures().connections == 0; }));
}

TEST_F(LiveSlow, PlayerThatReadsAllTheTimeIsNotLetGo)
{
    KovaLiveHost strict([](KovaLiveConfig *pConfig) {
        pConfig->player_max_ms = 300;
        pConfig->player_stall_ms = 1000;
    });
    Feed much{KovaLiveHost::AddVideo(strict.AddStream("cam"))};
    ASSERT_TRUE(PlaySlowly(&slow, strict));
    EXPECT_TRUE(KovaWaitUntil(30000, [&] {
        much.Push();
        return !strict.Events(KOVA_LIVE_EVENT_OVERFLOW).empty();
    }));
    // So slowly that the system tells for seconds of no room.
    for (int nTurn = 0; nTurn < 150; nTurn++) {
        char bytes[2000];
        EXPECT_GT(recv(slow.Rtsp().Socket(), bytes, sizeof(bytes), MSG_DONTWAIT), 0);
        if (nTurn % 10 == 0)
            much.Push();
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_TRUE(strict.Events(KOVA_LIVE_EVENT_PLAYER_WENT).empty());
}

TEST_F(LiveSlow, OneThatWentInTheMiddleOfAFrameLeavesItsConnectionWhole)
{
    // By the player, twice, by the host, and by the stream's end.
    for (int nWay = 0; nWay < 4; nWay++) {
        KovaLiveHost one([](KovaLiveConfig *pConfig) { pConfig->player_max_ms = 500; });
        KovaLiveStream *pCam = one.AddStream("cam");
        Feed much{KovaLiveHost::AddVideo(pCam)};
        KovaLiveClient player;
        ASSERT_TRUE(PlaySlowly(&player, one));
        EXPECT_TRUE(KovaWaitUntil(30000, [&] {
            much.Push();
            return !one.Events(KOVA_LIVE_EVENT_OVERFLOW).empty();
        }));
        KovaLiveAnswer answer;
        if (nWay == 0) {
            answer = player.Teardown("cam");
        } else if (nWay == 1) {
            answer = player.Pause("cam");
        } else if (nWay == 2) {
            EXPECT_EQ(
                KovaLiveDisconnect(one.Live(), one.WaitEvent(KOVA_LIVE_EVENT_PLAYER_CAME).nPlayer),
                KOVA_LIVE_OK);
        } else {
            EXPECT_EQ(KovaLiveRemoveStream(pCam), KOVA_LIVE_OK);
        }
        if (nWay < 2) {
            EXPECT_EQ(answer.nStatus, 200) << nWay;
        } else {
            one.WaitEvent(KOVA_LIVE_EVENT_PLAYER_WENT);
        }
        player.SetSession("");
        EXPECT_EQ(player.Options().nStatus, 200) << nWay;
    }
}

TEST_F(LiveSlow, KeptGroupThatIsOldAndLargeReachesItsNewcomerWhole)
{
    KovaLiveHost keeping([](KovaLiveConfig *pConfig) {
        pConfig->player_max_ms = 1500;
        pConfig->player_max_bytes = 500000;
    });
    KovaLiveTrack *pTrack =
        KovaLiveHost::AddVideo(keeping.AddStream("cam", [](KovaLiveStreamConfig *pConfig) {
            pConfig->keep_group = 1;
            pConfig->keep_max_bytes = 16 * 1024 * 1024;
        }));
    constexpr unsigned kPictures = 100; // 10 MB: more than a connection takes at once
    for (unsigned nPicture = 0; nPicture < kPictures; nPicture++)
        ASSERT_EQ(KovaLivePushText(pTrack,
                                   nPicture == 0 ? KovaLiveKey(100000, 0)
                                                 : KovaLiveOther(100000, nPicture),
                                   40000 * nPicture),
                  KOVA_LIVE_OK);
    std::this_thread::sleep_for(std::chrono::milliseconds(1600));
    ASSERT_TRUE(PlaySlowly(&slow, keeping));
    for (unsigned nMore = 0; nMore < 3; nMore++)
        ASSERT_EQ(KovaLivePushText(pTrack, KovaLiveOther(1000, kPictures + nMore),
                                   40000 * (kPictures + nMore)),
                  KOVA_LIVE_OK);
    for (unsigned nPicture = 0; nPicture < kPictures + 3; nPicture++)
        ASSERT_EQ(KovaLiveSlice(KovaLiveNextUnit(&slow, 1)),
                  KovaMediaNal(nPicture == 0 ? 0x65 : 0x41, nPicture < kPictures ? 100000 : 1000,
                               nPicture));
    EXPECT_TRUE(keeping.Events(KOVA_LIVE_EVENT_OVERFLOW).empty());
}
