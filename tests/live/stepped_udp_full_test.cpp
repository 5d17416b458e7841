#include "live/engine/udp_ports.h"
#include "tests/live/stepped_server.h"
#include "tests/support/c_calls.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>

// A UDP socket that takes no more: it is asked again when it has room, and by one player alone.

namespace {

std::atomic<bool> g_bFull{false};
std::atomic<unsigned> g_nCalls{0};

bool IsFull()
{
    if (!g_bFull)
        return false;
    g_nCalls++;
    errno = EAGAIN;
    return true;
}

int SendMany(int nSocket, mmsghdr *pMessages, unsigned nCount, int nFlags)
{
    return IsFull() ? -1 : __real_sendmmsg(nSocket, pMessages, nCount, nFlags);
}

ssize_t SendTo(int nSocket, const void *pData, size_t nSize, int nFlags, const sockaddr *pAddress,
               socklen_t nAddressSize)
{
    return IsFull() ? -1 : __real_sendto(nSocket, pData, nSize, nFlags, pAddress, nAddressSize);
}

struct SteppedUdpFull : testing::Test {
    KovaSteppedServer server;
    KovaLiveTrack *pCam = KovaLiveHost::AddVideo(server.AddStream("cam"));
    KovaLiveTrack *pDoor = KovaLiveHost::AddVideo(server.AddStream("door"));
    KovaLiveClient cams[2];
    KovaLiveClient door;

    void SetUp() override
    {
        for (KovaLiveClient &cam : cams)
            ASSERT_TRUE(server.Play(&cam, true, "cam"));
        ASSERT_TRUE(server.Play(&door, true, "door"));
        Push(pCam, 1);
        Push(pDoor, 1);
        server.Run();
        ExpectAll(1);
        KovaReplaceCall<__real_sendmmsg>(SendMany);
        KovaReplaceCall<__real_sendto>(SendTo);
        g_bFull = true;
        g_nCalls = 0;
    }
    ~SteppedUdpFull() override
    {
        g_bFull = false;
        KovaReplaceCall<__real_sendmmsg>(nullptr);
        KovaReplaceCall<__real_sendto>(nullptr);
    }
    static void Push(KovaLiveTrack *pTrack, unsigned nPicture)
    {
        EXPECT_EQ(KovaLivePushText(pTrack, KovaLiveKey(500, nPicture), 40000 * nPicture),
                  KOVA_LIVE_OK);
    }
    void ExpectAll(unsigned nPicture)
    {
        for (KovaLiveClient *pClient : {&cams[0], &cams[1], &door})
            EXPECT_EQ(KovaLiveSlice(KovaLiveNextUnit(pClient, 1)),
                      KovaMediaNal(0x65, 500, nPicture));
    }
    bool IsWaitedFor() const
    {
        const KovaUdpPorts *pPorts = server.Loop()->pUdpPorts;
        return pPorts->bFull && pPorts->rtpItem.nWanted == (kPollRead | kPollWrite);
    }
};

} // namespace

TEST_F(SteppedUdpFull, NobodyTriesBeforeItHasRoom)
{
    Push(pCam, 2);
    server.Run(1);
    EXPECT_GE(g_nCalls, 1U);
    EXPECT_TRUE(IsWaitedFor());
    g_nCalls = 0;
    Push(pDoor, 2);
    // The event of the socket, by which one player tries; the others wait, newcomers too.
    server.Run(1);
    EXPECT_EQ(g_nCalls, 1U);
    EXPECT_TRUE(IsWaitedFor());
    g_bFull = false;
    server.Run();
    ExpectAll(2);
    EXPECT_FALSE(server.Loop()->pUdpPorts->bFull);
    EXPECT_EQ(server.Loop()->pUdpPorts->rtpItem.nWanted, kPollRead);
    // With room, media goes out at once again.
    Push(pCam, 3);
    Push(pDoor, 3);
    server.Run(1);
    ExpectAll(3);
}

TEST_F(SteppedUdpFull, NoConnectionEndsBecauseOfIt)
{
    Push(pCam, 2);
    server.Run(1);
    for (KovaLiveClient &cam : cams)
        ASSERT_TRUE(cam.Send(cam.Text("GET_PARAMETER", "cam")));
    server.Run();
    // Longer than a connection may take nothing.
    KovaSteppedServer::Advance(11000000);
    server.Run();
    EXPECT_EQ(server.Figures().connections, 3U);
    for (const KovaLiveConnection *pConnection = server.Loop()->pConnections;
         pConnection != nullptr; pConnection = pConnection->pNext)
        EXPECT_EQ(pConnection->item.nWanted, kPollRead);
}

TEST_F(SteppedUdpFull, WhatComesMeanwhileGoesBehindWhatWaits)
{
    Push(pCam, 2);
    Push(pDoor, 2);
    server.Run(1);
    Push(pCam, 3);
    Push(pDoor, 3);
    server.Run(1);
    g_bFull = false;
    // Told by the system in one round, and new media in the same.
    Push(pCam, 4);
    Push(pDoor, 4);
    server.Run(1);
    for (unsigned nPicture = 2; nPicture <= 4; nPicture++)
        ExpectAll(nPicture);
}
