#include "classic/streamer/packer_thread.h"

#include "classic/rtp/rtp_packer.h"
#include "classic/streamer/es_input.h"
#include "classic/streamer/registries.h"
#include "foundation/log.h"
#include "tests/support/failing_heap.h"
#include "tests/support/media.h"
#include "tests/support/stdout_capture.h"
#include "tests/support/stream_host.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;
using Lines = std::vector<std::string>;

/// One of the two threads under the names of its own.
struct Side {
    uint32_t nId;
    const char *szName;
    KovaRingbuffer KovaRtspStreamer::*pRing;
    KovaStateWord KovaRtspStreamer::*pState;
    void *(*pfnBody)(void *);
};

const Side kAudioSide = {96, "pAudioPackerProc", &KovaRtspStreamer::audioRing,
                         &KovaRtspStreamer::nAudioPackerState, pAudioPackerProc};
const Side kVideoSide = {97, "pVideoPackerProc", &KovaRtspStreamer::videoRing,
                         &KovaRtspStreamer::nVideoPackerState, pVideoPackerProc};

struct PackerThread : testing::TestWithParam<const Side *> {
    KovaStdoutCapture capture;
    KovaStreamHost host;
    KovaRtspStreamer *pStreamer = host.AddAudioVideo();
    const Side &side = *GetParam();

    PackerThread()
    {
        RTSP_SetLogLevel(1);
        capture.Clear();
    }

    ~PackerThread() override
    {
        RTSP_SetLogLevel(0);
    }

    /// Puts bytes into the ring as they are.
    void Store(const Bytes &bytes)
    {
        const int32_t nCount = static_cast<int32_t>(bytes.size());
        EXPECT_EQ(StreamerRingbufferWrite(&(pStreamer->*side.pRing), bytes.data(), nCount), nCount);
    }

    static Bytes Header(uint32_t nId, uint32_t nLength)
    {
        Bytes bytes(12);
        KovaEsHeaderWrite(bytes.data(), {nId, 1, nLength});
        return bytes;
    }

    void Push(const Bytes &unit)
    {
        const std::vector<uint8_t> exact(unit.empty() ? Bytes{0} : unit);
        EXPECT_EQ(KovaRtspStreamerPushData(pStreamer, side.nId, exact.data(),
                                           static_cast<uint32_t>(unit.size()), 1),
                  0);
    }

    uint32_t State() const
    {
        return pStreamer->*side.pState;
    }

    bool Ends()
    {
        return KovaWaitUntil([this] { return State() == 4; });
    }

    Lines Messages()
    {
        return KovaMessagesOf(capture.Messages(), side.szName);
    }

    Lines Only(const std::string &message) const
    {
        return {side.szName + (", " + message)};
    }
};

INSTANTIATE_TEST_SUITE_P(Both, PackerThread, testing::Values(&kAudioSide, &kVideoSide),
                         [](const testing::TestParamInfo<const Side *> &sideInfo) {
                             return std::string(sideInfo.param->nId == 96 ? "Audio" : "Video");
                         });

TEST_P(PackerThread, EndsAtAWrongStartCode)
{
    Bytes record = Header(side.nId, 0);
    record[0] = 0;
    Store(record);
    EXPECT_TRUE(Ends());
    EXPECT_EQ(Messages(), Only("StartCode Wrong !!!, (0x0)"));
}

TEST_P(PackerThread, NamesTheWrongStartCodeInHexadecimal)
{
    Bytes record = Header(side.nId, 0);
    record[0] = 0xAB;
    Store(record);
    EXPECT_TRUE(Ends());
    EXPECT_EQ(Messages(), Only("StartCode Wrong !!!, (0xAB)"));
}

TEST_P(PackerThread, KeepsUpWithAHostThatWritesIntoTheRingItself)
{
    // Nothing tells the thread of them: an idle one would take a second for each.
    constexpr int kRecords = 20;
    const auto before = std::chrono::steady_clock::now();
    for (int nRecord = 0; nRecord < kRecords; nRecord++) {
        Store(Header(side.nId, 0));
        ASSERT_TRUE(
            KovaWaitUntil([this] { return KovaRingbufferAvail(&(pStreamer->*side.pRing)) == 0; }));
    }
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(kRecords / 2));
    EXPECT_EQ(State(), 2U);
}

TEST_P(PackerThread, EndsWithoutAPacker)
{
    EXPECT_EQ(KovaRtspStreamerRemoveRtpPackerByPayloadId(pStreamer, side.nId), 0);
    Push({1, 2, 3});
    EXPECT_TRUE(Ends());
    EXPECT_EQ(Messages(), Only("KovaRtspStreamerRemoveRtpPackerByPayloadId Fail !!!"));
}

