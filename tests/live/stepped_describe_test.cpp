#include "tests/live/stepped_server.h"

#include <gtest/gtest.h>

#include <string>

// How long a DESCRIBE waits for tracks of which nothing is known yet.

namespace {

constexpr uint64_t kSecond = 1000000;

struct SteppedDescribe : testing::Test {
    KovaSteppedServer server;
    KovaLiveStream *pStream = server.AddStream(
        "cam", [](KovaLiveStreamConfig *pConfig) { pConfig->track_wait_ms = 3000; });
    KovaLiveTrack *pKnown = KovaLiveHost::AddVideo(pStream);
    KovaLiveTrack *pUnknown = KovaLiveHost::AddVideo(pStream, false);
    KovaLiveClient client;

    void Ask()
    {
        ASSERT_TRUE(client.Connect(server.Port()));
        ASSERT_TRUE(client.Send(client.Text("DESCRIBE", "cam")));
        server.Run();
    }
    static int Tracks(const KovaLiveAnswer &answer)
    {
        int nTracks = 0;
        for (size_t nAt = 0; (nAt = answer.body.find("m=video", nAt)) != std::string::npos; nAt++)
            nTracks++;
        return nTracks;
    }
};

} // namespace

TEST_F(SteppedDescribe, TheHostsTimeForTracksBeginsWithTheFirstUnit)
{
    // However long the stream has been there.
    KovaSteppedServer::Advance(100 * kSecond);
    server.Run();
    Ask();
    const KovaLiveAnswer answer = server.AnswerAfter(&client, 5 * kSecond);
    EXPECT_EQ(answer.nStatus, 503);
    EXPECT_EQ(answer.Header("Retry-After"), "5");
}

TEST_F(SteppedDescribe, ATrackThatStaysUnknownIsLeftOutAtThatTime)
{
    EXPECT_EQ(KovaLivePushText(pKnown, KovaLiveKey(), 0), KOVA_LIVE_OK);
    KovaSteppedServer::Advance(kSecond);
    Ask();
    EXPECT_EQ(KovaLiveFiguresOf(pStream).ready, 0U);
    const KovaLiveAnswer answer = server.AnswerAfter(&client, 2 * kSecond);
    EXPECT_EQ(KovaLiveFiguresOf(pStream).ready, 1U);
    EXPECT_EQ(answer.nStatus, 200);
    EXPECT_EQ(Tracks(answer), 1);
}

TEST_F(SteppedDescribe, OneThatWaitsHearsOfAPushThatBeginsTheTime)
{
    Ask();
    KovaSteppedServer::Advance(kSecond);
    EXPECT_EQ(KovaLivePushText(pKnown, KovaLiveKey(), 0), KOVA_LIVE_OK);
    server.Run();
    EXPECT_TRUE(client.Rtsp().IsSilent(0));
    // Its own five seconds and the stream's three end in between.
    KovaSteppedServer::Advance(kSecond);
    EXPECT_EQ(KovaLivePushText(pUnknown, KovaLiveKey(), 0), KOVA_LIVE_OK);
    server.Run();
    const KovaLiveAnswer answer = client.Receive();
    EXPECT_EQ(answer.nStatus, 200);
    EXPECT_EQ(Tracks(answer), 2);
}
