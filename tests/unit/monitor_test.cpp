#include "classic/server/monitor.h"
#include "classic/server/session_end.h"

#include "classic/rtsp/server_calls.h"
#include "foundation/log.h"
#include "tests/support/c_calls.h"
#include "tests/support/fake_clock.h"
#include "tests/support/stdout_capture.h"
#include "tests/support/stream_host.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace {

using Lines = std::vector<std::string>;

constexpr uint32_t kUntouched = 77;

/// 1000 s: in 32-bit microseconds too, and so 1,000,000 ms.
constexpr int64_t kNow = 1000;

/// The server whose monitor is to make one pass.
std::atomic<KovaRtspServer *> g_pOnePass{nullptr};

/// The second at the end of a pass is where it is asked to stop.
int StopAtTheSecond(useconds_t nMicroseconds)
{
    KovaRtspServer *pServer = nMicroseconds == 1000000 ? g_pOnePass.load() : nullptr;
    if (pServer == nullptr)
        return __real_usleep(nMicroseconds);
    pServer->nMonitorState = kThreadStopRequested;
    return 0;
}

struct Monitor : testing::Test {
    KovaStdoutCapture capture;
    KovaFakeClock clock;
    KovaStreamHost host;

    Monitor()
    {
        clock.Fix(kNow * 1000000);
        RTSP_SetLogLevel(0);
        g_pOnePass = host.Server();
        KovaReplaceCall<__real_usleep>(StopAtTheSecond);
    }

    ~Monitor() override
    {
        KovaReplaceCall<__real_usleep>(nullptr);
        g_pOnePass = nullptr;
        RTSP_SetLogLevel(2);
    }

    /// Runs one pass of the monitor. What it printed for the last stream is not in
    /// the result.
    Lines Pass(uint32_t nLevel = 0)
    {
        RTSP_SetLogLevel(0);
        KovaRtspStreamer *pLast = host.AddStream("last");
        pLast->nServerStatus = kUntouched;
        capture.Clear();
        RTSP_SetLogLevel(nLevel);
        host.Server()->nMonitorState = 2;
        std::thread monitor(pMonitorProc, host.Server());
        monitor.join();
        EXPECT_NE(pLast->nServerStatus.load(), kUntouched);
        EXPECT_EQ(host.Server()->nMonitorState.load(), 4U);
        RTSP_SetLogLevel(0);
        Lines lines;
        bool bLast = false;
        for (const std::string &line : capture.Messages()) {
            const bool bRings = line.find("Audio Ring Buffer Avail") != std::string::npos;
            bLast = line.find("Uri: last,") != std::string::npos || (bLast && bRings);
            // Threads of the streams may come late to say that they are there.
            const bool bOthers = line.find("PackerProc, ") != std::string::npos ||
                                 line.find("pSenderProc, ") != std::string::npos;
            if (!bLast && !bOthers)
                lines.push_back(line);
        }
        EXPECT_EQ(KovaRtspServerRemoveUri(host.Server(), "last"), 0);
        return lines;
    }

    /// A client that began its measurement this long ago and sent so much since.
    static KovaRtpClient *AddMeasured(KovaRtspStreamer *pStreamer, uint32_t nId, uint64_t nElapsed,
                                      uint32_t nBytes)
    {
        KovaRtpClient *pClient = KovaAddTestClient(pStreamer, nId, "12345678901");
        pClient->nMeasureStartTime = kNow * 1000 - nElapsed;
        pClient->nMeasureBytes = nBytes;
        pClient->nOctetCount = 4000000000U;
        return pClient;
    }
};

TEST_F(Monitor, ControlBytesOfAnIdArePrintedAsQuestionMarks)
{
    host.AddSession("1\n2\x1b[2J\x7f")->tExpire = kNow - 1;
    EXPECT_EQ(KovaMessagesOf(Pass(), "pMonitorProc").at(0),
              "pMonitorProc, Session Id: 1?2?[2J?,  Timeout !!!");
}

