#include "live/engine/poller.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/time.h>
#include <unistd.h>

#include <csignal>

// What came while a wait was interrupted is handled with it, not one round of timers later.

namespace {

int g_nEnds[2];
uint32_t g_nHandled;

void WriteOne(int)
{
    const ssize_t nWritten = write(g_nEnds[1], "x", 1);
    (void)nWritten;
}

void CountEvent(KovaPollItem *, uint32_t nEvents)
{
    g_nHandled += nEvents == kPollRead ? 1 : 0;
}

struct LivePollerSignal : testing::TestWithParam<bool> {};

} // namespace

TEST_P(LivePollerSignal, WhatCameWithASignalIsHandled)
{
    g_nHandled = 0;
    ASSERT_EQ(pipe2(g_nEnds, O_CLOEXEC | O_NONBLOCK), 0);
    KovaPoller *pPoller = KovaPollerCreate(GetParam());
    ASSERT_NE(pPoller, nullptr);
    KovaPollItem item = {g_nEnds[0], kPollRead, CountEvent, 0};
    ASSERT_TRUE(KovaPollerAdd(pPoller, &item));
    struct sigaction action = {};
    struct sigaction before = {};
    action.sa_handler = WriteOne;
    ASSERT_EQ(sigaction(SIGALRM, &action, &before), 0);
    const itimerval soon = {{0, 0}, {0, 50000}};
    ASSERT_EQ(setitimer(ITIMER_REAL, &soon, nullptr), 0);
    KovaPollerWait(pPoller, 20000);
    KovaPollerHandle(pPoller);
    EXPECT_EQ(g_nHandled, 1U);
    sigaction(SIGALRM, &before, nullptr);
    KovaPollerRemove(pPoller, &item);
    KovaPollerDestroy(pPoller);
    close(g_nEnds[0]);
    close(g_nEnds[1]);
}

INSTANTIATE_TEST_SUITE_P(EpollAndPoll, LivePollerSignal, testing::Bool());
