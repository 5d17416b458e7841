#include "live/engine/udp_ports.h"
#include "rtp/udp_batch.h"
#include "tests/live/stepped_server.h"
#include "tests/support/c_calls.h"
#include "tests/support/failing_heap.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <vector>

// Datagrams that the system refuses, and more players than one call serves.

namespace {

std::atomic<int> g_nSocket{-1};
std::atomic<bool> g_bFull{false};
std::atomic<int> g_nUntilFull{0}; ///< datagrams; below 1: it does not become full by them
std::atomic<int> g_nUntilLost{0}; ///< datagrams; below 1: none is lost

int SendMany(int nSocket, mmsghdr *pMessages, unsigned nCount, int nFlags)
{
    if (nSocket != g_nSocket)
        return __real_sendmmsg(nSocket, pMessages, nCount, nFlags);
    errno = g_bFull ? EAGAIN : EPERM; // each one alone, then
    return -1;
}

ssize_t SendTo(int nSocket, const void *pData, size_t nSize, int nFlags, const sockaddr *pAddress,
               socklen_t nAddressSize)
{
    if (nSocket == g_nSocket && g_bFull) {
        errno = EAGAIN;
        return -1;
    }
    if (nSocket == g_nSocket && g_nUntilLost > 0 && --g_nUntilLost == 0) {
        errno = EPERM;
        return -1;
    }
    if (nSocket == g_nSocket && g_nUntilFull > 0 && --g_nUntilFull == 0)
        g_bFull = true;
    return __real_sendto(nSocket, pData, nSize, nFlags, pAddress, nAddressSize);
}

struct SteppedUdpLost : testing::Test {
    static constexpr size_t kPicture = 18000; ///< about a hundred packets
    KovaSteppedServer server{1, [](KovaLiveConfig *pConfig) { pConfig->max_packet = 200; }};
    KovaLiveStream *pStream = server.AddStream("cam");
    KovaLiveTrack *pVideo = KovaLiveHost::AddVideo(pStream);
    KovaLiveClient client;
    uint16_t nSequence = 0; ///< of the next packet
    uint64_t nAll = 0;      ///< packets of a picture

    void SetUp() override
    {
        ASSERT_TRUE(server.Play(&client, true));
        Push(0);
        const std::vector<KovaLiveRtp> unit = KovaLiveNextUnit(&client, 1);
        ASSERT_GT(unit.size(), 96U);
        nAll = unit.size();
        nSequence = static_cast<uint16_t>(unit.back().header.nSequence + 1);
        g_nSocket = server.Loop()->pUdpPorts->rtpItem.nDescriptor;
        KovaReplaceCall<__real_sendmmsg>(SendMany);
        KovaReplaceCall<__real_sendto>(SendTo);
    }
    ~SteppedUdpLost() override
    {
        KovaReplaceCall<__real_sendmmsg>(nullptr);
        KovaReplaceCall<__real_sendto>(nullptr);
        g_nSocket = -1;
        g_bFull = false;
        g_nUntilLost = 0;
        g_nUntilFull = 0;
        KovaUdpBatchForget();
    }
    void Push(unsigned nPicture)
    {
        EXPECT_EQ(KovaLivePushText(pVideo, KovaLiveKey(kPicture, nPicture), 40000 * nPicture),
                  KOVA_LIVE_OK);
        server.Run(1);
    }
    /// Everything of a picture comes but the packet of that number, from 1.
    void ExpectAllBut(uint64_t nLost)
    {
        KovaLiveRtp packet;
        for (uint64_t nPacket = 1; nPacket <= nAll; nPacket++, nSequence++) {
            if (nPacket == nLost)
                continue;
            ASSERT_TRUE(client.NextRtp(1, &packet)) << nPacket;
            ASSERT_EQ(packet.header.nSequence, nSequence) << nPacket;
            ASSERT_EQ(packet.header.bMarker, nPacket == nAll);
        }
    }
};

} // namespace