TEST_F(Monitor, SessionsExpireAfterTheirInstant)
{
    KovaRtspSession *pNow = host.AddSession("11111111111");
    pNow->tExpire = kNow;
    KovaRtspSession *pPast = host.AddSession("22222222222");
    pPast->tExpire = kNow - 1;
    host.AddSession("33333333333", 60);
    KovaRtspSession *pLongPast = host.AddSession("44444444444");
    pLongPast->tExpire = -5;
    KovaRtspStreamer *pStreamer = host.AddAudioVideo();
    KovaAddTestClient(pStreamer, 96, "22222222222");
    KovaAddTestClient(pStreamer, 97, "22222222222");
    KovaAddTestClient(pStreamer, 97, "11111111111");
    pStreamer->nClientCount = 2;

    const Lines lines = Pass();
    EXPECT_EQ(KovaMessagesOf(lines, "pMonitorProc"),
              (Lines{"pMonitorProc, Session Id: 22222222222,  Timeout !!!",
                     "pMonitorProc, KovaRtspServerRemoveRtpClient Finish !!!",
                     "pMonitorProc, Session Id: 44444444444,  Timeout !!!",
                     "pMonitorProc, KovaRtspServerRemoveRtpClient Finish !!!"}));
    ASSERT_GT(lines.size(), 2U);
    EXPECT_EQ(lines[1], "KovaRtspServerRemoveRtpClient, Enter Streamer");
    EXPECT_EQ(KovaRtspServerIsSessionExist(host.Server(), "11111111111"), 1);
    EXPECT_EQ(KovaRtspServerIsSessionExist(host.Server(), "22222222222"), 0);
    EXPECT_EQ(KovaRtspServerIsSessionExist(host.Server(), "33333333333"), 1);
    EXPECT_EQ(KovaRtspServerIsSessionExist(host.Server(), "44444444444"), 0);
    EXPECT_EQ(KovaClientIds(pStreamer, 96), Lines{});
    EXPECT_EQ(KovaClientIds(pStreamer, 97), (Lines{"11111111111"}));
    EXPECT_EQ(pStreamer->nClientCount.load(), 1);

    // One second later the first one has expired as well.
    clock.Advance(1000000);
    Pass();
    EXPECT_EQ(KovaRtspServerIsSessionExist(host.Server(), "11111111111"), 0);
    EXPECT_EQ(KovaClientIds(pStreamer, 97), Lines{});
    EXPECT_EQ(pStreamer->nClientCount.load(), 0);
}

TEST_F(Monitor, BitratesAreMeansSinceTheMark)
{
    KovaRtspStreamer *pStreamer = host.AddAudioVideo();
    // 127 bytes are no unit of 128; the product is cut to 32 bits; 10,000 ms are
    // not yet over the span.
    KovaRtpClient *pEven = AddMeasured(pStreamer, 96, 5000, 1280000);
    KovaRtpClient *pLittle = AddMeasured(pStreamer, 96, 1, 127);
    KovaRtpClient *pFresh = AddMeasured(pStreamer, 96, 0, 5000);
    KovaRtpClient *pLarge = AddMeasured(pStreamer, 97, 10000, 0xFFFFFFFF);
    KovaRtpClient *pOld = AddMeasured(pStreamer, 97, 10001, 1280000);
    pFresh->nSendBitrate = 55;
    pStreamer->nClientCount = 5;
    // 33,554,431 * 1000 modulo 2^32.
    const uint64_t nLarge = 3489659928U / 10000U;
    const uint64_t nOld = 10000000U / 10001U;

    const Lines lines = Pass(5);
    ASSERT_EQ(KovaClientIds(pStreamer, 96).size(), 3U);
    ASSERT_EQ(KovaClientIds(pStreamer, 97).size(), 2U);
    EXPECT_EQ(pEven->nSendBitrate, 2000U);
    EXPECT_EQ(pLittle->nSendBitrate, 0U);
    EXPECT_EQ(pFresh->nSendBitrate, 55U);
    EXPECT_EQ(pLarge->nSendBitrate, nLarge);
    EXPECT_EQ(pOld->nSendBitrate, nOld);
    EXPECT_EQ(pEven->nMeasureStartTime, 995000U);
    EXPECT_EQ(pEven->nMeasureBytes, 1280000U);
    EXPECT_EQ(pLarge->nMeasureBytes, 0xFFFFFFFFU);
    EXPECT_EQ(pOld->nMeasureStartTime, 1000000U);
    EXPECT_EQ(pOld->nMeasureBytes, 0U);

    uint64_t nSum = 0;
    EXPECT_EQ(KovaRtspStreamerGetAveThroughput(pStreamer, &nSum), 0);
    EXPECT_EQ(nSum, 2000 + nLarge + nOld);
    const std::string sent = "pMonitorProc, Total Data Sent : 4000000000, Last Data Sent: ";
    EXPECT_EQ(lines, (Lines{"pMonitorProc, Enter thread", sent + "1280000", sent + "127",
                            sent + "4294967295", sent + "1280000",
                            "pMonitorProc, Uri: live, Client Count: 5, Send Bitrate: " +
                                std::to_string(nSum) + " kbps, Server Status: 1",
                            "pMonitorProc, Audio Ring Buffer Avail: 0, Video Ring Buffer Avail: 0",
                            "pMonitorProc, Leave thread"}));
}

