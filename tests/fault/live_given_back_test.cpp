#include "tests/fault/fault_bench.h"
#include "tests/live/live_host.h"
#include "tests/support/rtsp_text.h"

#include <gtest/gtest.h>

#include <cerrno>

// What is under way when it ends is given back, to the last byte and descriptor.

namespace {

constexpr size_t kLargePicture = 300000; // goes out in pieces

} // namespace

TEST(LiveGivenBack, WhateverIsUnderWayWhenTheServerEnds)
{
    const KovaHoldings before = KovaHoldingsNow();
    for (const uint32_t nDelay : {0U, 2000U}) {
        KovaLiveHost host([nDelay](KovaLiveConfig *pConfig) {
            pConfig->delay_ms = nDelay;
            pConfig->threads = 2;
        });
        KovaLiveStream *pStream =
            host.AddStream("cam", [](KovaLiveStreamConfig *pConfig) { pConfig->keep_group = 1; });
        KovaLiveTrack *pVideo = KovaLiveHost::AddVideo(pStream);
        KovaLiveStream *pGone = host.AddStream("gone");
        KovaLiveTrack *pGoneVideo = KovaLiveHost::AddVideo(pGone);
        KovaLiveHost::AddVideo(host.AddStream("late"), false);
        KovaLiveClient players[4];
        ASSERT_TRUE(KovaLivePlayTcp(&players[0], host));
        ASSERT_TRUE(KovaLivePlayUdp(&players[1], host));
        ASSERT_TRUE(KovaLivePlayTcp(&players[2], host, "gone"));
        ASSERT_TRUE(players[3].Connect(host.Port()));
        ASSERT_TRUE(players[3].Send(players[3].Text("DESCRIBE", "late")));
        for (int nPicture = 0; nPicture < 5; nPicture++) {
            KovaLivePushText(pVideo, KovaLiveKey(kLargePicture), nPicture * 500000);
            KovaLivePushText(pGoneVideo, KovaLiveKey(kLargePicture), nPicture * 500000);
        }
        EXPECT_EQ(KovaLiveRemoveStream(pGone), KOVA_LIVE_OK);
        EXPECT_EQ(host.WaitEvent(KOVA_LIVE_EVENT_PLAYER_WENT).nReason,
                  uint32_t{KOVA_LIVE_WENT_STREAM});
        EXPECT_LT(host.Close(), 5000);
    }
    KovaExpectHeld(before);
}

TEST(LiveGivenBack, ADescriptionThatIsWaitedForInVain)
{
    const KovaHoldings before = KovaHoldingsNow();
    {
        KovaLiveHost host;
        KovaLiveStream *pLate = host.AddStream("late");
        KovaLiveHost::AddVideo(pLate, false);
        KovaLiveClient client;
        ASSERT_TRUE(client.Connect(host.Port()));
        ASSERT_TRUE(client.Send(client.Text("DESCRIBE", "late")));
        // It is held when another one is answered.
        KovaLiveClient other;
        ASSERT_TRUE(other.Connect(host.Port()));
        ASSERT_EQ(other.Options().nStatus, 200);
        client.Close(true);
        EXPECT_TRUE(KovaWaitUntil([&host] { return host.Figures().connections == 1; }));
        EXPECT_EQ(KovaLiveRemoveStream(pLate), KOVA_LIVE_OK);
    }
    KovaExpectHeld(before);
}

TEST(LiveGivenBack, WhatAStalledReaderDidNotTake)
{
    const KovaHoldings before = KovaHoldingsNow();
    {
        KovaLiveHost host([](KovaLiveConfig *pConfig) {
            pConfig->player_max_bytes = 200000;
            pConfig->player_stall_ms = 1000;
        });
        KovaLiveTrack *pVideo = KovaLiveHost::AddVideo(host.AddStream("cam"));
        KovaLiveClient client;
        ASSERT_TRUE(KovaLivePlayTcp(&client, host));
        for (int nPicture = 0; nPicture < 400; nPicture++)
            KovaLivePushText(pVideo, KovaLiveKey(60000), nPicture * 40000);
        EXPECT_EQ(host.WaitEvent(KOVA_LIVE_EVENT_OVERFLOW).nPlayers, 1U);
        EXPECT_EQ(host.WaitEvent(KOVA_LIVE_EVENT_PLAYER_WENT).nReason,
                  uint32_t{KOVA_LIVE_WENT_SLOW});
    }
    KovaExpectHeld(before);
}

