#include "live/engine/peer_counts.h"

#include <gtest/gtest.h>

#include <cstdlib>

// How many connections each address has.

namespace {

struct LivePeerCounts : testing::Test {
    KovaLive live = {};

    void SetUp() override
    {
        live.settings.nMaxPerAddress = 2;
        KovaMutexInit(&live.numberMutex);
    }
    void TearDown() override
    {
        {
            const KovaMutexLock lock(&live.numberMutex, kRankLeaf);
            free(live.peers.pPeers);
        }
        KovaMutexDestroy(&live.numberMutex);
    }
};

} // namespace

TEST_F(LivePeerCounts, OneThatLeavesTakesNobodyElsesCountWithIt)
{
    constexpr uint32_t kAddresses = 40;
    for (uint32_t nAddress = 1; nAddress <= kAddresses; nAddress++) {
        EXPECT_TRUE(KovaPeerEnter(&live, nAddress));
        EXPECT_TRUE(KovaPeerEnter(&live, nAddress));
        EXPECT_FALSE(KovaPeerEnter(&live, nAddress));
    }
    for (uint32_t nAddress = 1; nAddress <= kAddresses; nAddress += 3) {
        KovaPeerLeave(&live, nAddress);
        KovaPeerLeave(&live, nAddress);
    }
    for (uint32_t nAddress = 1; nAddress <= kAddresses; nAddress++) {
        const bool bLeft = nAddress % 3 == 1;
        EXPECT_EQ(KovaPeerEnter(&live, nAddress), bLeft) << nAddress;
        EXPECT_EQ(KovaPeerEnter(&live, nAddress), bLeft) << nAddress;
        EXPECT_FALSE(KovaPeerEnter(&live, nAddress)) << nAddress;
    }
}

TEST_F(LivePeerCounts, AddressesWithoutConnectionsAreForgotten)
{
    for (int nTurn = 0; nTurn < 3; nTurn++) {
        for (uint32_t nAddress = 1; nAddress <= 40; nAddress++)
            EXPECT_TRUE(KovaPeerEnter(&live, nAddress));
        for (uint32_t nAddress = 1; nAddress <= 40; nAddress++)
            KovaPeerLeave(&live, nAddress);
        const KovaMutexLock lock(&live.numberMutex, kRankLeaf);
        EXPECT_EQ(live.peers.nPeers, 0U);
    }
}

TEST_F(LivePeerCounts, WithoutALimitNothingIsKept)
{
    live.settings.nMaxPerAddress = 0;
    for (int nConnection = 0; nConnection < 100; nConnection++)
        EXPECT_TRUE(KovaPeerEnter(&live, 7));
    KovaPeerLeave(&live, 7);
    const KovaMutexLock lock(&live.numberMutex, kRankLeaf);
    EXPECT_EQ(live.peers.pPeers, nullptr);
}
