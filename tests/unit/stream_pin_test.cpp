#include "classic/rtsp/server_calls.h"
#include "classic/server/stream_registry.h"
#include "tests/support/stdout_capture.h"
#include "tests/support/stream_host.h"
#include "unlock_hook.h"

#include <gtest/gtest.h>

namespace {

TEST(StreamPin, StandsWhenTheRegistryIsLetGo)
{
    const KovaStdoutCapture capture;
    KovaStreamHost host;
    KovaRtspServer *pServer = host.Server();
    KovaRtspStreamer *pStream = host.AddStream("live");
    uint32_t nPins = 0;
    // Whoever takes the registry now may take the stream out and destroy it.
    const KovaUnlockHook hook(&pServer->mtxStreamer.native, [&] { nPins = pStream->nPins; });
    ASSERT_EQ(KovaServerPinStreamer(pServer, "live"), pStream);
    EXPECT_EQ(hook.Calls(), 1);
    EXPECT_EQ(nPins, 1U);
    KovaStreamerUnpin(pStream);
}

} // namespace
