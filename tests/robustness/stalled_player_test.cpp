#include "classic/rtp/send_group.h"
#include "classic/rtp/sender.h"
#include "classic/streamer/registries.h"
#include "tests/robustness/player.h"
#include "tests/robustness/process_state.h"
#include "tests/robustness/server_socket.h"
#include "tests/support/stdout_capture.h"

#include <gtest/gtest.h>

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <memory>

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

constexpr int kPlayers = 10;
constexpr int kStalledPackets = 300; ///< of 125 in a second
constexpr size_t kHeapSlack = 64 * 1024;
constexpr size_t kStalledBytes = 400 * 1024; ///< what a queue that grows holds soon

int64_t Since(Clock::time_point begin)
{
    return std::chrono::duration_cast<Milliseconds>(Clock::now() - begin).count();
}

/// One player of ten on a stream stops reading. It has set up video only, so
/// that the stream's audio group is another group than the one it holds up.
class StalledPlayer : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_NE(pOther, nullptr);
        script = std::make_unique<KovaMediaScript>(server->Stream(), KovaScriptPlan{60});
        otherScript =
            std::make_unique<KovaMediaScript>(pOther, KovaScriptPlan{60, 15, 2000, 40, 200});
        nIdleHeap = KovaHeapInUse();
        for (size_t i = 0; i < players.size(); i++)
            Join(&players[i], i, "live", *script);
        Join(&onOther, 1, "other", *otherScript);
        ASSERT_FALSE(HasFailure());
        SetUpUdp();
        ASSERT_EQ(server->Stream()->nClientCount.load(), kPlayers);
        nBusyHeap = KovaHeapInUse();
        script->Start();
        otherScript->Start();
        ASSERT_TRUE(KovaWaitUntil(15000, [this] {
            return players[0]->NextSequence(script->Video()) >= 300 &&
                   onOther->NextSequence(otherScript->Video()) >= 30;
        }));
    }

    void Join(std::unique_ptr<KovaWatchingPlayer> *ppPlayer, size_t nNumber,
              const std::string &stream, const KovaMediaScript &media)
    {
        *ppPlayer = std::make_unique<KovaWatchingPlayer>(
            KovaPlayerOptions{nNumber == 0 ? 4096 : 0, 65536, 0});
        KovaWatchingPlayer &player = **ppPlayer;
        ASSERT_TRUE(player.Connect(server->Port()));
        ASSERT_TRUE(player.Setup(stream, media, media.Video(), 0));
        ASSERT_TRUE(nNumber == 0 || player.Setup(stream, media, media.Audio(), 2));
        ASSERT_TRUE(player.Play(stream));
        if (nNumber == 0)
            LimitSendBuffer(player);
    }

    /// A device has small buffers; this machine would take seconds to fill its own.
    void LimitSendBuffer(const KovaWatchingPlayer &player)
    {
        const int nSize = 16384;
        const int nSocket = SocketOf(player);
        ASSERT_GT(nSocket, 0);
        ASSERT_EQ(setsockopt(nSocket, SOL_SOCKET, SO_SNDBUF, &nSize, sizeof(nSize)), 0);
    }

    /// The server's descriptor of the player's connection; -1 when it has none.
    int SocketOf(const KovaWatchingPlayer &player)
    {
        return KovaServerSocketOf(server->Server(), player.LocalPort());
    }

    void SetUpUdp()
    {
        ASSERT_TRUE(udpConnection.Connect(server->Port()));
        ASSERT_EQ(udpConnection.SetupUdp("other", 96, udp.RtpPort()).nStatus, 200);
        ASSERT_EQ(udpConnection.Play("other").nStatus, 200);
    }

    /// Packets that wait in the video group's queue.
    unsigned Queued()
    {
        KovaRtpSender *pSender = KovaRtspStreamerGetRtpSenderByPayloadId(server->Stream(), 97);
        auto *pGroup = static_cast<KovaRtpSendGroup *>(pSender->pSendGroupList->data);
        pthread_mutex_lock(&pGroup->packetMutex.native);
        const unsigned nCount = KovaListLength(pGroup->pPacketList);
        pthread_mutex_unlock(&pGroup->packetMutex.native);
        return nCount;
    }

    /// Milliseconds that a new connection takes for all the requests of a player
    /// of the stalled track; a large number when one fails.
    int64_t Dialogue()
    {
        const Clock::time_point begin = Clock::now();
        KovaRtspTestClient client;
        if (!client.Connect(server->Port()) || client.Options("live").nStatus != 200 ||
            client.Describe("live").nStatus != 200 ||
            client.SetupTcp("live", 97, 0).nStatus != 200 || client.Play("live").nStatus != 200 ||
            client.Teardown("live").nStatus != 200)
            return 100000;
        return Since(begin);
    }

    int64_t MedianDialogue()
    {
        std::array<int64_t, 15> times{};
        for (int64_t &nTime : times) {
            nTime = Dialogue();
            std::this_thread::sleep_for(Milliseconds(30));
        }
        std::nth_element(times.begin(), times.begin() + 7, times.end());
        return times[7];
    }

    /// Largest age on arrival of the packets of the groups that have nothing to
    /// do with the stalled one, since the last call.
    int64_t LargestAgeElsewhere()
    {
        int64_t nLargest = std::max(onOther->TakeLargestAge(otherScript->Audio()),
                                    onOther->TakeLargestAge(otherScript->Video()));
        for (size_t i = 1; i < players.size(); i++)
            nLargest = std::max(nLargest, players[i]->TakeLargestAge(script->Audio()));
        return nLargest;
    }

    size_t TakeUdpPackets()
    {
        std::string packet;
        size_t nCount = 0;
        while (udp.ReceiveRtp(&packet, 0)) {
            nCount++;
            EXPECT_EQ(nCount == 1 || packet.size() < 4 ||
                          static_cast<uint8_t>(packet[3]) == static_cast<uint8_t>(nUdpLast + 1),
                      true);
            nUdpLast = static_cast<uint8_t>(packet[3]);
        }
        return nCount;
    }

    /// Stops reading, and waits until its group waits: twice as much of what was
    /// pushed as usual has not arrived at the others.
    void Stall()
    {
        players[0]->Read(false);
        ASSERT_TRUE(KovaWaitUntil(8000, [this] {
            return static_cast<int>(script->Pushed(script->Video())) >
                   players[1]->NextSequence(script->Video()) + kStalledPackets;
        }));
    }

    /// Keeps the stalled session alive until the server has given the connection up.
    void WaitGivenUp()
    {
        const Clock::time_point end = Clock::now() + Milliseconds(25000);
        while (SocketOf(*players[0]) > 0 && Clock::now() < end) {
            KeepAlive();
            std::this_thread::sleep_for(Milliseconds(200));
        }
        ASSERT_LE(SocketOf(*players[0]), 0);
    }

    void KeepAlive()
    {
        players[0]->Send(players[0]->Format("GET_PARAMETER", "live"));
    }

    KovaStdoutCapture capture;
    std::unique_ptr<KovaTestServer> server =
        std::make_unique<KovaTestServer>(KovaTestServerOptions{"live", 64, true});
    KovaRtspStreamer *pOther = server->AddStream("other");
    std::unique_ptr<KovaMediaScript> script;
    std::unique_ptr<KovaMediaScript> otherScript;
    std::array<std::unique_ptr<KovaWatchingPlayer>, kPlayers> players;
    std::unique_ptr<KovaWatchingPlayer> onOther;
    KovaRtspTestClient udpConnection;
    KovaUdpPair udp;
    uint8_t nUdpLast = 0;
    size_t nIdleHeap = 0;
    size_t nBusyHeap = 0;
    unsigned nUsualQueue = 0;
};

