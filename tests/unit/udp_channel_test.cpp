#include "rtp/udp_channel.h"
#include "tests/support/net_ends.h"
#include "tests/support/socket_faults.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace {

struct UdpChannelTest : testing::Test {
    KovaUdpEnds ends;
    KovaRtpClient *pClient = ends.Client("1");
    const KovaBytes packet = {1, 2, 3, 4, 5};

    ~UdpChannelTest() override
    {
        KovaRtpClientDestroy(pClient);
    }

    KovaSendOutcome Send()
    {
        errno = 0;
        return KovaUdpSend(ends.nServerRtp, pClient->rtpAddress, packet.data(), packet.size());
    }
};

TEST_F(UdpChannelTest, SendsOneDatagram)
{
    EXPECT_EQ(Send(), kSendDone);
    EXPECT_EQ(ends.Rtp(2000), packet);
    EXPECT_EQ(ends.Rtp(), std::nullopt);
    EXPECT_EQ(ends.Rtcp(), std::nullopt);
}

TEST_F(UdpChannelTest, SortsErrors)
{
    KovaSocketFaults faults;
    faults.Script(ends.nServerRtp, {{EAGAIN}, {EINTR}, {ENETUNREACH}, {ECONNREFUSED}});
    EXPECT_EQ(Send(), kSendAgain);
    EXPECT_EQ(Send(), kSendAgain);
    EXPECT_EQ(Send(), kSendFailed);
    EXPECT_EQ(errno, ENETUNREACH);
    EXPECT_EQ(Send(), kSendFailed);
    EXPECT_EQ(errno, ECONNREFUSED);
    EXPECT_EQ(faults.Left(), 0U);
    EXPECT_EQ(ends.Rtp(), std::nullopt);
}

TEST_F(UdpChannelTest, NeitherWaitsNorSignals)
{
    KovaSocketFaults faults;
    faults.Script(ends.nServerRtp, {});
    EXPECT_EQ(Send(), kSendDone);
    EXPECT_EQ(faults.Flags(), MSG_DONTWAIT | MSG_NOSIGNAL);
}

TEST_F(UdpChannelTest, TakesOneDatagramPerCall)
{
    EXPECT_FALSE(KovaUdpTakeOne(ends.nServerRtcp));
    ends.SendRtcp(packet);
    ends.SendRtcp(KovaBytes(8192, 7));
    EXPECT_TRUE(KovaUdpTakeOne(ends.nServerRtcp));
    EXPECT_TRUE(KovaUdpTakeOne(ends.nServerRtcp));
    EXPECT_FALSE(KovaUdpTakeOne(ends.nServerRtcp));
}

TEST_F(UdpChannelTest, DatagramWithoutABytePassesForNone)
{
    ends.SendRtcp({});
    EXPECT_FALSE(KovaUdpTakeOne(ends.nServerRtcp));
    EXPECT_TRUE(KovaIsOpen(ends.nServerRtcp));
}

TEST_F(UdpChannelTest, LeavesDescriptorZeroAlone)
{
    // Behind number 0 stands a socket that would take and give datagrams.
    const int nInput = dup(0);
    ASSERT_EQ(dup2(ends.nServerRtcp, 0), 0);
    ends.SendRtcp(packet);
    EXPECT_FALSE(KovaUdpTakeOne(0));
    EXPECT_EQ(KovaUdpSend(0, pClient->rtpAddress, packet.data(), packet.size()), kSendFailed);
    EXPECT_EQ(ends.Rtp(50), std::nullopt);
    EXPECT_TRUE(KovaUdpTakeOne(ends.nServerRtcp));
    if (nInput >= 0) {
        dup2(nInput, 0);
        close(nInput);
    } else {
        close(0);
    }
}

} // namespace
