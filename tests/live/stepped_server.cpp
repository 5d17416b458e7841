#include "tests/live/stepped_server.h"

#include "live/rtsp/login.h"
#include "tests/support/c_calls.h"
#include "tests/support/sockets.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace {

constexpr uint64_t kMillion = 1000000;
constexpr uint64_t kBegin = 1000 * kMillion;      ///< of the monotonic clock
constexpr uint64_t kWall = 1700000000 * kMillion; ///< what the wall clock shows then

std::atomic<uint64_t> g_nNow{kBegin};

int GetClock(clockid_t nClock, timespec *pTime)
{
    if (nClock != CLOCK_MONOTONIC)
        return __real_clock_gettime(nClock, pTime);
    const uint64_t nNow = g_nNow;
    pTime->tv_sec = static_cast<time_t>(nNow / kMillion);
    pTime->tv_nsec = static_cast<long>(nNow % kMillion) * 1000;
    return 0;
}

int GetTimeOfDay(timeval *pTime, void *)
{
    const uint64_t nNow = g_nNow - kBegin + kWall;
    pTime->tv_sec = static_cast<time_t>(nNow / kMillion);
    pTime->tv_usec = static_cast<suseconds_t>(nNow % kMillion);
    return 0;
}

} // namespace

KovaSteppedServer::KovaSteppedServer(uint32_t nLoops,
                                     const std::function<void(KovaLiveConfig *)> &change)
{
    g_nNow = kBegin;
    KovaReplaceCall<__real_clock_gettime>(GetClock);
    KovaReplaceCall<__real_gettimeofday>(GetTimeOfDay);
    KovaLiveConfig config;
    EXPECT_EQ(KovaLiveConfigInit(&config, sizeof(config)), KOVA_LIVE_OK);
    config.address = "127.0.0.1";
    config.threads = nLoops;
    config.log_level = KOVA_LIVE_LOG_DEBUG;
    config.context = this;
    config.on_event = [](void *pContext, const KovaLiveEvent *pEvent) {
        static_cast<KovaSteppedServer *>(pContext)->m_events.push_back(
            {pEvent->type, pEvent->stream, pEvent->track, pEvent->player, pEvent->reason,
             pEvent->players, pEvent->address, pEvent->port, pEvent->interleaved != 0});
    };
    config.on_log = [](void *pContext, int32_t, const char *szLine) {
        static_cast<KovaSteppedServer *>(pContext)->lines.emplace_back(szLine);
    };
    if (change)
        change(&config);
    EXPECT_EQ(KovaLiveSettingsFrom(&config, &m_live.settings), KOVA_LIVE_OK);
    KovaMutexInit(&m_live.streamsMutex);
    KovaMutexInit(&m_live.numberMutex);
    m_live.szRealm = strdup("Kova");
    m_live.pLogin = KovaLoginCreate(m_live.szRealm);
    m_live.nListener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_in address = KovaLoopback();
    address.sin_addr.s_addr = m_live.settings.nAddress;
    socklen_t nLength = sizeof(address);
    auto *pAddress = reinterpret_cast<sockaddr *>(&address);
    EXPECT_EQ(bind(m_live.nListener, pAddress, nLength), 0);
    EXPECT_EQ(listen(m_live.nListener, 100), 0);
    EXPECT_EQ(getsockname(m_live.nListener, pAddress, &nLength), 0);
    m_nPort = ntohs(address.sin_port);
    for (; m_live.nLoops < nLoops; m_live.nLoops++)
        EXPECT_EQ(KovaLoopCreate(&m_live, m_live.nLoops, &m_live.pLoops[m_live.nLoops]),
                  KOVA_LIVE_OK);
}

KovaSteppedServer::~KovaSteppedServer()
{
    for (uint32_t nLoop = 0; nLoop < m_live.nLoops; nLoop++)
        KovaLoopEndAll(Loop(nLoop));
    EXPECT_EQ(m_live.nSessions, 0U);
    KovaStreamsClear(&m_live);
    for (uint32_t nLoop = 0; nLoop < m_live.nLoops; nLoop++)
        KovaLoopDestroy(Loop(nLoop));
    close(m_live.nListener);
    KovaLoginDestroy(m_live.pLogin);
    free(m_live.szRealm);
    {
        const KovaMutexLock lock(&m_live.numberMutex, kRankLeaf);
        free(m_live.peers.pPeers);
    }
    KovaMutexDestroy(&m_live.streamsMutex);
    KovaMutexDestroy(&m_live.numberMutex);
    KovaReplaceCall<__real_clock_gettime>(nullptr);
    KovaReplaceCall<__real_gettimeofday>(nullptr);
}

void KovaSteppedServer::Advance(uint64_t nMicroseconds)
{
    g_nNow += nMicroseconds;
}

void KovaSteppedServer::Run(int nRounds)
{
    for (; nRounds > 0; nRounds--) {
        for (uint32_t nLoop = 0; nLoop < m_live.nLoops; nLoop++)
            KovaLoopRound(Loop(nLoop), 0);
    }
}

void KovaSteppedServer::Serve(const std::function<void()> &talk)
{
    std::atomic<bool> bDone{false};
    std::thread loops([this, &bDone] {
        while (!bDone) {
            for (uint32_t nLoop = 0; nLoop < m_live.nLoops; nLoop++)
                KovaLoopRound(Loop(nLoop), 1);
        }
    });
    talk();
    bDone = true;
    loops.join();
}

KovaLiveAnswer KovaSteppedServer::AnswerAfter(KovaLiveClient *pClient, uint64_t nMicroseconds)
{
    Advance(nMicroseconds - 1);
    Run();
    EXPECT_TRUE(pClient->Rtsp().IsSilent(0));
    Advance(1);
    Run();
    return pClient->Receive();
}

KovaLiveStream *
KovaSteppedServer::AddStream(const char *szPath,
                             const std::function<void(KovaLiveStreamConfig *)> &change)
{
    return KovaLiveAddStreamTo(&m_live, szPath, change);
}

bool KovaSteppedServer::Play(KovaLiveClient *pClient, bool bUdp, const char *szPath)
{
    bool bPlays = false;
    Serve([&] {
        bPlays =
            pClient->Connect(m_nPort) &&
            (bUdp ? pClient->SetupUdp(szPath, 1) : pClient->SetupTcp(szPath, 1)).nStatus == 200 &&
            pClient->Play(szPath).nStatus == 200;
    });
    return bPlays;
}

std::vector<KovaToldEvent> KovaSteppedServer::Events(uint32_t nType) const
{
    std::vector<KovaToldEvent> events;
    for (const KovaToldEvent &event : m_events)
        if (nType == 0 || event.nType == nType)
            events.push_back(event);
    return events;
}

KovaLiveServerNumbers KovaSteppedServer::Figures()
{
    KovaLiveServerNumbers numbers = {};
    numbers.size = sizeof(numbers);
    EXPECT_EQ(KovaLiveServerFigures(&m_live, &numbers), KOVA_LIVE_OK);
    return numbers;
}

std::vector<KovaLivePlayer> KovaSteppedServer::Players()
{
    constexpr uint32_t kMost = 64;
    std::vector<KovaLivePlayer> players(kMost);
    players[0].size = sizeof(players[0]);
    uint32_t nCount = 0;
    EXPECT_EQ(KovaLivePlayers(&m_live, players.data(), kMost, &nCount), KOVA_LIVE_OK);
    EXPECT_LE(nCount, kMost);
    players.resize(nCount);
    return players;
}
