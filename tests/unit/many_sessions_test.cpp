#include "classic/rtp/session_tally.h"
#include "classic/rtp/tcp_channel.h"
#include "classic/rtsp/server_calls.h"
#include "classic/server/handler_registry.h"
#include "classic/server/session_registry.h"
#include "system_shims.h"
#include "tests/support/fake_clock.h"
#include "tests/support/stdout_capture.h"
#include "tests/support/stream_host.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <ctime>
#include <functional>
#include <set>
#include <string>
#include <vector>

/// What a request costs does not depend on how many sessions there are.
namespace {

constexpr size_t kFew = 100;
constexpr size_t kMany = 40000;
constexpr int kRounds = 400;

/// A walk of the list would cost 400 times as much with many as with few, and
/// more where they do not fit a cache. A look-up meets some cold lines.
constexpr double kMostRatio = 40.0;

double ThreadSeconds()
{
    timespec now = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

/// Processor time of kRounds calls, the least of five tries.
double Cost(const std::function<void(size_t nRound)> &call)
{
    double fLeast = 1e9;
    for (int nTry = 0; nTry < 5; nTry++) {
        const double fStart = ThreadSeconds();
        for (size_t nRound = 0; nRound < kRounds; nRound++)
            call(nRound);
        fLeast = std::min(fLeast, ThreadSeconds() - fStart);
    }
    return fLeast;
}

/// Grows something to few, then to many, and compares what a call costs. The
/// call gets a number that is in there.
void ExpectSameCost(const std::function<void(size_t nNumber)> &grow,
                    const std::function<void(size_t nNumber)> &call)
{
    size_t nThere = 0;
    const auto costWith = [&](size_t nCount) {
        for (; nThere < nCount; nThere++)
            grow(nThere);
        return Cost([&](size_t nRound) { call(nRound * 7919 % nCount); });
    };
    const double fFew = costWith(kFew);
    const double fMany = costWith(kMany);
    EXPECT_LT(fMany / fFew, kMostRatio);
}

std::string IdOf(size_t nNumber)
{
    char szId[16];
    snprintf(szId, sizeof(szId), "%011zu", nNumber);
    return szId;
}

struct ManySessions : testing::Test {
    KovaStdoutCapture capture;
    KovaStreamHost host;
    KovaRtspServer *pServer = host.Server();

    void Add(size_t nNumber) const
    {
        std::string id = IdOf(nNumber);
        KovaRtspSession *pSession = KovaRtspSessionCreate(id.data(), 60);
        ASSERT_EQ(KovaRtspServerAddSession(pServer, pSession), 0);
    }
};

TEST_F(ManySessions, LookUpsCostTheSame)
{
    ExpectSameCost([&](size_t nNumber) { Add(nNumber); },
                   [&](size_t nNumber) {
                       const std::string id = IdOf(nNumber);
                       EXPECT_EQ(KovaRtspServerIsSessionExist(pServer, id.c_str()), 1);
                       EXPECT_EQ(KovaRtspServerUpdateSession(pServer, id.c_str()), 0);
                       EXPECT_EQ(KovaRtspServerIsSessionExist(pServer, "nobody"), 0);
                   });
}

TEST_F(ManySessions, ComingAndGoingCostsTheSame)
{
    ExpectSameCost([&](size_t nNumber) { Add(nNumber); },
                   [&](size_t nNumber) {
                       char szId[kSessionIdSize] = "";
                       EXPECT_EQ(AddNewRtspSession(pServer, szId, 60), 0);
                       const std::string id = IdOf(nNumber);
                       KovaRtspSession *pSession =
                           KovaRtspServerGetSessionBySessionId(pServer, id.c_str());
                       EXPECT_EQ(KovaRtspServerRemoveSession(pServer, pSession), 0);
                       EXPECT_EQ(KovaRtspServerAddSession(pServer, pSession), 0);
                       EXPECT_EQ(KovaRtspServerRemoveSessionBySessionId(pServer, szId), 0);
                   });
}

TEST_F(ManySessions, ConnectionsComeAndGoAtTheSameCost)
{
    // The registry keeps addresses and never looks behind them.
    std::vector<char> handlers(kMany * 16);
    const auto handler = [&](size_t nNumber) {
        return reinterpret_cast<KovaRtspServerHandler *>(&handlers[nNumber * 16]);
    };
    ExpectSameCost(
        [&](size_t nNumber) {
            EXPECT_EQ(KovaRtspServerAddServerHandler(pServer, handler(nNumber)), 0);
        },
        [&](size_t nNumber) {
            EXPECT_EQ(KovaRtspServerRemoveServerHandler(pServer, handler(nNumber)), 0);
            EXPECT_EQ(KovaRtspServerAddServerHandler(pServer, handler(nNumber)), 0);
        });
    for (size_t nNumber = 0; nNumber < kMany; nNumber++)
        KovaRtspServerRemoveServerHandler(pServer, handler(nNumber));
    EXPECT_EQ(pServer->pHandlerList, nullptr);
}

TEST_F(ManySessions, TalliesAreFoundAtTheSameCost)
{
    std::vector<KovaSessionTally *> tallies;
    ExpectSameCost(
        [&](size_t nNumber) {
            tallies.push_back(KovaSessionTallyJoin(this, IdOf(nNumber).c_str()));
        },
        [&](size_t nNumber) {
            const std::string id = IdOf(nNumber);
            EXPECT_EQ(KovaSessionTallyJoin(this, id.c_str()), tallies[nNumber]);
            KovaSessionTallyLeave(tallies[nNumber]);
            KovaSessionTallyLeave(KovaSessionTallyJoin(&tallies, id.c_str()));
            EXPECT_FALSE(KovaSessionTallyExists("nobody"));
        });
    for (KovaSessionTally *pTally : tallies)
        KovaSessionTallyLeave(pTally);
    EXPECT_FALSE(KovaSessionTallyExists(IdOf(1).c_str()));
}

TEST_F(ManySessions, InterleavedClientsJoinTheirConnectionAtTheSameCost)
{
    std::vector<int> sockets(kMany, -1);
    std::vector<std::atomic<int *>> references(kMany);
    std::vector<KovaTcpChannel *> channels;
    ExpectSameCost(
        [&](size_t nNumber) {
            channels.push_back(KovaTcpChannelJoin(&sockets[nNumber]));
            EXPECT_TRUE(KovaTcpChannelFollow(channels[0], &references[nNumber]));
        },
        [&](size_t nNumber) {
            EXPECT_EQ(KovaTcpChannelJoin(&sockets[nNumber]), channels[nNumber]);
            KovaTcpChannelLeave(channels[nNumber]);
            KovaTcpChannelUnfollow(channels[0], &references[nNumber]);
            EXPECT_TRUE(KovaTcpChannelFollow(channels[0], &references[nNumber]));
        });
    for (std::atomic<int *> &reference : references)
        KovaTcpChannelUnfollow(channels[0], &reference);
    for (KovaTcpChannel *pChannel : channels)
        KovaTcpChannelLeave(pChannel);
}

TEST_F(ManySessions, PlayersOfOneSecondLeaveTheirGeneratorAtTheFirstCollision)
{
    KovaFakeClock clock;
    clock.Fix(1704445387LL * 1000000); // coarse clocks show several players the same time
    int nDrawn = 0;
    std::set<std::string> ids;
    for (int nPlayer = 0; nPlayer < 1000; nPlayer++) {
        const KovaFixedRand random({1, 2, 3, 4, 5, 6, 7, 8, 9, 0, 1});
        char szId[kSessionIdSize] = "";
        ASSERT_EQ(AddNewRtspSession(pServer, szId, 60), 0);
        nDrawn += random.Draws();
        ids.insert(szId);
    }
    EXPECT_EQ(ids.size(), 1000U);
    EXPECT_EQ(KovaRtspServerIsSessionExist(pServer, "12345678901"), 1);
    EXPECT_EQ(nDrawn, 11 * 1000) << "rand() gives each player its first id and no other";
}

} // namespace
