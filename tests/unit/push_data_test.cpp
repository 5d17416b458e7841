#include "classic/streamer/es_input.h"
#include "foundation/log.h"
#include "kova_rtsp_server.h"
#include "tests/support/fake_clock.h"
#include "tests/support/stdout_capture.h"
#include "tests/support/stream_host.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Lines = std::vector<std::string>;

constexpr char kName[] = "KovaRtspServerPushData";

/// A stream whose input is kept, under a clock that stands still: 100 s, so that
/// the library's 32-bit microseconds do not wrap.
struct PushData : testing::Test {
    KovaStdoutCapture capture;
    KovaFakeClock clock;
    KovaStreamHost host;
    KovaRtspStreamer *pStreamer = nullptr;

    PushData()
    {
        RTSP_SetLogLevel(0);
        clock.Fix(100000000);
        pStreamer = host.AddStream();
        KovaStopPackers(pStreamer);
        // The summary is counted over the whole process: let it come now.
        RTSP_SetLogLevel(4);
        for (int n = 0; n < 501 && capture.Text().find(kName) == std::string::npos; n++)
            Push(98, 0);
        capture.Clear();
    }

    ~PushData() override
    {
        RTSP_SetLogLevel(0);
    }

    int32_t Push(uint32_t nId, uint32_t nTimestamp)
    {
        const uint8_t bytes[] = {1, 2, 3};
        return KovaRtspServerPushData(pStreamer, nId, bytes, sizeof(bytes), nTimestamp);
    }

    /// What the calls since the last look have logged, without their common start.
    Lines News()
    {
        Lines news;
        for (const std::string &line : KovaMessagesOf(capture.Messages(), kName))
            news.push_back(line.substr(sizeof(kName) + 1));
        capture.Clear();
        return news;
    }
};

TEST_F(PushData, NullStreamOrDataIsRefused)
{
    const uint8_t byte = 0;
    EXPECT_EQ(KovaRtspServerPushData(nullptr, 96, &byte, 1, 5000), -1);
    EXPECT_EQ(KovaRtspServerPushData(pStreamer, 96, nullptr, 1, 5000), -1);
    EXPECT_EQ(pStreamer->nLastAudioTimestamp.load(), 0U);
    EXPECT_EQ(News(), Lines{});
}

TEST_F(PushData, HandsTheUnitToTheStreamsInput)
{
    EXPECT_EQ(Push(97, 258), 0);
    uint8_t bytes[15];
    ASSERT_EQ(StreamerRingbufferRead(&pStreamer->videoRing, bytes, 15), 15);
    const uint8_t expected[15] = {0x55, 0, 97, 0, 0, 1, 2, 0, 0, 0, 0, 3, 1, 2, 3};
    EXPECT_EQ(std::vector<uint8_t>(bytes, bytes + 15),
              std::vector<uint8_t>(expected, expected + 15));
}

TEST_F(PushData, OverflowIsNotPassedOn)
{
    const uint8_t byte = 0;
    EXPECT_EQ(KovaRtspServerPushData(pStreamer, 96, &byte, 0x80000000, 50), 0);
    EXPECT_EQ(KovaMessagesOf(capture.Messages(), "KovaRtspStreamerPushData"),
              (Lines{"KovaRtspStreamerPushData, Audio Overflow !!!"}));
    // The dropped unit's timestamp counts all the same.
    EXPECT_EQ(pStreamer->nLastAudioTimestamp.load(), 50U);
}

TEST_F(PushData, AudioGapIsMoreThan100Milliseconds)
{
    Push(96, 1000);
    EXPECT_EQ(News(), (Lines{"GAP, Now Audio Pts: 1000, Last Audio Pts: 0, Diff: 1000"}));
    Push(96, 1100);
    EXPECT_EQ(News(), Lines{});
    Push(96, 1201);
    EXPECT_EQ(News(), (Lines{"GAP, Now Audio Pts: 1201, Last Audio Pts: 1100, Diff: 101"}));
    EXPECT_EQ(pStreamer->nLastAudioTimestamp.load(), 1201U);
}

