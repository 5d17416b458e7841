#include "classic/sdp/media_info.h"

#include "classic/sdp/media_description.h"
#include "tests/support/failing_heap.h"

#include <gtest/gtest.h>

namespace {

TEST(MediaInfo, KeepsACopyOfTheVideoDescription)
{
    KovaVideoDescription video = {2048};
    KovaRtspMediaInfo *pInfo = KovaRtspMediaInfoCreate(2, 97, &video);
    ASSERT_NE(pInfo, nullptr);
    video.nBitrate = 0;
    EXPECT_EQ(pInfo->nMediaType, 2U);
    EXPECT_EQ(pInfo->nPayloadId, 97U);
    EXPECT_NE(pInfo->pDescription, &video);
    EXPECT_EQ(static_cast<KovaVideoDescription *>(pInfo->pDescription)->nBitrate, 2048U);
    KovaRtspMediaInfoDestroy(pInfo);
}

TEST(MediaInfo, KeepsACopyOfTheAudioDescription)
{
    KovaAudioDescription audio = {64, 44100, 2};
    KovaRtspMediaInfo *pInfo = KovaRtspMediaInfoCreate(1, 96, &audio);
    ASSERT_NE(pInfo, nullptr);
    audio = {};
    EXPECT_EQ(pInfo->nMediaType, 1U);
    EXPECT_EQ(pInfo->nPayloadId, 96U);
    const auto *pCopy = static_cast<KovaAudioDescription *>(pInfo->pDescription);
    EXPECT_EQ(pCopy->nBitrate, 64U);
    EXPECT_EQ(pCopy->nSampleRate, 44100U);
    EXPECT_EQ(pCopy->nChannels, 2U);
    KovaRtspMediaInfoDestroy(pInfo);
}

TEST(MediaInfo, VideoDescriptionIsOneWord)
{
    // Nothing is read behind it: a sanitizer watches the heap block.
    uint32_t *pWord = new uint32_t(512);
    KovaRtspMediaInfo *pInfo = KovaRtspMediaInfoCreate(2, 97, pWord);
    delete pWord;
    ASSERT_NE(pInfo, nullptr);
    EXPECT_EQ(*static_cast<uint32_t *>(pInfo->pDescription), 512U);
    KovaRtspMediaInfoDestroy(pInfo);
}

TEST(MediaInfo, RefusesANullDescription)
{
    EXPECT_EQ(KovaRtspMediaInfoCreate(1, 96, nullptr), nullptr);
    EXPECT_EQ(KovaRtspMediaInfoCreate(2, 97, nullptr), nullptr);
}

TEST(MediaInfo, RefusesUnknownMediaTypes)
{
    const KovaAudioDescription audio = {64, 44100, 2};
    for (const uint32_t nType : {0U, 3U, 0xFFFFFFFFU})
        EXPECT_EQ(KovaRtspMediaInfoCreate(nType, 96, &audio), nullptr) << nType;
}

TEST(MediaInfo, IsNullWithoutMemory)
{
    const KovaAudioDescription audio = {64, 44100, 2};
    for (int nGood = 0; nGood < 2; nGood++) {
        const KovaFailingHeap heap(nGood);
        EXPECT_EQ(KovaRtspMediaInfoCreate(1, 96, &audio), nullptr) << nGood;
        EXPECT_EQ(heap.Failed(), 1) << nGood;
    }
}

TEST(MediaInfo, DestroyIgnoresNull)
{
    // Reaching the end is the expectation.
    KovaRtspMediaInfoDestroy(nullptr);
}

} // namespace
