#include "tests/live/stepped_server.h"
#include "tests/support/socket_faults.h"

#include <gtest/gtest.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <deque>
#include <string>

// A player that takes nothing for a while: what it loses, and what is counted and told of it.

namespace {

constexpr uint64_t kMilli = 1000;

struct SteppedSlow : testing::Test {
    KovaSteppedServer server{1, [](KovaLiveConfig *pConfig) {
                                 pConfig->player_max_ms = 500;
                                 pConfig->player_stall_ms = 60000;
                             }};
    KovaLiveStream *pStream = server.AddStream("cam");
    KovaLiveTrack *pVideo = KovaLiveHost::AddVideo(pStream);
    KovaLiveClient client;
    unsigned nPicture = 0;

    /// Pushes the next picture, of one packet.
    void Push(bool bKey)
    {
        nPicture++;
        const std::string picture =
            bKey ? KovaLiveKey(300, nPicture) : KovaLiveOther(300, nPicture);
        EXPECT_EQ(KovaLivePushText(pVideo, picture, 40000 * nPicture), KOVA_LIVE_OK);
        server.Run();
    }
    bool TakesPicture(bool bKey, unsigned nNumber)
    {
        return KovaLiveSlice(KovaLiveNextUnit(&client, 1)) ==
               KovaMediaNal(bKey ? 0x65 : 0x41, 300, nNumber);
    }
    uint64_t Late() const
    {
        return KovaLiveFiguresOf(pStream).late_packets;
    }
    size_t Overflows() const
    {
        return server.Events(KOVA_LIVE_EVENT_OVERFLOW).size();
    }
    void Fill(KovaSocketFaults *pFaults) const
    {
        pFaults->Script(server.Loop()->pConnections->item.nDescriptor,
                        std::deque<KovaScriptedSend>(100000, KovaScriptedSend{EAGAIN, 0}));
    }
};

} // namespace

TEST_F(SteppedSlow, LosesWhatWaitedTooLongAndEverythingUpToTheNextKeyFrame)
{
    ASSERT_TRUE(server.Play(&client, false));
    Push(true);
    EXPECT_TRUE(TakesPicture(true, 1));
    for (size_t nTime = 1; nTime <= 2; nTime++) {
        const uint64_t nBefore = Late();
        const unsigned nFirst = nPicture + 1;
        {
            KovaSocketFaults faults;
            Fill(&faults);
            Push(false);
            KovaSteppedServer::Advance(500 * kMilli);
            Push(false);
            EXPECT_EQ(Overflows(), nTime - 1) << "not for longer than it may";
            KovaSteppedServer::Advance(1);
            Push(false);
            EXPECT_EQ(Overflows(), nTime);
            EXPECT_EQ(Late(), nBefore + 3);
            Push(false);
            EXPECT_EQ(Overflows(), nTime) << "told once";
            EXPECT_EQ(Late(), nBefore + 4);
            Push(true);
            Push(false);
        }
        server.Run();
        EXPECT_TRUE(TakesPicture(true, nFirst + 4));
        EXPECT_TRUE(TakesPicture(false, nFirst + 5));
        EXPECT_EQ(Late(), nBefore + 4);
        EXPECT_EQ(server.Players().at(0).late_packets, Late());
    }
}

TEST_F(SteppedSlow, WhoTakesWhatTheSystemHoldsIsNotLetGoThoughItSpeaksMeanwhile)
{
    constexpr int kSmallBuffer = 4096;
    bool bPlays = false;
    server.Serve([&] {
        bPlays = client.Connect(server.Port(), kSmallBuffer) &&
                 client.SetupTcp("cam", 1).nStatus == 200 && client.Play("cam").nStatus == 200;
    });
    ASSERT_TRUE(bPlays);
    // More than the player's end takes: the rest is with the system.
    EXPECT_EQ(KovaLivePushText(pVideo, KovaLiveKey(60000), 0), KOVA_LIVE_OK);
    server.Run();
    const int nSocket = server.Loop()->pConnections->item.nDescriptor;
    const auto inSystem = [nSocket] {
        int nBytes = 0;
        EXPECT_EQ(ioctl(nSocket, SIOCOUTQ, &nBytes), 0);
        return nBytes;
    };
    ASSERT_GT(inSystem(), 0);
    KovaSocketFaults faults;
    Fill(&faults);
    Push(false);
    KovaSteppedServer::Advance(59000 * kMilli);
    server.Run();
    EXPECT_FALSE(KovaLiveNextUnit(&client, 1).empty());
    ASSERT_TRUE(KovaWaitUntil([&] { return inSystem() == 0; }));
    EXPECT_TRUE(client.SendRtcp(1, KovaLiveReport(0)));
    server.Run();
    KovaSteppedServer::Advance(1000 * kMilli);
    server.Run();
    EXPECT_EQ(server.Players().size(), 1U);
    // From then on it has taken nothing.
    KovaSteppedServer::Advance(60000 * kMilli);
    server.Run();
    EXPECT_EQ(server.Players().size(), 0U);
}

TEST_F(SteppedSlow, AFallBackIsToldOnceThoughABegunFrameStays)
{
    ASSERT_TRUE(server.Play(&client, false));
    Push(true);
    EXPECT_TRUE(TakesPicture(true, 1));
    {
        KovaSocketFaults faults;
        std::deque<KovaScriptedSend> sends(100000, KovaScriptedSend{EAGAIN, 0});
        sends.push_front({0, 100});
        faults.Script(server.Loop()->pConnections->item.nDescriptor, sends);
        Push(false);
        ASSERT_NE(server.Loop()->pConnections->pBegun, nullptr);
        KovaSteppedServer::Advance(501 * kMilli);
        for (int nMore = 0; nMore < 3; nMore++)
            Push(false);
        EXPECT_EQ(Overflows(), 1U);
        EXPECT_EQ(Late(), 3U) << "all but the begun one";
    }
    server.Run();
    EXPECT_TRUE(TakesPicture(false, 2));
}