/// What the system refuses for good for one packet is that packet's loss, at once or behind others
/// that waited for room.
TEST(LiveGivenBack, APacketThatIsRefusedIsLostAlone)
{
    constexpr int kRefusals = 4; // of all the ways to send one packet
    const std::vector<KovaFaultRule> kRules[] = {
        {{kFaultSendTo, 1, kRefusals, EPERM}},
        {{kFaultSendTo, 1, 1, EAGAIN}, {kFaultSendTo, 2, kRefusals, EPERM}}};
    for (const std::vector<KovaFaultRule> &rules : kRules) {
        SCOPED_TRACE(rules.size());
        KovaLiveHost host;
        KovaLiveStream *pStream = host.AddStream("cam");
        KovaLiveTrack *pVideo = KovaLiveHost::AddVideo(pStream);
        KovaLiveClient client;
        ASSERT_TRUE(KovaLivePlayUdp(&client, host));
        KovaLivePushText(pVideo, KovaLiveKey(20000), 0);
        const size_t nPackets = KovaLiveNextUnit(&client, 1).size();
        ASSERT_GT(nPackets, 10U);
        const uint64_t nBefore = KovaLiveFiguresOf(pStream).packets;
        KovaFaults faults(rules);
        KovaLivePushText(pVideo, KovaLiveKey(20000), 40000);
        ASSERT_TRUE(KovaWaitUntil([&faults] { return faults.Hits() >= kRefusals; }));
        KovaLiveRtp packet;
        uint64_t nGot = 0;
        while (client.NextRtp(1, &packet, 300))
            nGot++;
        EXPECT_GT(nGot, 0U);
        const KovaLiveStreamNumbers numbers = KovaLiveFiguresOf(pStream);
        EXPECT_GT(numbers.late_packets, 0U);
        EXPECT_LE(numbers.late_packets, uint64_t{kRefusals});
        EXPECT_EQ(numbers.packets, nBefore + nGot);
        EXPECT_EQ(nGot + numbers.late_packets, nPackets);
        faults.Stop();
        KovaLivePushText(pVideo, KovaLiveKey(500), 80000);
        EXPECT_FALSE(KovaLiveNextUnit(&client, 1).empty());
        EXPECT_EQ(KovaLiveFiguresOf(pStream).late_packets, numbers.late_packets);
    }
}

/// The last events come when the loops take nothing any more.
TEST(LiveGivenBack, WhatIsPushedInsideTheLastEvents)
{
    const KovaHoldings before = KovaHoldingsNow();
    {
        KovaLiveHost host;
        KovaLiveTrack *pVideo = KovaLiveHost::AddVideo(host.AddStream("cam"));
        KovaLiveTrack *pLate = KovaLiveHost::AddVideo(host.AddStream("late"), false);
        std::atomic<int> nPushed{0};
        host.onEvent = [pLate, &nPushed](const KovaLiveEvent &event) {
            if (event.type == KOVA_LIVE_EVENT_PLAYER_WENT &&
                KovaLivePushText(pLate, KovaLiveKey(), 0) == KOVA_LIVE_OK)
                nPushed++;
        };
        KovaLiveClient client;
        ASSERT_TRUE(KovaLivePlayTcp(&client, host));
        KovaLivePushText(pVideo, KovaLiveKey(), 0);
        ASSERT_FALSE(KovaLiveNextUnit(&client, 1).empty());
        EXPECT_LT(host.Close(), 5000);
        EXPECT_EQ(nPushed, 1);
    }
    KovaExpectHeld(before);
}
