#include "live/engine/timers.h"

#include <gtest/gtest.h>

// A timer of a loop can be set without memory: its place is there from the beginning.

TEST(LiveTimersRoom, EachOwnerHasAPlaceBehindTheFirst)
{
    KovaTimers timers = {};
    for (uint32_t nOwner = 1; nOwner <= 300; nOwner++) {
        ASSERT_TRUE(KovaTimersJoin(&timers));
        ASSERT_EQ(timers.nOwners, nOwner);
        ASSERT_GT(timers.nRoom, timers.nOwners) << "place 0 is nobody's";
    }
    KovaTimer timer = {};
    KovaTimersLeave(&timers, &timer);
    EXPECT_EQ(timers.nOwners, 299U);
    KovaTimersClear(&timers);
}