TEST_F(StalledPlayer, HoldsUpItsGroupAloneAndForTenSecondsOnly)
{
    const int64_t nUsualDialogue = MedianDialogue();
    nUsualQueue = Queued();
    const int64_t nUsualAge = LargestAgeElsewhere();
    TakeUdpPackets();
    ASSERT_LT(nUsualDialogue, 10000);

    const Clock::time_point begin = Clock::now();
    ASSERT_NO_FATAL_FAILURE(Stall());
    KeepAlive();

    // Requests are answered, also those that need the clients of the stalled group.
    const int64_t nDialogue = MedianDialogue();
    EXPECT_LE(nDialogue, 5 * nUsualDialogue + 50);
    KeepAlive();

    // The stall is still there; nobody outside the group has noticed.
    EXPECT_GT(KovaHeapInUse(), nBusyHeap + kStalledBytes);
    EXPECT_GT(SocketOf(*players[0]), 0);
    EXPECT_LT(players[1]->NextSequence(script->Video()) + 100,
              static_cast<int>(script->Pushed(script->Video())));
    EXPECT_LE(LargestAgeElsewhere(), nUsualAge + 500);
    EXPECT_GT(TakeUdpPackets(), 20U);

    // It is given up after its time-out, not earlier and not much later.
    ASSERT_NO_FATAL_FAILURE(WaitGivenUp());
    EXPECT_GE(Since(begin), 9000);
    EXPECT_LE(Since(begin), 20000);
    const std::string session = players[0]->Session();
    EXPECT_TRUE(KovaWaitUntil(5000, [&] { return server->Expiry(session) == 0; }));
    EXPECT_TRUE(KovaWaitUntil(
        5000, [this] { return server->Stream()->nClientCount.load() == kPlayers - 1; }));
    EXPECT_LE(LargestAgeElsewhere(), nUsualAge + 500);

    // The others catch up, and the queue is as short as before.
    EXPECT_TRUE(KovaWaitUntil(15000, [this] { return Queued() <= nUsualQueue + 30; }));
    script->Stop();
    otherScript->Stop();
    const int nEnd = static_cast<int>(script->Pushed(script->Video()));
    const int nAudioEnd = static_cast<int>(script->Pushed(script->Audio()));
    for (int i = 1; i < kPlayers; i++) {
        KovaWatchingPlayer &player = *players[static_cast<size_t>(i)];
        EXPECT_TRUE(KovaWaitUntil(10000,
                                  [&] {
                                      return player.NextSequence(script->Video()) == nEnd &&
                                             player.NextSequence(script->Audio()) == nAudioEnd;
                                  }))
            << i << ": " << player.NextSequence(script->Video()) << " of " << nEnd;
        EXPECT_EQ(player.Received(script->Video()), static_cast<size_t>(nEnd));
        EXPECT_EQ(player.Received(script->Audio()), static_cast<size_t>(nAudioEnd));
        EXPECT_EQ(player.Fault(), "");
    }
    EXPECT_EQ(onOther->Fault(), "");
    EXPECT_EQ(players[0]->Fault(), "");
    EXPECT_TRUE(KovaWaitUntil(5000, [this] { return Queued() == 0; }));
    EXPECT_TRUE(KovaWaitUntil(5000, [this] { return KovaHeapInUse() <= nBusyHeap + kHeapSlack; }))
        << KovaHeapInUse() << " instead of " << nBusyHeap;
}

TEST_F(StalledPlayer, DelaysNoShutdown)
{
    ASSERT_NO_FATAL_FAILURE(Stall());
    script->Stop();
    otherScript->Stop();
    const Clock::time_point begin = Clock::now();
    server.reset();
    EXPECT_LE(Since(begin), 2000);
    EXPECT_EQ(players[1]->Fault(), "");
}

} // namespace
