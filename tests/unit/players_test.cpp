#include "classic/streamer/players.h"

#include "tests/support/failing_heap.h"
#include "tests/support/net_ends.h"
#include "tests/support/stdout_capture.h"
#include "tests/support/stream_host.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

namespace {

/// The two sockets of a SETUP over UDP.
struct Sockets {
    int nRtp = socket(AF_INET, SOCK_DGRAM, 0);
    int nRtcp = socket(AF_INET, SOCK_DGRAM, 0);

    ~Sockets()
    {
        for (const int nSocket : {nRtp, nRtcp}) {
            if (KovaIsOpen(nSocket))
                close(nSocket);
        }
    }

    KovaClientSetup Setup() const
    {
        KovaClientSetup setup = {};
        setup.szSessionId = "12345678901";
        setup.nRtpSocket = nRtp;
        setup.nRtcpSocket = nRtcp;
        return setup;
    }

    bool AreOpen() const
    {
        return KovaIsOpen(nRtp) && KovaIsOpen(nRtcp);
    }
    bool AreClosed() const
    {
        return !KovaIsOpen(nRtp) && !KovaIsOpen(nRtcp);
    }
};

struct Players : testing::Test {
    KovaStdoutCapture capture;
    KovaStreamHost host;
    KovaRtspStreamer *pStreamer = host.AddStream();
    uint32_t nTrack = 0;

    void SetUp() override
    {
        const KovaVideoDescription video = {2000};
        ASSERT_EQ(KovaRtspStreamerAddPayloadType(pStreamer, 2, &nTrack, &video), 0);
    }
};

TEST_F(Players, SocketsThatNoClientWasMadeForStayTheCallers)
{
    const Sockets sockets;
    EXPECT_FALSE(KovaPlayersAdd(pStreamer, nTrack + 1, sockets.Setup()));
    const KovaFailingHeap heap;
    EXPECT_FALSE(KovaPlayersAdd(pStreamer, nTrack, sockets.Setup()));
    EXPECT_TRUE(sockets.AreOpen());
}

/// Their numbers may be somebody else's by the time that the caller would close them again.
TEST_F(Players, SocketsGoWithAClientThatFindsNoPlace)
{
    const Sockets sockets;
    const KovaFailingHeap heap(1); // the client's record
    EXPECT_TRUE(KovaPlayersAdd(pStreamer, nTrack, sockets.Setup()));
    EXPECT_GT(heap.Failed(), 0);
    EXPECT_TRUE(sockets.AreClosed());
}

TEST_F(Players, SocketsLiveAsLongAsTheirClient)
{
    const Sockets sockets;
    EXPECT_TRUE(KovaPlayersAdd(pStreamer, nTrack, sockets.Setup()));
    EXPECT_TRUE(sockets.AreOpen());
    EXPECT_EQ(KovaRtspStreamerRemovePayloadType(pStreamer, nTrack), 0);
    EXPECT_TRUE(sockets.AreClosed());
}

} // namespace