TEST_F(PushData, FirstTimestampIsComparedWithZero)
{
    Push(96, 100);
    EXPECT_EQ(News(), Lines{});
    Push(97, 101);
    EXPECT_EQ(News(), (Lines{"GAP, Now Video Pts: 101, Last Video Pts: 0, Diff: 101"}));
}

TEST_F(PushData, VideoGapAndBack)
{
    Push(97, 5000);
    EXPECT_EQ(News(), (Lines{"GAP, Now Video Pts: 5000, Last Video Pts: 0, Diff: 5000"}));
    Push(97, 4990);
    EXPECT_EQ(News(), (Lines{"BACK, Now Video Pts: 4990, Last Video Pts: 5000"}));
    EXPECT_EQ(pStreamer->nLastVideoTimestamp.load(), 4990U);
    Push(97, 4990);
    EXPECT_EQ(News(), Lines{});
}

TEST_F(PushData, AudioBack)
{
    Push(96, 90);
    Push(96, 89);
    EXPECT_EQ(News(), (Lines{"BACK, Now Audio Pts: 89, Last Audio Pts: 90"}));
}

TEST_F(PushData, TimestampsAreUnsigned)
{
    pStreamer->nLastAudioTimestamp = 0xFFFFFFF0;
    Push(96, 10);
    EXPECT_EQ(News(), (Lines{"BACK, Now Audio Pts: 10, Last Audio Pts: 4294967280"}));
    pStreamer->nLastAudioTimestamp = 0x10;
    Push(96, 0xFFFFFFF0);
    EXPECT_EQ(News(),
              (Lines{"GAP, Now Audio Pts: 4294967280, Last Audio Pts: 16, Diff: 4294967264"}));
}

TEST_F(PushData, LargestPauseIsReportedAsItGrows)
{
    Push(96, 10);
    EXPECT_EQ(News(), Lines{});
    EXPECT_EQ(pStreamer->nLastAudioPushTime, 100000000U);
    clock.Advance(40000);
    Push(96, 20);
    EXPECT_EQ(News(), (Lines{"Find Larger Audio Time Gap: 40000, Now PTS: 20"}));
    clock.Advance(40000);
    Push(96, 30);
    EXPECT_EQ(News(), Lines{});
    clock.Advance(40001);
    Push(96, 40);
    EXPECT_EQ(News(), (Lines{"Find Larger Audio Time Gap: 40001, Now PTS: 40"}));
    EXPECT_EQ(pStreamer->nMaxAudioPushInterval, 40001U);
    EXPECT_EQ(pStreamer->nMaxVideoPushInterval, 0U);

    Push(97, 10);
    EXPECT_EQ(News(), Lines{});
    clock.Advance(7);
    Push(97, 20);
    EXPECT_EQ(News(), (Lines{"Find Larger Video Time Gap: 7, Now PTS: 20"}));
    EXPECT_EQ(pStreamer->nMaxVideoPushInterval, 7U);
    EXPECT_EQ(pStreamer->nLastVideoPushTime, 100120008U);
}

TEST_F(PushData, GapStandsBeforeThePause)
{
    Push(96, 10);
    clock.Advance(5);
    Push(96, 500);
    EXPECT_EQ(News(), (Lines{"GAP, Now Audio Pts: 500, Last Audio Pts: 10, Diff: 490",
                             "Find Larger Audio Time Gap: 5, Now PTS: 500"}));
}