TEST_F(SteppedUdpLost, OnePacketIsLostAndNoOther)
{
    uint64_t nLate = 0;
    unsigned nPicture = 0;
    for (const int nLost : {1, 2, 64, 65, 90, static_cast<int>(nAll)}) {
        SCOPED_TRACE(nLost);
        g_nUntilLost = nLost;
        Push(++nPicture);
        ASSERT_NO_FATAL_FAILURE(ExpectAllBut(static_cast<uint64_t>(nLost)));
        nLate++;
        EXPECT_EQ(KovaLiveFiguresOf(pStream).late_packets, nLate);
        EXPECT_EQ(KovaLiveFiguresOf(pStream).packets, nAll * (nPicture + 1) - nLate);
    }
}

TEST_F(SteppedUdpLost, OneOfThoseThatWaitedIsLostAndNoOther)
{
    uint64_t nLate = 0;
    unsigned nPicture = 0;
    for (const int nLost : {1, 65, static_cast<int>(nAll)}) {
        SCOPED_TRACE(nLost);
        g_bFull = true;
        Push(++nPicture);
        g_bFull = false;
        g_nUntilLost = nLost;
        server.Run();
        ASSERT_NO_FATAL_FAILURE(ExpectAllBut(static_cast<uint64_t>(nLost)));
        nLate++;
        EXPECT_EQ(KovaLiveFiguresOf(pStream).late_packets, nLate);
        EXPECT_EQ(server.Players().at(0).late_packets, nLate);
    }
}

TEST_F(SteppedUdpLost, WithoutMemoryForThemPacketsAreLate)
{
    const uint64_t nBefore = KovaLiveFiguresOf(pStream).packets;
    constexpr int kOut = 10;
    g_nUntilFull = kOut;
    EXPECT_EQ(KovaLivePushText(pVideo, KovaLiveKey(kPicture, 1), 40000), KOVA_LIVE_OK);
    {
        KovaFailingHeap failing;
        server.Run(1);
    }
    EXPECT_EQ(KovaLiveFiguresOf(pStream).packets, nBefore + kOut);
    EXPECT_EQ(KovaLiveFiguresOf(pStream).late_packets, nAll - kOut);
    EXPECT_EQ(server.Loop()->pSessions->queue.nCount, 0U);
}

TEST_F(SteppedUdpLost, WhatIsCutBackIsCountedPacketByPacket)
{
    g_bFull = true;
    Push(1); // waits in two pieces
    EXPECT_GT(server.Loop()->pSessions->queue.nCount, 1U);
    KovaSteppedServer::Advance(2000001);
    EXPECT_EQ(KovaLivePushText(pVideo, KovaLiveOther(100, 2), 80000), KOVA_LIVE_OK);
    server.Run(1);
    EXPECT_EQ(server.Events(KOVA_LIVE_EVENT_OVERFLOW).size(), 1U);
    EXPECT_EQ(KovaLiveFiguresOf(pStream).late_packets, nAll + 1);
    EXPECT_EQ(server.Players().at(0).late_packets, nAll + 1);
    EXPECT_EQ(server.Loop()->pSessions->queue.nCount, 0U);
}

TEST(SteppedUdpMany, EachPlayerGetsEachUnitOnce)
{
    KovaSteppedServer server;
    KovaLiveTrack *pVideo = KovaLiveHost::AddVideo(server.AddStream("cam"));
    std::vector<std::unique_ptr<KovaLiveClient>> clients;
    for (int nClient = 0; nClient < 70; nClient++) {
        clients.push_back(std::make_unique<KovaLiveClient>());
        ASSERT_TRUE(server.Play(clients.back().get(), true));
    }
    for (unsigned nPicture = 0; nPicture < 3; nPicture++) {
        EXPECT_EQ(KovaLivePushText(pVideo, KovaLiveKey(3000, nPicture), 40000 * nPicture),
                  KOVA_LIVE_OK);
        server.Run(1);
    }
    KovaLiveRtp packet;
    for (const auto &pClient : clients) {
        for (unsigned nPicture = 0; nPicture < 3; nPicture++)
            EXPECT_EQ(KovaLiveSlice(KovaLiveNextUnit(pClient.get(), 1)),
                      KovaMediaNal(0x65, 3000, nPicture));
        EXPECT_FALSE(pClient->NextRtp(1, &packet, 0));
    }
}