TEST_P(PackerThread, EndsWithoutASender)
{
    EXPECT_EQ(KovaRtspStreamerRemoveRtpSenderByPayloadId(pStreamer, side.nId), 0);
    Push({1, 2, 3});
    EXPECT_TRUE(Ends());
    EXPECT_EQ(Messages(), Only("KovaRtspStreamerGetRtpSenderByPayloadId Fail !!!"));
}

TEST_P(PackerThread, EndsAtAnUnknownPayloadId)
{
    Store(Header(200, 0));
    EXPECT_TRUE(Ends());
    EXPECT_EQ(Messages(), Only("KovaRtspStreamerRemoveRtpPackerByPayloadId Fail !!!"));
}

TEST_P(PackerThread, FailuresAreLoggedAtLevel1)
{
    RTSP_SetLogLevel(0);
    Bytes record = Header(side.nId, 0);
    record[0] = 0;
    Store(record);
    EXPECT_TRUE(Ends());
    EXPECT_EQ(capture.Text(), "");
}

TEST_P(PackerThread, AfterItsEndTheRingFills)
{
    Store(Bytes(12));
    ASSERT_TRUE(Ends());
    const Bytes large(1000000);
    const uint32_t nSize = static_cast<uint32_t>(large.size());
    int nStored = 0;
    while (nStored < 20 &&
           KovaRtspStreamerPushData(pStreamer, side.nId, large.data(), nSize, 1) == 0)
        nStored++;
    EXPECT_EQ(nStored, side.nId == 96 ? 2 : 14);
}

TEST_P(PackerThread, WaitsForAHeaderThatIsNotComplete)
{
    const Bytes record = Header(side.nId, 0);
    Store(Bytes(record.begin(), record.begin() + 11));
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_EQ(State(), 2U);
    EXPECT_EQ(KovaRingbufferAvail(&(pStreamer->*side.pRing)), 11);
    Store({0});
    EXPECT_TRUE(KovaWaitUntil([this] { return !Messages().empty(); }));
    EXPECT_EQ(State(), 2U);
}

TEST_P(PackerThread, WaitsForTheRestOfARecord)
{
    Store(Header(side.nId, 9));
    Store({1, 2, 3, 4});
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_EQ(capture.Text(), "");
    Store({5, 6, 7, 8, 9});
    EXPECT_TRUE(capture.WaitFor(" 1  2  3  4  5  6  7  8\n", 10000));
    EXPECT_EQ(State(), 2U);
}

TEST_P(PackerThread, DestructionEndsTheWaitForTheRest)
{
    Store(Header(side.nId, 1000));
    Store({1, 2, 3, 4});
    // The header is taken: the thread is in the middle of the record.
    ASSERT_TRUE(
        KovaWaitUntil([this] { return KovaRingbufferAvail(&(pStreamer->*side.pRing)) == 4; }));
    EXPECT_EQ(KovaRtspServerRemoveUri(host.Server(), "live"), 0);
    EXPECT_EQ(Messages(), Only("Read Es Data Buf Fail !!!"));
}

TEST_P(PackerThread, RefusedUnitIsLoggedAndTheNextOneTaken)
{
    const std::string error = side.nId == 96 ? "-2146435069" : "-2146435068";
    const std::string start = "KovaRtpPackerPushData Fail !!!, Error: " + error + ", ";
    Push({0xAB, 1, 0x23, 0, 0xFF, 5, 6, 0x70, 0x99, 0x98});
    EXPECT_TRUE(KovaWaitUntil([this] { return Messages().size() == 1; }));
    EXPECT_EQ(Messages(), Only(start + "AB  1 23  0 FF  5  6 70"));
    capture.Clear();
    Push({0xCD, 0xEF});
    EXPECT_TRUE(KovaWaitUntil([this] { return Messages().size() == 1; }));
    // Bytes that the unit does not have show as 0.
    EXPECT_EQ(Messages(), Only(start + "CD EF  0  0  0  0  0  0"));
    capture.Clear();
    Push({});
    EXPECT_TRUE(KovaWaitUntil([this] { return Messages().size() == 1; }));
    EXPECT_EQ(Messages(), Only(start + " 0  0  0  0  0  0  0  0"));
    EXPECT_EQ(State(), 2U);
}

TEST_P(PackerThread, EndsWithoutMemoryForAUnit)
{
    KovaStopPackers(pStreamer);
    Store(Header(side.nId, 5));
    Store({1, 2, 3, 4, 5});
    pStreamer->*side.pState = 2;
    std::thread body([this] {
        const KovaFailingHeap heap;
        side.pfnBody(pStreamer);
    });
    body.join();
    EXPECT_EQ(State(), 4U);
    EXPECT_EQ(Messages(), Only("Allocate Es Data Buf Fail !!!"));
}

