#include "classic/streamer/client_walk.h"

#include "classic/server/session_end.h"
#include "tests/support/stdout_capture.h"
#include "tests/support/stream_host.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace {

using Lines = std::vector<std::string>;

constexpr char kFirst[] = "11111111111";
constexpr char kSecond[] = "22222222222";

struct ClientWalk : testing::Test {
    KovaStdoutCapture capture;
    KovaStreamHost host;
    KovaRtspStreamer *pStreamer = host.AddAudioVideo();
    Lines visited;

    void AddClients()
    {
        KovaAddTestClient(pStreamer, 97, kFirst);
        KovaAddTestClient(pStreamer, 96, kFirst);
        KovaAddTestClient(pStreamer, 96, kSecond);
        KovaAddTestClient(pStreamer, 97, kSecond);
        capture.Clear();
    }

    static bool Note(const KovaClientVisit &visit, void *pContext)
    {
        EXPECT_EQ(visit.pGroup->pSender, visit.pSender);
        EXPECT_EQ(visit.pSender->pStreamer, visit.pStreamer);
        static_cast<Lines *>(pContext)->push_back(std::to_string(visit.pSender->nPayloadId) + " " +
                                                  visit.pClient->szSessionId);
        return false;
    }

    /// The lines of KovaRtspServerRemoveRtpClient.
    static Lines Trace(const Lines &steps)
    {
        Lines lines;
        for (const std::string &step : steps)
            lines.push_back("KovaRtspServerRemoveRtpClient, " + step);
        return lines;
    }
};

TEST_F(ClientWalk, MeetsSendersInTheOrderOfAddition)
{
    AddClients();
    KovaStreamerWalkClients(pStreamer,
                            {&pStreamer->packerMutex, kRankPackers, nullptr, Note, &visited});
    EXPECT_EQ(visited,
              (Lines{"96 11111111111", "96 22222222222", "97 11111111111", "97 22222222222"}));
    EXPECT_EQ(capture.Text(), "");
}

TEST_F(ClientWalk, MeetsOneSessionsClientsOnly)
{
    AddClients();
    KovaStreamerWalkSession(pStreamer, kSecond, nullptr, Note, &visited);
    EXPECT_EQ(visited, (Lines{"96 22222222222", "97 22222222222"}));
    visited.clear();
    KovaStreamerWalkSession(pStreamer, "2222222222", nullptr, Note, &visited);
    KovaStreamerWalkSession(pStreamer, "", nullptr, Note, &visited);
    EXPECT_EQ(visited, Lines{});
}

TEST_F(ClientWalk, RemovalPrintsEveryLevelOfEveryStream)
{
    host.AddStream("empty");
    capture.Clear();
    EXPECT_EQ(KovaRtspServerRemoveRtpClient(host.Server(), "nobody"), 0);
    EXPECT_EQ(capture.Lines(),
              Trace({"Enter Streamer", "Enter Sender", "Enter SendGroup", "Enter Client",
                     "Leave Client", "Leave SendGroup", "Enter SendGroup", "Enter Client",
                     "Leave Client", "Leave SendGroup", "Leave Sender", "Enter Sender",
                     "Leave Sender", "Leave Streamer"}));
    EXPECT_EQ(pStreamer->nClientCount.load(), 0);
}

TEST_F(ClientWalk, RemovalOfNobodyChangesNothing)
{
    AddClients();
    pStreamer->nClientCount = 2;
    EXPECT_EQ(KovaRtspServerRemoveRtpClient(host.Server(), "33333333333"), 0);
    EXPECT_EQ(pStreamer->nClientCount.load(), 2);
    EXPECT_EQ(KovaClientIds(pStreamer, 96), (Lines{kFirst, kSecond}));
    EXPECT_EQ(KovaClientIds(pStreamer, 97), (Lines{kFirst, kSecond}));
}

TEST_F(ClientWalk, RemovalCountsASessionOnce)
{
    AddClients();
    pStreamer->nClientCount = 2;
    EXPECT_EQ(KovaRtspServerRemoveRtpClient(host.Server(), kFirst), 0);
    EXPECT_EQ(pStreamer->nClientCount.load(), 1);
    EXPECT_EQ(KovaClientIds(pStreamer, 96), (Lines{kSecond}));
    EXPECT_EQ(KovaClientIds(pStreamer, 97), (Lines{kSecond}));
    EXPECT_EQ(KovaRtspServerRemoveRtpClient(host.Server(), kFirst), 0);
    EXPECT_EQ(pStreamer->nClientCount.load(), 1);
}

TEST_F(ClientWalk, RemovalCountsOnTheFirstStreamAlone)
{
    KovaRtspStreamer *pOther = host.AddAudioVideo("other");
    KovaAddTestClient(pStreamer, 96, kFirst);
    KovaAddTestClient(pOther, 96, kFirst);
    pStreamer->nClientCount = 5;
    pOther->nClientCount = 5;
    EXPECT_EQ(KovaRtspServerRemoveRtpClient(host.Server(), kFirst), 0);
    EXPECT_EQ(pStreamer->nClientCount.load(), 4);
    EXPECT_EQ(pOther->nClientCount.load(), 5);
    EXPECT_EQ(KovaClientIds(pOther, 96), Lines{});
}

TEST_F(ClientWalk, RemovalRefusesNullArguments)
{
    EXPECT_EQ(KovaRtspServerRemoveRtpClient(nullptr, kFirst), 2);
    EXPECT_EQ(KovaRtspServerRemoveRtpClient(host.Server(), nullptr), 2);
    KovaRtspServerRemoveRtpClient(nullptr, nullptr);
    EXPECT_EQ(capture.Lines().size(), 4U) << "the ids and SSRCs of the payload types alone";
}

TEST_F(ClientWalk, StreamsAndPayloadTypesMayGoMeanwhile)
{
    std::atomic<bool> bEnd{false};
    std::thread walker([&] {
        // The ways of the monitor, of an expiry and of a request.
        for (int n = 0; n < 100000 && !bEnd; n++) {
            KovaRtspServerRemoveRtpClient(host.Server(), n % 2 != 0 ? kFirst : kSecond);
            Lines ids;
            KovaStreamerWalkClients(pStreamer,
                                    {&pStreamer->packerMutex, kRankPackers, nullptr, Note, &ids});
            std::this_thread::yield();
        }
    });
    const KovaVideoDescription video = {1};
    for (int n = 0; n < 15; n++) {
        uint32_t nId = 0;
        EXPECT_EQ(KovaRtspServerAddPayloadType(pStreamer, KOVA_MEDIA_VIDEO, &nId, &video), 0);
        KovaRtpSenderAddRtpClient(static_cast<KovaRtpSender *>(pStreamer->pSenderListTail->data),
                                  kFirst, 0, 0, 0, 0, sockaddr_in{}, 1, nullptr, 0, 1, 0, 0);
        EXPECT_EQ(KovaRtspServerRemovePayloadType(pStreamer, nId), 0);
        host.AddAudioVideo("brief");
        EXPECT_EQ(KovaRtspServerRemoveUri(host.Server(), "brief"), 0);
    }
    bEnd = true;
    walker.join();
    EXPECT_EQ(KovaListLength(pStreamer->pSenderList), 2U);
}

} // namespace
