#include "classic/rtsp/server_calls.h"
#include "classic/rtsp/stream_clients.h"
#include "classic/server/session_end.h"
#include "classic/streamer/client_walk.h"
#include "classic/streamer/registries.h"
#include "tests/support/net_ends.h"
#include "tests/support/stdout_capture.h"
#include "tests/support/stream_host.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

/// What becomes of a session's clients, and of the stream's count, when its
/// connection is lost.
namespace {

const char *const kId = "12345678901";

struct SessionEnd : testing::Test {
    KovaStdoutCapture capture;
    KovaStreamHost host;
    KovaRtspStreamer *pStream = host.AddAudioVideo("live");

    SessionEnd()
    {
        host.AddSession(kId);
        pStream->nClientCount = 5;
    }

    void Play()
    {
        ASSERT_EQ(UpdateRtpClientStatus(host.Server(), "live", kId), 0);
        ASSERT_EQ(pStream->nClientCount, 6);
    }

    void LoseConnection()
    {
        KovaServerEndSession(host.Server(), kId, kEndLost);
        EXPECT_EQ(KovaRtspServerIsSessionExist(host.Server(), kId), 0);
    }

    size_t Clients() const
    {
        return KovaClientIds(pStream, 96).size() + KovaClientIds(pStream, 97).size();
    }

    /// What the monitor does with strays in one of its passes.
    void Pass() const
    {
        KovaStreamerWalkClients(pStream, {&pStream->packerMutex, kRankPackers, nullptr,
                                          [](const KovaClientVisit &visit, void *) {
                                              return KovaPlayersStrayIsDue(visit.pStreamer,
                                                                           visit.pClient);
                                          },
                                          nullptr});
    }
};

TEST_F(SessionEnd, SessionThatNeverPlayedDoesNotLowerTheCount)
{
    KovaAddTestClient(pStream, 96, kId);
    KovaAddTestClient(pStream, 97, kId);
    LoseConnection();
    EXPECT_EQ(Clients(), 0U) << "no packet would ever tell them";
    EXPECT_EQ(pStream->nClientCount, 5);
}

TEST_F(SessionEnd, SetUpTrackOverUdpDoesNotLowerTheCount)
{
    KovaUdpEnds udp;
    KovaRtpSender *pSender = KovaRtspStreamerGetRtpSenderByPayloadId(pStream, 97);
    ASSERT_TRUE(KovaRtpSenderPlaceClient(pSender, udp.Client(kId)));
    LoseConnection();
    EXPECT_EQ(Clients(), 0U);
    EXPECT_EQ(pStream->nClientCount, 5);
}

TEST_F(SessionEnd, PlayingSessionOverUdpLowersTheCountOnce)
{
    KovaUdpEnds audio;
    KovaUdpEnds video;
    ASSERT_TRUE(KovaRtpSenderPlaceClient(KovaRtspStreamerGetRtpSenderByPayloadId(pStream, 96),
                                         audio.Client(kId)));
    ASSERT_TRUE(KovaRtpSenderPlaceClient(KovaRtspStreamerGetRtpSenderByPayloadId(pStream, 97),
                                         video.Client(kId)));
    Play();
    LoseConnection();
    EXPECT_EQ(Clients(), 0U);
    EXPECT_EQ(pStream->nClientCount, 5);
}

TEST_F(SessionEnd, StrayLeavesAtTheThirdPass)
{
    KovaAddTestClient(pStream, 96, kId);
    KovaAddTestClient(pStream, 97, kId);
    Play();
    LoseConnection();
    EXPECT_EQ(Clients(), 2U) << "the next packets are to tell them";
    for (int nPass = 1; nPass <= 2; nPass++) {
        Pass();
        EXPECT_EQ(Clients(), 2U) << nPass;
        EXPECT_EQ(pStream->nClientCount, 6) << nPass;
    }
    Pass();
    EXPECT_EQ(Clients(), 0U);
    EXPECT_EQ(pStream->nClientCount, 5) << "one session, whatever it has of tracks";
}

TEST_F(SessionEnd, EndOfASessionThatIsNotThereTakesNobodyWithIt)
{
    KovaAddTestClient(pStream, 96, "10987654321");
    KovaServerEndSession(host.Server(), "10987654321", kEndLost);
    EXPECT_EQ(Clients(), 1U);
    EXPECT_EQ(pStream->nClientCount, 5);
}

TEST_F(SessionEnd, ClientsWithASessionAreNoStrays)
{
    KovaAddTestClient(pStream, 96, kId);
    Play();
    for (int nPass = 0; nPass < 10; nPass++)
        Pass();
    EXPECT_EQ(Clients(), 1U);
    EXPECT_EQ(pStream->nClientCount, 6);
}

} // namespace