TEST_P(PackerThread, TakesNoMemoryForAUnitLikeTheLast)
{
    KovaStopPackers(pStreamer);
    const std::string unit = side.nId == 96 ? KovaTestAacFrame(100) : KovaTestInterFrame(100);
    for (int n = 0; n < 3; n++)
        Push(Bytes(unit.begin(), unit.end()));
    pStreamer->*side.pState = 2;
    std::thread body([this] {
        // Room for the bytes and for the units, and each time a packet and its place in
        // the queue.
        const KovaFailingHeap heap(2 + 3 * 2);
        side.pfnBody(pStreamer);
        EXPECT_EQ(heap.Failed(), 0);
    });
    const KovaRtpSender *pSender = KovaRtspStreamerGetRtpSenderByPayloadId(pStreamer, side.nId);
    EXPECT_TRUE(KovaWaitUntil([&] { return pSender->nLastSequence == 2; }));
    pStreamer->*side.pState = 3;
    body.join();
    EXPECT_EQ(Messages(), Lines{});
}

TEST_P(PackerThread, SaysWhenItComesAndGoes)
{
    const std::string name = side.szName;
    RTSP_SetLogLevel(4);
    KovaStopPackers(pStreamer);
    ASSERT_TRUE(capture.WaitFor(name + ", Leave thread\n", 10000));
    capture.Clear();
    pStreamer->*side.pState = 3;
    std::thread(side.pfnBody, pStreamer).join();
    EXPECT_EQ(Messages(), (Lines{name + ", Enter thread", name + ", Leave thread"}));
    EXPECT_EQ(State(), 4U);
    capture.Clear();
    std::thread(side.pfnBody, nullptr).join();
    EXPECT_EQ(Messages(), (Lines{name + ", Enter thread", name + ", Leave thread(pStreamer)"}));
    RTSP_SetLogLevel(3);
    capture.Clear();
    std::thread(side.pfnBody, pStreamer).join();
    std::thread(side.pfnBody, nullptr).join();
    EXPECT_EQ(Messages(), Lines{});
}

TEST_P(PackerThread, CallbacksIgnoreNull)
{
    const uint8_t config[] = {0x12, 0x10};
    const auto pfnCallback = side.nId == 96 ? pAudioStreamInfoCallback : pVideoStreamInfoCallback;
    pfnCallback(nullptr, 2, kInfoAacConfig, 96, pStreamer);
    pfnCallback(config, 2, kInfoAacConfig, 96, nullptr);
    const auto *pAudio = static_cast<KovaSdpAudioData *>(
        KovaRtspSdpGeneratorGetMediaByPayloadId(pStreamer->pSdpGenerator, 96)->pData);
    EXPECT_STREQ(pAudio->szConfig, "");
    pfnCallback(config, 2, kInfoAacConfig, 96, pStreamer);
    EXPECT_STREQ(pAudio->szConfig, "1210");
}

TEST(PackerThreads, MakeTheDescriptionReady)
{
    const KovaStdoutCapture capture;
    KovaStreamHost host;
    KovaRtspStreamer *pStreamer = host.AddAudioVideo();
    // 44.1 kHz stereo AAC-LC, 9 bytes.
    const Bytes audio = {0xFF, 0xF1, 0x50, 0x80, 0x01, 0x3F, 0xFC, 0x21, 0x10};
    const Bytes video = {0,    0,    0,    1,    0x67, 0x42, 0xC0, 0x1E, 0xD9, 0, 0, 0, 1,
                         0x68, 0xCE, 0x3C, 0x80, 0,    0,    0,    1,    0x65, 1, 2, 3};
    EXPECT_EQ(KovaRtspServerPushData(pStreamer, 97, video.data(), 25, 1), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(KovaRtspStreamerSdpIsReady(pStreamer), 0);
    EXPECT_EQ(KovaRtspServerPushData(pStreamer, 96, audio.data(), 9, 1), 0);
    EXPECT_TRUE(KovaWaitUntil([&] { return KovaRtspStreamerSdpIsReady(pStreamer) == 1; }));
    // Both tracks' packets have come to their senders.
    for (const uint32_t nId : {96U, 97U}) {
        const KovaRtpSender *pSender = KovaRtspStreamerGetRtpSenderByPayloadId(pStreamer, nId);
        EXPECT_TRUE(KovaWaitUntil([&] {
            return nId == 97 ? pSender->nLastTimestamp == 90 : pSender->nLastTimestamp == 44;
        })) << nId;
    }
}

} // namespace
