#include "classic/rtp/rtp_client.h"
#include "tests/support/c_calls.h"
#include "tests/support/failing_heap.h"
#include "tests/support/net_ends.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace {

/// Makes sure that descriptor 0 is open, whatever started the tests.
void OpenStandardInput()
{
    if (!KovaIsOpen(0)) {
        ASSERT_EQ(open("/dev/null", O_RDONLY), 0);
    }
}

sockaddr_in PlayerAddress()
{
    sockaddr_in address = {};
    address.sin_family = AF_INET6; // to be replaced
    address.sin_port = htons(9);   // to be replaced
    address.sin_addr.s_addr = inet_addr("192.0.2.7");
    return address;
}

KovaRtpClient *Make(const char *szSessionId, int32_t nRtpSocket, int32_t nRtcpSocket,
                    int *pTcpSocket = nullptr)
{
    return KovaRtpClientCreate(szSessionId, nRtpSocket, nRtcpSocket, 5004, 5005, PlayerAddress(), 7,
                               pTcpSocket, 0x102, 0x103, 0xABCD, 0x12345678);
}

int OpenSocket()
{
    return socket(AF_INET, SOCK_DGRAM, 0);
}

TEST(RtpClient, TakesItsArgumentsAndStartsAtZero)
{
    const int nRtp = OpenSocket();
    const int nRtcp = OpenSocket();
    int nTcp = 77;
    KovaRtpClient *pClient = Make("12345678901", nRtp, nRtcp, &nTcp);
    ASSERT_NE(pClient, nullptr);
    EXPECT_EQ(pClient->nState, 0);
    EXPECT_STREQ(pClient->szSessionId, "12345678901");
    EXPECT_EQ(pClient->nRtpSocket, nRtp);
    EXPECT_EQ(pClient->nRtcpSocket, nRtcp);
    EXPECT_EQ(pClient->nClientRtpPort, 5004);
    EXPECT_EQ(pClient->nClientRtcpPort, 5005);
    EXPECT_EQ(pClient->nStartSequence, 0xABCD);
    EXPECT_EQ(pClient->nStartTimestamp, 0x12345678U);
    EXPECT_EQ(pClient->nOctetCount, 0U);
    EXPECT_EQ(pClient->nPacketCount, 0U);
    EXPECT_EQ(pClient->nSendBitrate, 0U);
    EXPECT_EQ(pClient->nLastRtcpTime, 0);
    EXPECT_EQ(pClient->bKeyFrameFound, 0);
    EXPECT_EQ(pClient->nMeasureStartTime, 0U);
    EXPECT_EQ(pClient->nMeasureBytes, 0U);
    EXPECT_EQ(pClient->bInterleaved, 7);
    EXPECT_EQ(pClient->pTcpSocket.load(), &nTcp);
    EXPECT_EQ(pClient->nRtpChannel, 0x102);
    EXPECT_EQ(pClient->nRtcpChannel, 0x103);
    KovaRtpClientDestroy(pClient);
    EXPECT_EQ(nTcp, 77);
}

TEST(RtpClient, SendsToThePlayersAddressWithItsTwoPorts)
{
    KovaRtpClient *pClient = Make("1", 0, 0);
    ASSERT_NE(pClient, nullptr);
    EXPECT_EQ(pClient->rtpAddress.sin_family, AF_INET);
    EXPECT_EQ(pClient->rtpAddress.sin_port, htons(5004));
    EXPECT_EQ(pClient->rtpAddress.sin_addr.s_addr, inet_addr("192.0.2.7"));
    EXPECT_EQ(pClient->rtcpAddress.sin_family, AF_INET);
    EXPECT_EQ(pClient->rtcpAddress.sin_port, htons(5005));
    EXPECT_EQ(pClient->rtcpAddress.sin_addr.s_addr, inet_addr("192.0.2.7"));
    KovaRtpClientDestroy(pClient);
}

