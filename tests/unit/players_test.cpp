#include "classic/streamer/players.h"
#include "tests/support/failing_heap.h"
#include "tests/support/net_ends.h"
#include "tests/support/stdout_capture.h"
#include "tests/support/stream_host.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

/// How a player gets a client on a track.
namespace {

struct Players : testing::Test {
    KovaStdoutCapture capture;
    KovaStreamHost host;
    KovaRtspStreamer *pStream = host.AddAudioVideo();
    const int nRtp = socket(AF_INET, SOCK_DGRAM, 0);
    const int nRtcp = socket(AF_INET, SOCK_DGRAM, 0);

    ~Players() override
    {
        for (const int nSocket : {nRtp, nRtcp}) {
            if (KovaIsOpen(nSocket))
                close(nSocket);
        }
    }

    bool Add(int nFirst, int nSecond, uint32_t nTrack = 97)
    {
        return KovaPlayersAdd(
            pStream, nTrack,
            {"12345678901", nFirst, nSecond, 5000, 5001, 0, 0, 0, nullptr, sockaddr_in{}});
    }
};

TEST_F(Players, SocketsOfAClientThatIsNotMadeStayTheCallers)
{
    {
        const KovaFailingHeap heap;
        EXPECT_FALSE(Add(nRtp, nRtcp));
    }
    EXPECT_FALSE(Add(nRtp, nRtcp, 98)); // no such track
    EXPECT_FALSE(Add(nRtp, -1));
    EXPECT_FALSE(Add(-1, nRtcp));
    EXPECT_TRUE(KovaIsOpen(nRtp));
    EXPECT_TRUE(KovaIsOpen(nRtcp));
    EXPECT_TRUE(KovaClientIds(pStream, 97).empty());
}

TEST_F(Players, SocketsOfAClientThatFindsNoPlaceHaveGoneWithIt)
{
    {
        const KovaFailingHeap heap(1); // the client alone
        EXPECT_TRUE(Add(nRtp, nRtcp)) << "who closed them again might close somebody else's";
    }
    EXPECT_FALSE(KovaIsOpen(nRtp));
    EXPECT_FALSE(KovaIsOpen(nRtcp));
    EXPECT_TRUE(KovaClientIds(pStream, 97).empty());
}

} // namespace
