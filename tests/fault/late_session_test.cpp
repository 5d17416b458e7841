#include "tests/fault/fault_bench.h"

#include "foundation/mutex.h"
#include "tests/support/wait_until.h"

#include <unistd.h>

#include <memory>
#include <thread>

namespace {

class LateSession : public KovaFaultTest {};

/// A SETUP that is under way when the server goes holds its stream, and makes its
/// session while the server waits for that.
TEST_F(LateSession, IsRemovedWithTheServer)
{
    const KovaHoldings before = KovaHoldingsNow();
    {
        auto pServer = std::make_unique<KovaTestServer>(KovaTestServerOptions{"live", 16, false});
        KovaRtspTestClient client;
        ASSERT_TRUE(pServer->Connect(&client));
        client.OnExchange(nullptr);
        KovaHeldCall held(kFaultBind);
        ASSERT_TRUE(client.Send("SETUP rtsp://h/live/trackID=97 RTSP/1.0\r\nCSeq: 1\r\n"
                                "Transport: RTP/AVP;unicast;client_port=5000-5001\r\n\r\n"));
        ASSERT_TRUE(held.WaitHeld(10000));
        KovaRtspServer *pRecord = pServer->Server();
        std::thread releaser([&] {
            EXPECT_TRUE(KovaWaitUntil(10000, [&] {
                const KovaMutexLock lock(&pRecord->mtxStreamer, kRankStreams);
                return pRecord->pStreamerList == nullptr;
            }));
            usleep(20000); // what does not wait goes on meanwhile
            held.Release();
        });
        pServer.reset();
        releaser.join();
        EXPECT_EQ(client.Receive().nStatus, 200);
    }
    KovaExpectHeld(before);
}

} // namespace
