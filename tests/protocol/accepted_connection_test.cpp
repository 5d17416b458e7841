#include "tests/support/test_server.h"

#include <gtest/gtest.h>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace {

/// The end of an access unit must not wait for an acknowledgement of its beginning.
TEST(AcceptedConnection, SendsAtOnce)
{
    KovaTestServer server;
    ASSERT_TRUE(server.IsUp());
    KovaRtspTestClient player;
    ASSERT_TRUE(server.Connect(&player));
    ASSERT_EQ(player.Options("live").nStatus, 200);
    int nValue = -1;
    socklen_t nSize = sizeof(nValue);
    ASSERT_EQ(getsockopt(server.Handler(player)->nSocket.load(), IPPROTO_TCP, TCP_NODELAY, &nValue,
                         &nSize),
              0);
    EXPECT_NE(nValue, 0);
}

} // namespace