TEST_F(PushData, DriftIsMoreThan500Milliseconds)
{
    const struct {
        uint32_t nAudio;
        uint32_t nVideo;
        bool bDrift;
    } cases[] = {{3000, 2400, true},  {3000, 2500, false},  {3000, 2499, true}, {2400, 3000, true},
                 {2500, 3000, false}, {2499, 3000, true},   {90000, 0, false},  {0, 90000, false},
                 {3000, 3000, false}, {1, 4294967295, true}};
    for (const auto &one : cases) {
        pStreamer->nLastAudioTimestamp = one.nAudio;
        pStreamer->nLastVideoTimestamp = one.nVideo;
        EXPECT_EQ(Push(98, 7), 0);
        const std::string line = "Audio Pts: " + std::to_string(one.nAudio) +
                                 ", Video Pts: " + std::to_string(one.nVideo);
        EXPECT_EQ(News(), one.bDrift ? Lines{line} : Lines{}) << line;
    }
}

TEST_F(PushData, DriftIsSeenOnTheNewTimestamps)
{
    pStreamer->nLastAudioTimestamp = 3000;
    pStreamer->nLastVideoTimestamp = 2990;
    Push(97, 2400);
    EXPECT_EQ(News(), (Lines{"BACK, Now Video Pts: 2400, Last Video Pts: 2990",
                             "Audio Pts: 3000, Video Pts: 2400"}));
}

TEST_F(PushData, OtherIdsAreNotTracked)
{
    Push(96, 50);
    Push(97, 60);
    const uint64_t nAudioTime = pStreamer->nLastAudioPushTime;
    const uint64_t nVideoTime = pStreamer->nLastVideoPushTime;
    clock.Advance(1000);
    EXPECT_EQ(Push(98, 90000), 0);
    EXPECT_EQ(pStreamer->nLastAudioTimestamp.load(), 50U);
    EXPECT_EQ(pStreamer->nLastVideoTimestamp.load(), 60U);
    EXPECT_EQ(pStreamer->nLastAudioPushTime, nAudioTime);
    EXPECT_EQ(pStreamer->nLastVideoPushTime, nVideoTime);
    EXPECT_EQ(pStreamer->nMaxAudioPushInterval, 0U);
    EXPECT_EQ(News(), Lines{});
}

TEST_F(PushData, SummaryComesWithEvery501stCall)
{
    // The fixture's last call wrote one. Other streams count too.
    KovaRtspStreamer *pOther = host.AddStream("other");
    const uint8_t byte = 0;
    pStreamer->nMaxAudioPushInterval = 111;
    pStreamer->nMaxVideoPushInterval = 222;
    for (int nRound = 0; nRound < 2; nRound++) {
        for (int n = 0; n < 500; n++) {
            EXPECT_EQ(KovaRtspServerPushData(n % 2 != 0 ? pStreamer : pOther, 98, &byte, 1, 0), 0);
            // Refused calls do not count.
            EXPECT_EQ(KovaRtspServerPushData(pStreamer, 98, nullptr, 1, 0), -1);
        }
        EXPECT_EQ(News(), Lines{}) << nRound;
        pStreamer->nLastAudioTimestamp = 1001;
        pStreamer->nLastVideoTimestamp = 1002;
        Push(96, 1010);
        EXPECT_EQ(News(), (Lines{"Last Audio Pts: 1001, Last Video Pts: 1002",
                                 "Last Video Time Gap: 222, Last Audio Time Gap: 111"}))
            << nRound;
        pStreamer->nLastAudioTimestamp = 0;
        pStreamer->nLastVideoTimestamp = 0;
    }
}

TEST_F(PushData, EverythingIsLoggedAtLevel4)
{
    RTSP_SetLogLevel(3);
    Push(96, 1000);
    clock.Advance(5);
    Push(96, 10);
    Push(97, 5000);
    for (int n = 0; n < 501; n++)
        Push(98, 0);
    EXPECT_EQ(News(), Lines{});
    RTSP_SetLogLevel(4);
    Push(98, 0);
    EXPECT_EQ(News(), (Lines{"Audio Pts: 10, Video Pts: 5000"}));
}

TEST_F(PushData, AClockThatFailsIsIgnored)
{
    clock.Fail(true);
    EXPECT_EQ(Push(96, 10), 0);
    EXPECT_EQ(pStreamer->nLastAudioTimestamp.load(), 10U);
    clock.Fail(false);
}

} // namespace
