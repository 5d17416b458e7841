#include "tests/live/live_host.h"
#include "tests/robustness/process_state.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <random>
#include <thread>
#include <vector>

// Players come and go, streams too, media is pushed by two threads, and the server is closed in the
// middle of it. KOVA_CHURN_SECONDS makes it longer: scripts/soak does.

namespace {

constexpr int kWaitMs = 300;

int Milliseconds()
{
    const char *szSeconds = getenv("KOVA_CHURN_SECONDS");
    return szSeconds != nullptr ? atoi(szSeconds) * 1000 : 1500;
}

/// Each thread's own chance: failures come again with the same seed, nearly.
using Chance = std::minstd_rand;

class Churn {
public:
    explicit Churn(uint32_t nLoops)
        : m_host([nLoops](KovaLiveConfig *pConfig) {
              pConfig->threads = nLoops;
              pConfig->session_ms = 500;
              pConfig->log_level = 0;
          }),
          m_nPort(m_host.Port())
    {
        m_pStream =
            m_host.AddStream("cam", [](KovaLiveStreamConfig *pConfig) { pConfig->keep_group = 1; });
        m_pVideo = KovaLiveHost::AddVideo(m_pStream);
        m_pSound = KovaLiveHost::AddSound(m_pStream);
    }
    void Run()
    {
        std::vector<std::thread> players;
        std::vector<std::thread> users;
        for (unsigned nSeed = 1; nSeed <= 4; nSeed++)
            players.emplace_back([this, nSeed] { Play(nSeed); });
        users.emplace_back([this] { Push(m_pVideo, true); });
        users.emplace_back([this] { Push(m_pSound, false); });
        users.emplace_back([this] { ComeAndGo(); });
        users.emplace_back([this] { Look(); });
        std::this_thread::sleep_for(std::chrono::milliseconds(Milliseconds()));
        m_bStop = true;
        for (std::thread &thread : users)
            thread.join();
        // Players are still at it.
        EXPECT_LT(m_host.Close(), 5000);
        m_bClosed = true;
        for (std::thread &thread : players)
            thread.join();
        EXPECT_GT(m_nPlayed, 10U);
    }

private:
    void Play(unsigned nSeed)
    {
        Chance chance(nSeed);
        while (!m_bClosed) {
            KovaLiveClient client;
            if (!client.Connect(m_nPort))
                continue;
            const char *szPath = chance() % 4 == 0 ? "guest" : "cam";
            const bool bUdp = chance() % 2 == 0;
            for (int nTrack = 1; nTrack <= 2; nTrack++) {
                if (bUdp)
                    client.SetupUdp(szPath, nTrack);
                else
                    client.SetupTcp(szPath, nTrack);
            }
            m_nPlayed += client.Play(szPath).nStatus == 200 ? 1U : 0U;
            KovaLiveRtp packet;
            for (unsigned nPacket = chance() % 10; nPacket != 0; nPacket--)
                client.NextRtp(1, &packet, m_bClosed ? 0 : kWaitMs);
            if (chance() % 3 == 0)
                client.Pause(szPath);
            if (chance() % 3 == 0)
                client.Teardown(szPath);
            client.Close(chance() % 2 == 0);
        }
    }
    void Push(KovaLiveTrack *pTrack, bool bVideo)
    {
        int64_t nPts = 0;
        for (unsigned nUnit = 0; !m_bStop; nUnit++) {
            const size_t nSize = nUnit % 40 == 0 ? 100000 : 500;
            KovaLivePushText(pTrack,
                             !bVideo           ? KovaLiveSound(nUnit)
                             : nUnit % 10 == 0 ? KovaLiveKey(nSize)
                                               : KovaLiveOther(nSize),
                             nPts);
            nPts += 2000;
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }
    /// A stream that is there for a moment only.
    void ComeAndGo()
    {
        while (!m_bStop) {
            KovaLiveStream *pGuest = m_host.AddStream("guest");
            KovaLiveTrack *pTracks[] = {KovaLiveHost::AddVideo(pGuest),
                                        KovaLiveHost::AddVideo(pGuest)};
            for (int nUnit = 0; nUnit < 20; nUnit++) {
                for (KovaLiveTrack *pTrack : pTracks)
                    KovaLivePushText(pTrack, KovaLiveKey(80000), nUnit * 2000);
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
            EXPECT_EQ(KovaLiveRemoveStream(pGuest), KOVA_LIVE_OK);
        }
    }
    void Look()
    {
        Chance chance(99);
        while (!m_bStop) {
            KovaLivePlayer players[8] = {};
            players[0].size = sizeof(players[0]);
            uint32_t nCount = 0;
            EXPECT_EQ(KovaLivePlayers(m_host.Live(), players, 8, &nCount), KOVA_LIVE_OK);
            if (nCount != 0 && chance() % 4 == 0)
                KovaLiveDisconnect(m_host.Live(), players[chance() % std::min(nCount, 8U)].player);
            m_host.Figures();
            KovaLiveFiguresOf(m_pStream);
            std::this_thread::sleep_for(std::chrono::milliseconds(3));
        }
    }

    KovaLiveHost m_host;
    uint16_t m_nPort;
    KovaLiveStream *m_pStream;
    KovaLiveTrack *m_pVideo;
    KovaLiveTrack *m_pSound;
    std::atomic<bool> m_bStop{false};
    std::atomic<bool> m_bClosed{false};
    std::atomic<unsigned> m_nPlayed{0};
};

class LiveChurn : public testing::TestWithParam<uint32_t> {};

} // namespace

TEST_P(LiveChurn, NothingIsLostWhoeverComesAndGoes)
{
    const int nDescriptors = KovaDescriptorCount();
    Churn(GetParam()).Run();
    EXPECT_EQ(KovaDescriptorCount(), nDescriptors);
}

INSTANTIATE_TEST_SUITE_P(Loops, LiveChurn, testing::Values(1U, 2U, 4U));
