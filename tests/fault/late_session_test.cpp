#include "tests/fault/fault_bench.h"

#include "tests/support/wait_until.h"

#include <memory>
#include <thread>

namespace {

class LateSession : public KovaFaultTest {};

/// A SETUP that is under way when the server goes holds its stream, so that its session
/// is made before the sessions are removed.
TEST_F(LateSession, IsRemovedWithTheServer)
{
    const KovaHoldings before = KovaHoldingsNow();
    {
        auto pServer = std::make_unique<KovaTestServer>(KovaTestServerOptions{"live", 16, false});
        KovaRtspTestClient client;
        ASSERT_TRUE(pServer->Connect(&client));
        client.OnExchange(nullptr);
        KovaRtspServer *pRecord = pServer->Server();
        KovaHeldCall held(kFaultBind);
        ASSERT_TRUE(client.Send("SETUP rtsp://h/live/trackID=97 RTSP/1.0\r\nCSeq: 1\r\n"
                                "Transport: RTP/AVP;unicast;client_port=5000-5001\r\n\r\n"));
        ASSERT_TRUE(held.WaitHeld(10000));
        std::thread releaser([&] {
            EXPECT_TRUE(KovaWaitUntil(
                10000, [&] { return KovaRtspServerIsUriExist(pRecord, "live") == 0; }));
            usleep(20000);
            EXPECT_EQ(pRecord->pSessionList, nullptr);
            held.Release();
        });
        pServer.reset();
        releaser.join();
        EXPECT_EQ(client.Receive().nStatus, 200);
    }
    KovaExpectHeld(before);
}

} // namespace