TEST_F(Monitor, StatusFollowsClientsRateAndReadiness)
{
    const struct {
        const char *szUri;
        bool bReady;
        int32_t nClients;
        bool bFlows;
        uint32_t nExpected;
    } cases[] = {
        {"a", false, 0, false, 1}, {"b", true, 0, false, 2},  {"c", true, 1, true, 3},
        {"d", true, 1, false, 4},  {"e", false, 1, false, 4}, {"f", false, 1, true, 1},
        {"g", true, 0, true, 2},   {"h", true, -1, true, 9},  {"i", false, -1, false, 1},
    };
    std::vector<KovaRtspStreamer *> streamers;
    for (const auto &one : cases) {
        KovaRtspStreamer *pStreamer = host.AddAudioVideo(one.szUri);
        if (one.bReady)
            KovaMakeReady(pStreamer);
        AddMeasured(pStreamer, 97, 1000, one.bFlows ? 128000 : 0);
        pStreamer->nClientCount = one.nClients;
        pStreamer->nServerStatus = 9;
        streamers.push_back(pStreamer);
    }
    EXPECT_EQ(Pass(4), (Lines{"pMonitorProc, Enter thread", "pMonitorProc, Leave thread"}));
    for (size_t n = 0; n < streamers.size(); n++)
        EXPECT_EQ(streamers[n]->nServerStatus.load(), cases[n].nExpected) << cases[n].szUri;
}

TEST_F(Monitor, LongestUriAndFullRingsAreShown)
{
    const std::string uri(1024, 'u');
    KovaRtspStreamer *pStreamer = host.AddStream(uri);
    pStreamer->nLastPayloadId = 0x61616161;
    KovaStopPackers(pStreamer);
    const uint8_t bytes[9] = {};
    EXPECT_EQ(KovaRtspServerPushData(pStreamer, 96, bytes, 9, 1), 0);
    EXPECT_EQ(KovaRtspServerPushData(pStreamer, 97, bytes, 8, 1), 0);
    EXPECT_EQ(Pass(5),
              (Lines{"pMonitorProc, Enter thread",
                     "pMonitorProc, Uri: " + uri +
                         ", Client Count: 0, Send Bitrate: 0 kbps, Server Status: 1",
                     "pMonitorProc, Audio Ring Buffer Avail: 21, Video Ring Buffer Avail: 20",
                     "pMonitorProc, Leave thread"}));
}

TEST_F(Monitor, LeavesAtOnceWithoutAServerOrWhenNotRunning)
{
    RTSP_SetLogLevel(4);
    std::thread(pMonitorProc, nullptr).join();
    EXPECT_EQ(capture.Messages(),
              (Lines{"pMonitorProc, Enter thread", "pMonitorProc, Leave thread(pServer)"}));
    capture.Clear();
    host.Server()->nMonitorState = 3;
    std::thread(pMonitorProc, host.Server()).join();
    EXPECT_EQ(host.Server()->nMonitorState.load(), 4U);
    RTSP_SetLogLevel(3);
    std::thread(pMonitorProc, nullptr).join();
    EXPECT_EQ(capture.Messages(),
              (Lines{"pMonitorProc, Enter thread", "pMonitorProc, Leave thread"}));
}

} // namespace