TEST(RtpClient, IsNotMadeWithoutAnIdOrWithANegativeSocket)
{
    const int nSocket = OpenSocket();
    EXPECT_EQ(Make(nullptr, nSocket, nSocket), nullptr);
    EXPECT_EQ(Make("1", -1, nSocket), nullptr);
    EXPECT_EQ(Make("1", nSocket, -1), nullptr);
    EXPECT_TRUE(KovaIsOpen(nSocket));
    close(nSocket);
}

TEST(RtpClient, IsNotMadeWithoutMemoryAndLeavesTheSocketsAlone)
{
    const int nRtp = OpenSocket();
    const int nRtcp = OpenSocket();
    int nTcp = 77;
    int nGood = 0;
    for (; nGood < 20; nGood++) {
        const KovaFailingHeap heap(nGood);
        KovaRtpClient *pClient = Make("1", nRtp, nRtcp, &nTcp);
        if (heap.Failed() == 0) {
            KovaRtpClientDestroy(pClient);
            break;
        }
        EXPECT_EQ(pClient, nullptr) << nGood;
        EXPECT_TRUE(KovaIsOpen(nRtp)) << nGood;
        EXPECT_TRUE(KovaIsOpen(nRtcp)) << nGood;
    }
    EXPECT_GT(nGood, 0);
    EXPECT_LT(nGood, 20);
}

TEST(RtpClient, ClosesItsUdpSocketsInTheEnd)
{
    const int nRtp = OpenSocket();
    const int nRtcp = OpenSocket();
    int nTcp = OpenSocket();
    KovaRtpClient *pClient = Make("1", nRtp, nRtcp, &nTcp);
    KovaRtpClientDestroy(pClient);
    EXPECT_FALSE(KovaIsOpen(nRtp));
    EXPECT_FALSE(KovaIsOpen(nRtcp));
    EXPECT_TRUE(KovaIsOpen(nTcp));
    close(nTcp);
}

TEST(RtpClient, NeverClosesDescriptorZero)
{
    OpenStandardInput();
    KovaRtpClient *pClient = Make("1", 0, 0);
    ASSERT_NE(pClient, nullptr);
    KovaRtpClientDestroy(pClient);
    EXPECT_TRUE(KovaIsOpen(0));
}

TEST(RtpClient, DestroyIgnoresNull)
{
    KovaRtpClientDestroy(nullptr);
}

TEST(RtpClient, CutsAnOverlongId)
{
    KovaRtpClient *pClient = Make("123456789012345678901234567890", 0, 0);
    ASSERT_NE(pClient, nullptr);
    EXPECT_STREQ(pClient->szSessionId, "12345678901");
    EXPECT_EQ(pClient->nRtpSocket, 0);
    KovaRtpClientDestroy(pClient);
}

void *g_pKept = nullptr;

void KeepOne(void *pBlock)
{
    if (pBlock != g_pKept || pBlock == nullptr)
        __real_free(pBlock);
}

TEST(RtpClient, IsNotWrittenToOnceItIsDestroyed)
{
    KovaTcpEnds ends;
    KovaRtpClient *pClient = ends.Client("1");
    int *pSocket = pClient->pTcpSocket;
    EXPECT_EQ(pSocket, ends.Field());
    g_pKept = pClient;
    KovaReplaceCall<__real_free>(KeepOne);
    KovaRtpClientDestroy(pClient);
    ends.EndHandler(); // which tells all that still follow the connection
    EXPECT_EQ(pClient->pTcpSocket, pSocket);
    KovaReplaceCall<__real_free>(nullptr);
    free(pClient);
}

TEST(RtpClient, SeesMinusOneOnceTheConnectionIsGone)
{
    KovaTcpEnds ends;
    KovaRtpClient *pFirst = ends.Client("1");
    KovaRtpClient *pSecond = ends.Client("2");
    const int nSocket = *ends.Field();
    EXPECT_EQ(*pFirst->pTcpSocket.load(), nSocket);
    ends.EndHandler(); // its memory is freed
    EXPECT_EQ(*pFirst->pTcpSocket.load(), -1);
    KovaRtpClientDestroy(pFirst);
    EXPECT_EQ(*pSecond->pTcpSocket.load(), -1);
    KovaRtpClientDestroy(pSecond);
}

} // namespace
