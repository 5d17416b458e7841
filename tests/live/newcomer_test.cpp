#include "tests/live/live_host.h"
#include "tests/support/fake_clock.h"

#include <gtest/gtest.h>

// What a newcomer gets from memory is as old as it is: only what waits since it came counts.

namespace {

constexpr size_t kPicture = 3000000; // more than a connection takes at once
constexpr uint32_t kNoLimit = 100000000;

} // namespace

TEST(LiveNewcomer, IsNotCutBackForTheAgeOfWhatWasKept)
{
    KovaFakeClock clock;
    KovaLiveHost host([](KovaLiveConfig *pConfig) {
        pConfig->player_max_ms = 8000;
        pConfig->player_max_bytes = kNoLimit;
        pConfig->player_stall_ms = 60000;
    });
    KovaLiveStream *pStream = host.AddStream("cam", [](KovaLiveStreamConfig *pConfig) {
        pConfig->keep_group = 1;
        pConfig->keep_max_bytes = kNoLimit;
    });
    KovaLiveTrack *pVideo = KovaLiveHost::AddVideo(pStream);
    KovaLivePushText(pVideo, KovaLiveKey(kPicture), 0);
    for (int nPicture = 1; nPicture < 4; nPicture++)
        KovaLivePushText(pVideo, KovaLiveOther(kPicture), nPicture * 40000);
    clock.AdvanceMonotonic(10);
    KovaLiveClient client;
    ASSERT_TRUE(KovaLivePlayTcp(&client, host));
    KovaLivePushText(pVideo, KovaLiveOther(200), 160000);
    EXPECT_FALSE(
        KovaWaitUntil(300, [&host] { return !host.Events(KOVA_LIVE_EVENT_OVERFLOW).empty(); }));
    for (int nPicture = 0; nPicture < 5; nPicture++)
        EXPECT_FALSE(KovaLiveNextUnit(&client, 1).empty()) << nPicture;
    EXPECT_EQ(KovaLiveFiguresOf(pStream).late_packets, 0U);
}
