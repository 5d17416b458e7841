#include "classic/sdp/media_description.h"
#include "classic/sdp/sdp_generator.h"
#include "classic/streamer/registries.h"
#include "tests/support/failing_heap.h"
#include "tests/support/stdout_capture.h"
#include "tests/support/stream_host.h"

#include <gtest/gtest.h>

namespace {

const KovaVideoDescription kVideo = {2000};

struct PayloadTypeShortage : testing::Test {
    KovaStdoutCapture capture;
    KovaStreamHost host;
};

TEST_F(PayloadTypeShortage, TrackThatNoDescriptionNamesIsNotAdded)
{
    KovaRtspStreamer *pStreamer = host.AddStream();
    // The media info comes first: its description, its record and its node.
    for (int nGood = 3; nGood < 7; nGood++) {
        uint32_t nId = 0;
        int32_t nResult = 0;
        {
            const KovaFailingHeap heap(nGood);
            nResult = KovaRtspStreamerAddPayloadType(pStreamer, 2, &nId, &kVideo);
        }
        EXPECT_EQ(nResult, 1) << nGood;
        EXPECT_EQ(nId, 96U + static_cast<uint32_t>(nGood) - 3U) << "consumed";
        EXPECT_EQ(pStreamer->pSdpGenerator->pMediaList, nullptr) << nGood;
        EXPECT_EQ(pStreamer->pMediaInfoList, nullptr) << nGood;
        EXPECT_EQ(pStreamer->pPackerList, nullptr) << nGood;
        EXPECT_EQ(pStreamer->pSenderList, nullptr) << nGood;
    }
    uint32_t nId = 0;
    EXPECT_EQ(KovaRtspStreamerAddPayloadType(pStreamer, 2, &nId, &kVideo), 0);
    EXPECT_EQ(nId, 100U);
    EXPECT_EQ(KovaListLength(pStreamer->pMediaInfoList), 1U);
}

TEST_F(PayloadTypeShortage, TrackWithoutMemoryBehindItsDescriptionKeepsWhatStands)
{
    KovaRtspStreamer *pStreamer = host.AddStream();
    uint32_t nId = 0;
    const KovaFailingHeap heap(7);
    EXPECT_EQ(KovaRtspStreamerAddPayloadType(pStreamer, 2, &nId, &kVideo), 1);
    EXPECT_NE(KovaRtspStreamerGetRtspMediaInfoByPayloadId(pStreamer, 96), nullptr);
    EXPECT_NE(KovaRtspSdpGeneratorGetMediaByPayloadId(pStreamer->pSdpGenerator, 96), nullptr);
    EXPECT_EQ(pStreamer->pPackerList, nullptr);
}

} // namespace
