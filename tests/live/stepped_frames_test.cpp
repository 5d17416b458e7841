#include "tests/live/stepped_server.h"
#include "tests/support/socket_faults.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <deque>

// Frames that are out in part when their track or player goes.

namespace {

struct SteppedFrames : testing::Test {
    KovaSteppedServer server;
    KovaLiveStream *pStream = server.AddStream("cam");
    KovaLiveTrack *pVideo = KovaLiveHost::AddVideo(pStream);
    KovaLiveClient client;

    /// The player gets both tracks, a picture of each. Returns the second.
    KovaLiveTrack *PlayTwoTracks()
    {
        KovaLiveTrack *pOther = KovaLiveHost::AddVideo(pStream);
        server.Serve([this] {
            EXPECT_TRUE(client.Connect(server.Port()));
            EXPECT_EQ(client.SetupTcp("cam", 1).nStatus, 200);
            EXPECT_EQ(client.SetupTcp("cam", 2).nStatus, 200);
            EXPECT_EQ(client.Play("cam").nStatus, 200);
        });
        for (KovaLiveTrack *pTrack : {pVideo, pOther})
            KovaLivePushKey(pTrack, 500, 0, 0);
        server.Run();
        EXPECT_TRUE(KovaLiveTakesKey(&client, 500, 0, 1));
        EXPECT_TRUE(KovaLiveTakesKey(&client, 500, 0, 2));
        return pOther;
    }
    /// The connection takes a part of a frame, then nothing for as long as the faults live.
    void BeginAFrame(KovaSocketFaults *pFaults, size_t nBytes = 100) const
    {
        std::deque<KovaScriptedSend> sends(100000, KovaScriptedSend{EAGAIN, 0});
        sends.push_front({0, nBytes});
        pFaults->Script(server.Loop()->pConnections->item.nDescriptor, sends);
    }
};

} // namespace

TEST_F(SteppedFrames, AFrameThatIsFinishedForATrackThatGoesIsSentOnce)
{
    KovaLiveTrack *pOther = PlayTwoTracks();
    {
        KovaSocketFaults faults;
        BeginAFrame(&faults);
        KovaLivePushKey(pOther, 3000, 1, 40000);
        server.Run();
        ASSERT_NE(server.Loop()->pConnections->pBegun, nullptr);
        ASSERT_TRUE(client.Send(client.Text("TEARDOWN", "cam/track1")));
        server.Run();
    }
    server.Run();
    EXPECT_EQ(client.Receive().nStatus, 200);
    EXPECT_TRUE(KovaLiveTakesKey(&client, 3000, 1, 2));
    KovaLivePushKey(pOther, 500, 2, 80000);
    server.Run();
    EXPECT_TRUE(KovaLiveTakesKey(&client, 500, 2, 2));
    EXPECT_EQ(server.Players().at(0).packets, KovaLiveFiguresOf(pStream).packets);
}

TEST_F(SteppedFrames, AFrameIsFinishedWhereverItStopped)
{
    ASSERT_TRUE(server.Play(&client, false));
    KovaLivePushKey(pVideo, 500, 0, 0);
    server.Run();
    ASSERT_TRUE(KovaLiveTakesKey(&client, 500, 0));
    unsigned nPicture = 0;
    for (const unsigned nOut : {1U, 3U, 4U, 5U, 503U}) {
        SCOPED_TRACE(nOut);
        {
            KovaSocketFaults faults;
            BeginAFrame(&faults, nOut);
            nPicture++;
            KovaLivePushKey(pVideo, 500, nPicture, 40000 * nPicture);
            server.Run();
            ASSERT_NE(server.Loop()->pConnections->pBegun, nullptr);
            ASSERT_TRUE(client.Send(client.Text("PAUSE", "cam")));
            server.Run();
        }
        server.Run();
        EXPECT_EQ(client.Receive().nStatus, 200);
        EXPECT_TRUE(KovaLiveTakesKey(&client, 500, nPicture));
        server.Serve([this] { EXPECT_EQ(client.Play("cam").nStatus, 200); });
    }
}

TEST_F(SteppedFrames, ABegunOneOfTheTrackThatGoesIsFinished)
{
    KovaLiveTrack *pOther = PlayTwoTracks();
    {
        KovaSocketFaults faults;
        BeginAFrame(&faults);
        KovaLivePushKey(pVideo, 500, 1, 40000);
        server.Run();
        ASSERT_NE(server.Loop()->pConnections->pBegun, nullptr);
        KovaLivePushKey(pOther, 500, 1, 40000);
        server.Run();
        ASSERT_TRUE(client.Send(client.Text("TEARDOWN", "cam/track1")));
        server.Run();
    }
    server.Run();
    EXPECT_EQ(client.Receive().nStatus, 200);
    EXPECT_TRUE(KovaLiveTakesKey(&client, 500, 1, 1));
    EXPECT_TRUE(KovaLiveTakesKey(&client, 500, 1, 2));
}
