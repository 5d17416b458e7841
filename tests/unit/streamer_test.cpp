#include "classic/streamer/streamer.h"

#include "classic/rtsp/server_calls.h"
#include "classic/streamer/registries.h"
#include "foundation/log.h"
#include "system_shims.h"
#include "tests/support/failing_heap.h"
#include "tests/support/fake_clock.h"
#include "tests/support/stdout_capture.h"
#include "tests/support/stream_host.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <string>
#include <thread>
#include <vector>

namespace {

using Lines = std::vector<std::string>;

const KovaAudioDescription kAudio = {64, 44100, 2};
const KovaVideoDescription kVideo = {2000};

struct Streamer : testing::Test {
    KovaStdoutCapture capture;
    KovaStreamHost host;

    Streamer()
    {
        RTSP_SetLogLevel(0);
    }

    ~Streamer() override
    {
        RTSP_SetLogLevel(2);
    }
};

TEST_F(Streamer, StartsWithTheseValues)
{
    KovaFakeClock clock;
    clock.Fix(1704445387LL * 1000000);
    KovaRtspStreamer *pStreamer = KovaRtspStreamerCreate(host.Server(), "live/cam");
    ASSERT_NE(pStreamer, nullptr);
    EXPECT_EQ(pStreamer->pServer, host.Server());
    EXPECT_EQ(std::string(pStreamer->szUri, 9), std::string("live/cam\0", 9));
    EXPECT_EQ(std::string(pStreamer->szUri + 9, 1015), std::string(1015, '\0'));
    EXPECT_EQ(pStreamer->nLastPayloadId, 0U);
    ASSERT_NE(pStreamer->pSdpGenerator, nullptr);
    EXPECT_STREQ(pStreamer->pSdpGenerator->szUri, "live/cam");
    EXPECT_EQ(pStreamer->pMediaInfoList, nullptr);
    EXPECT_EQ(pStreamer->pPackerList, nullptr);
    EXPECT_EQ(pStreamer->pSenderList, nullptr);
    EXPECT_EQ(pStreamer->nFirstRtpTimestamp, 0U);
    EXPECT_EQ(pStreamer->nFirstSendTime, 0U);
    EXPECT_EQ(pStreamer->tCreated, 1704445387U);
    EXPECT_EQ(pStreamer->nLastAudioTimestamp.load(), 0U);
    EXPECT_EQ(pStreamer->nLastVideoTimestamp.load(), 0U);
    EXPECT_EQ(pStreamer->nLastAudioPushTime, 0U);
    EXPECT_EQ(pStreamer->nLastVideoPushTime, 0U);
    EXPECT_EQ(pStreamer->nMaxAudioPushInterval, 0U);
    EXPECT_EQ(pStreamer->nMaxVideoPushInterval, 0U);
    EXPECT_EQ(KovaRingbufferFree(&pStreamer->audioRing), 2097151);
    EXPECT_EQ(KovaRingbufferFree(&pStreamer->videoRing), 14680063);
    EXPECT_EQ(pStreamer->nAudioPackerState.load(), 2U);
    EXPECT_EQ(pStreamer->nVideoPackerState.load(), 2U);
    EXPECT_EQ(capture.Text(), "");
    EXPECT_EQ(KovaRtspStreamerDestroy(pStreamer), 0);
}

TEST_F(Streamer, FreshFigures)
{
    KovaRtspStreamer *pStreamer = host.AddStream();
    uint32_t nStatus = 99;
    int32_t nCount = 99;
    uint64_t nThroughput = 99;
    EXPECT_EQ(KovaRtspStreamerGetServerStatus(pStreamer, &nStatus), 0);
    EXPECT_EQ(nStatus, 1U);
    EXPECT_EQ(KovaRtspStreamerGetClientCount(pStreamer, &nCount), 0);
    EXPECT_EQ(nCount, 0);
    EXPECT_EQ(KovaRtspStreamerGetAveThroughput(pStreamer, &nThroughput), 0);
    EXPECT_EQ(nThroughput, 0U);
    EXPECT_EQ(KovaRtspStreamerSdpIsReady(pStreamer), 0);
}

TEST_F(Streamer, FiguresRefuseNullArguments)
{
    KovaRtspStreamer *pStreamer = host.AddStream();
    uint32_t nStatus = 99;
    int32_t nCount = 99;
    uint64_t nThroughput = 99;
    EXPECT_EQ(KovaRtspStreamerGetServerStatus(nullptr, &nStatus), 2);
    EXPECT_EQ(KovaRtspStreamerGetServerStatus(pStreamer, nullptr), 2);
    EXPECT_EQ(KovaRtspStreamerGetClientCount(nullptr, &nCount), 2);
    EXPECT_EQ(KovaRtspStreamerGetClientCount(pStreamer, nullptr), 2);
    EXPECT_EQ(KovaRtspStreamerGetAveThroughput(nullptr, &nThroughput), 2);
    EXPECT_EQ(KovaRtspStreamerGetAveThroughput(pStreamer, nullptr), 2);
    EXPECT_EQ(nStatus, 99U);
    EXPECT_EQ(nCount, 99);
    EXPECT_EQ(nThroughput, 99U);
    EXPECT_EQ(KovaRtspStreamerDestroy(nullptr), 2);
}

TEST_F(Streamer, RefusesNullArgumentsAndTooLongUris)
{
    EXPECT_EQ(KovaRtspStreamerCreate(nullptr, "live"), nullptr);
    EXPECT_EQ(KovaRtspStreamerCreate(host.Server(), nullptr), nullptr);
    EXPECT_EQ(KovaRtspStreamerCreate(host.Server(), std::string(1025, 'u').c_str()), nullptr);
    EXPECT_EQ(KovaRtspStreamerCreate(host.Server(), std::string(5000, 'u').c_str()), nullptr);
    EXPECT_EQ(capture.Text(), "");
}

TEST_F(Streamer, LongestUriFillsItsFieldAndIsFound)
{
    const std::string uri(1024, 'u');
    KovaRtspStreamer *pStreamer = host.AddStream(uri);
    EXPECT_EQ(std::string(pStreamer->szUri, 1024), uri);
    EXPECT_EQ(KovaRtspServerIsUriExist(host.Server(), uri.c_str()), 1);
    EXPECT_EQ(KovaRtspServerIsUriExist(host.Server(), uri.substr(1).c_str()), 0);
    EXPECT_EQ(KovaRtspServerIsUriExist(host.Server(), (uri + "u").c_str()), 0);
    // The next field does not belong to the text, whatever it holds.
    uint32_t nId = 0;
    ASSERT_EQ(KovaRtspStreamerAddPayloadType(pStreamer, 2, &nId, &kVideo), 0);
    EXPECT_EQ(KovaRtspServerIsUriExist(host.Server(), uri.c_str()), 1);
    capture.Clear();
    EXPECT_EQ(KovaRtspStreamerCreate(host.Server(), uri.c_str()), nullptr);
    EXPECT_EQ(capture.Text(), "KovaRtspStreamerCreate, The Uri is existed !!!\n");
    EXPECT_EQ(KovaRtspServerRemoveUri(host.Server(), uri.c_str()), 0);
}

TEST_F(Streamer, PublishedUriIsRefusedWithAMessage)
{
    host.AddStream("live");
    EXPECT_EQ(KovaRtspStreamerCreate(host.Server(), "live"), nullptr);
    EXPECT_EQ(capture.Text(), "KovaRtspStreamerCreate, The Uri is existed !!!\n");
    KovaRtspStreamer *pOther = KovaRtspStreamerCreate(host.Server(), "Live");
    EXPECT_NE(pOther, nullptr);
    KovaRtspStreamerDestroy(pOther);
}

TEST_F(Streamer, IsNullWithoutMemoryOrThreads)
{
    {
        const KovaFailingHeap heap;
        EXPECT_EQ(KovaRtspStreamerCreate(host.Server(), "live"), nullptr);
    }
    for (int nGood = 0; nGood < 2; nGood++) {
        const KovaFailingCall threads(kShimThread, EAGAIN, nGood);
        EXPECT_EQ(KovaRtspStreamerCreate(host.Server(), "live"), nullptr) << nGood;
        EXPECT_EQ(threads.Failed(), 1) << nGood;
    }
    EXPECT_EQ(capture.Text(), "");
}

TEST_F(Streamer, PayloadIdsCountUpFrom96)
{
    KovaRtspStreamer *pStreamer = host.AddStream();
    const KovaFixedRand random({0x11, 0x122, 0x7FFFFF33, 0x44});
    uint32_t nId = 0;
    EXPECT_EQ(KovaRtspStreamerAddPayloadType(pStreamer, 1, &nId, &kAudio), 0);
    EXPECT_EQ(nId, 96U);
    EXPECT_EQ(KovaRtspStreamerAddPayloadType(pStreamer, 2, &nId, &kVideo), 0);
    EXPECT_EQ(nId, 97U);
    EXPECT_EQ(KovaRtspStreamerRemovePayloadType(pStreamer, 97), 0);
    EXPECT_EQ(KovaRtspStreamerAddPayloadType(pStreamer, 2, &nId, &kVideo), 0);
    EXPECT_EQ(nId, 98U);
    EXPECT_EQ(capture.Lines(), (Lines{"Payload Id: 96", "SSRC: 44332211", "Payload Id: 97",
                                      "SSRC: 44332211", "Payload Id: 98", "SSRC: 44332211"}));
}

TEST_F(Streamer, PayloadTypeMakesEverythingThatBelongsToIt)
{
    KovaRtspStreamer *pStreamer = host.AddStream();
    const KovaFixedRand random({0xEF, 0xBE, 0xAD, 0xDE});
    uint32_t nId = 0;
    ASSERT_EQ(KovaRtspStreamerAddPayloadType(pStreamer, 2, &nId, &kVideo), 0);
    const KovaRtspMediaInfo *pInfo = KovaRtspStreamerGetRtspMediaInfoByPayloadId(pStreamer, 96);
    ASSERT_NE(pInfo, nullptr);
    EXPECT_EQ(pInfo->nMediaType, 2U);
    const KovaRtpPacker *pPacker = KovaRtspStreamerGetRtpPackerByPayloadId(pStreamer, 96);
    ASSERT_NE(pPacker, nullptr);
    EXPECT_EQ(pPacker->nCodec, 2U);
    EXPECT_EQ(pPacker->nSsrc, 0xDEADBEEFU);
    EXPECT_EQ(pPacker->pStreamInfoContext, pStreamer);
    const KovaRtpSender *pSender = KovaRtspStreamerGetRtpSenderByPayloadId(pStreamer, 96);
    ASSERT_NE(pSender, nullptr);
    EXPECT_EQ(pSender->pStreamer, pStreamer);
    EXPECT_EQ(static_cast<KovaRtpSendGroup *>(pSender->pSendGroupList->data)->nState.load(), 2U);
    EXPECT_NE(KovaRtspSdpGeneratorGetMediaByPayloadId(pStreamer->pSdpGenerator, 96), nullptr);

    EXPECT_EQ(KovaRtspStreamerRemovePayloadType(pStreamer, 96), 0);
    EXPECT_EQ(pStreamer->pMediaInfoList, nullptr);
    EXPECT_EQ(pStreamer->pPackerList, nullptr);
    EXPECT_EQ(pStreamer->pSenderList, nullptr);
    EXPECT_EQ(pStreamer->pSdpGenerator->pMediaList, nullptr);
    EXPECT_EQ(KovaRtspStreamerRemovePayloadType(pStreamer, 96), 0);
}

TEST_F(Streamer, UnknownMediaTypeConsumesItsId)
{
    KovaRtspStreamer *pStreamer = host.AddStream();
    uint32_t nId = 0;
    for (const uint32_t nType : {3U, 0U}) {
        EXPECT_EQ(KovaRtspStreamerAddPayloadType(pStreamer, nType, &nId, &kAudio), 1) << nType;
        EXPECT_EQ(pStreamer->pMediaInfoList, nullptr);
        EXPECT_EQ(pStreamer->pPackerList, nullptr);
        EXPECT_EQ(pStreamer->pSenderList, nullptr);
        EXPECT_EQ(pStreamer->pSdpGenerator->pMediaList, nullptr);
    }
    EXPECT_EQ(nId, 97U);
    EXPECT_EQ(KovaRtspStreamerAddPayloadType(pStreamer, 1, &nId, &kAudio), 0);
    EXPECT_EQ(nId, 98U);
}

TEST_F(Streamer, PayloadTypeRefusesNullArguments)
{
    KovaRtspStreamer *pStreamer = host.AddStream();
    uint32_t nId = 5;
    EXPECT_EQ(KovaRtspStreamerAddPayloadType(nullptr, 1, &nId, &kAudio), 2);
    EXPECT_EQ(KovaRtspStreamerAddPayloadType(pStreamer, 1, nullptr, &kAudio), 2);
    EXPECT_EQ(KovaRtspStreamerAddPayloadType(pStreamer, 1, &nId, nullptr), 2);
    EXPECT_EQ(nId, 5U);
    EXPECT_EQ(pStreamer->nLastPayloadId, 0U);
    EXPECT_EQ(KovaRtspStreamerRemovePayloadType(nullptr, 96), 2);
    GetNewPayloadId(nullptr, &nId);
    GetNewPayloadId(pStreamer, nullptr);
    GetNewSSRC(nullptr);
    EXPECT_EQ(capture.Text(), "");
}

TEST_F(Streamer, PayloadTypeWithoutMemoryLeavesWhatCanBeRemoved)
{
    KovaRtspStreamer *pStreamer = host.AddStream();
    int nGood = 0;
    int32_t nResult = 1;
    for (; nResult != 0 && nGood < 100; nGood++) {
        uint32_t nId = 0;
        const KovaFailingHeap heap(nGood);
        nResult = KovaRtspStreamerAddPayloadType(pStreamer, 2, &nId, &kVideo);
        EXPECT_TRUE(nResult == 0 || nResult == 1) << nResult;
        EXPECT_EQ(nId, 96U + static_cast<uint32_t>(nGood));
        EXPECT_EQ(KovaRtspStreamerRemovePayloadType(pStreamer, nId), 0);
        EXPECT_EQ(pStreamer->pSenderList, nullptr);
    }
    EXPECT_EQ(nResult, 0);
    EXPECT_GT(nGood, 8);
    EXPECT_EQ(pStreamer->pMediaInfoList, nullptr);
    EXPECT_EQ(pStreamer->pPackerList, nullptr);
}

TEST_F(Streamer, UpdateSessionPassesBothArgumentsOn)
{
    KovaFakeClock clock;
    clock.Fix(1000LL * 1000000);
    const KovaRtspSession *pSession = host.AddSession("12345678901", 60);
    clock.Fix(2000LL * 1000000);
    EXPECT_EQ(KovaRtspStreamerUpdateSession(host.Server(), "12345678901"), 0);
    EXPECT_EQ(pSession->tExpire.load(), 2090);
    EXPECT_EQ(KovaRtspStreamerUpdateSession(host.Server(), "nobody"), 5);
    EXPECT_EQ(KovaRtspStreamerUpdateSession(nullptr, "12345678901"), 2);
    EXPECT_EQ(KovaRtspStreamerUpdateSession(host.Server(), nullptr), 2);
}

TEST_F(Streamer, DestroyTakesStoppedPackersAsTheyAre)
{
    KovaRtspStreamer *pStreamer = KovaRtspStreamerCreate(host.Server(), "live");
    ASSERT_NE(pStreamer, nullptr);
    KovaStopPackers(pStreamer);
    EXPECT_EQ(KovaRtspStreamerDestroy(pStreamer), 0);
}

TEST_F(Streamer, DestructionWaitsForWhoeverUsesTheStream)
{
    host.AddAudioVideo("live");
    KovaRtspStreamer *pPinned = KovaServerPinStreamer(host.Server(), "live");
    ASSERT_NE(pPinned, nullptr);
    std::atomic<bool> bGone{false};
    std::thread remover([&] {
        EXPECT_EQ(KovaRtspServerRemoveUri(host.Server(), "live"), 0);
        bGone = true;
    });
    // Nobody new gets it any more, but what has it may use it.
    EXPECT_TRUE(
        KovaWaitUntil([&] { return KovaRtspServerIsUriExist(host.Server(), "live") == 0; }));
    EXPECT_EQ(KovaServerPinStreamer(host.Server(), "live"), nullptr);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(bGone);
    EXPECT_NE(KovaRtspStreamerGetRtpSenderByPayloadId(pPinned, 97), nullptr);
    KovaStreamerUnpin(pPinned);
    remover.join();
    EXPECT_TRUE(bGone);
}

TEST_F(Streamer, PinningNobodyIsNull)
{
    EXPECT_EQ(KovaServerPinStreamer(nullptr, "live"), nullptr);
    EXPECT_EQ(KovaServerPinStreamer(host.Server(), nullptr), nullptr);
    EXPECT_EQ(KovaServerPinStreamer(host.Server(), "live"), nullptr);
    KovaStreamerUnpin(nullptr);
}

} // namespace
