#include "classic/server/server.h"
#include "foundation/event.h"
#include "foundation/log.h"
#include "tests/support/delivery.h"
#include "tests/support/net_ends.h"
#include "tests/support/stdout_capture.h"
#include "tests/unit/system_shims.h"

#include <gtest/gtest.h>

#include <pthread.h>

#include <cerrno>
#include <chrono>
#include <functional>
#include <thread>

/// How groups are started and stopped beside everybody else.
namespace {

using Clock = std::chrono::steady_clock;
const char *const kId = "12345678901";

struct GroupStopTest : testing::Test {
    KovaStdoutCapture capture;
    KovaDelivery delivery;
    KovaUdpEnds udp;

    /// Stops the groups while their thread is held in a call for which it needs
    /// the sessions, and sees whether the sender is free meanwhile.
    void ExpectSenderIsFreeDuring(const std::function<void()> &stop)
    {
        KovaRtpSendGroup *pGroup = delivery.Group();
        delivery.AddSession(kId);
        delivery.Add(udp.Client(kId));
        udp.SendRtcp({0x81, 201, 0, 1});
        RTSP_SetLogLevel(4);
        pthread_mutex_lock(&delivery.pServer->mtxSession.native);
        delivery.Queue({1});
        KovaRtpSendGroupStart(pGroup);
        EXPECT_TRUE(capture.WaitFor("UpdateSession", 5000));
        std::thread stopper(stop);
        EXPECT_TRUE(KovaWaitUntil([&] { return pGroup->nState == kThreadStopRequested; }));
        const int nResult = pthread_mutex_trylock(&delivery.pSender->mutex.native);
        EXPECT_EQ(nResult, 0) << "who walks the clients with the sessions held would wait for ever";
        if (nResult == 0)
            pthread_mutex_unlock(&delivery.pSender->mutex.native);
        pthread_mutex_unlock(&delivery.pServer->mtxSession.native);
        stopper.join();
    }
};

TEST_F(GroupStopTest, SenderIsFreeWhileItsGroupsAreStopped)
{
    ExpectSenderIsFreeDuring([this] { KovaRtpSenderStopAllRtpSendGroup(delivery.pSender); });
}

TEST_F(GroupStopTest, SenderIsFreeWhileItsGroupsAreRemoved)
{
    ExpectSenderIsFreeDuring([this] { KovaRtpSenderRemoveAllRtpSendGroup(delivery.pSender); });
    EXPECT_EQ(delivery.pSender->pSendGroupList, nullptr);
}

TEST_F(GroupStopTest, StopWakesTheThread)
{
    KovaRtpSendGroup *pGroup = delivery.Group();
    pGroup->nState = kThreadRunning;
    Clock::duration waited = {};
    std::thread body([&] { // as a thread that has slept since before the stop
        const Clock::time_point begin = Clock::now();
        KovaEventWait(&pGroup->work, 20000);
        waited = Clock::now() - begin;
        EXPECT_EQ(pGroup->nState, static_cast<uint32_t>(kThreadStopRequested));
        pGroup->nState = kThreadStopped;
    });
    EXPECT_EQ(KovaRtpSendGroupStop(pGroup), 0);
    body.join();
    EXPECT_LT(waited, std::chrono::seconds(19));
}

TEST_F(GroupStopTest, GroupWhoseThreadCouldNotBeMadeServesWhoComesLater)
{
    {
        const KovaFailingCall call(kShimThread, EAGAIN);
        EXPECT_EQ(KovaRtpSenderStart(delivery.pSender), 0);
        EXPECT_EQ(call.Failed(), 1);
    }
    delivery.Queue({1});
    EXPECT_EQ(delivery.Group()->pPacketList, nullptr) << "nobody would take it out";
    delivery.Add(udp.Client(kId));
    EXPECT_EQ(delivery.Group()->nState, static_cast<uint32_t>(kThreadRunning));
    delivery.Queue({2});
    EXPECT_EQ(udp.Rtp(5000), KovaPacketBytes({2}));
}

} // namespace
