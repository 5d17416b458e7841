#include "classic/streamer/es_input.h"

#include "foundation/log.h"
#include "tests/support/stdout_capture.h"
#include "tests/support/stream_host.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

/// A stream whose packer threads have ended: the rings keep what is pushed.
struct EsInput : testing::Test {
    KovaStdoutCapture capture;
    KovaStreamHost host;
    KovaRtspStreamer *pStreamer = host.AddStream();

    EsInput()
    {
        RTSP_SetLogLevel(2);
        KovaStopPackers(pStreamer);
        capture.Clear();
    }

    int32_t Push(uint32_t nId, const Bytes &unit, uint32_t nTimestamp)
    {
        return KovaRtspStreamerPushData(pStreamer, nId, unit.data(),
                                        static_cast<uint32_t>(unit.size()), nTimestamp);
    }

    static Bytes Take(KovaRingbuffer *pRing, int32_t nCount)
    {
        Bytes bytes(static_cast<size_t>(nCount));
        EXPECT_EQ(StreamerRingbufferRead(pRing, bytes.data(), nCount), nCount);
        return bytes;
    }
};

TEST_F(EsInput, RecordIsAHeaderAndTheUnchangedUnit)
{
    Bytes unit(1000);
    for (size_t n = 0; n < unit.size(); n++)
        unit[n] = static_cast<uint8_t>(n * 7);
    ASSERT_EQ(Push(97, unit, 16909060), 0);
    EXPECT_EQ(KovaRingbufferAvail(&pStreamer->videoRing), 1012);
    EXPECT_EQ(Take(&pStreamer->videoRing, 12),
              (Bytes{0x55, 0, 0x61, 1, 2, 3, 4, 0, 0, 0, 0x03, 0xE8}));
    EXPECT_EQ(Take(&pStreamer->videoRing, 1000), unit);
    EXPECT_EQ(KovaRingbufferAvail(&pStreamer->audioRing), 0);
}

TEST_F(EsInput, PushWakesThePackerThreadOfItsRing)
{
    for (KovaEvent *pWork : {&pStreamer->audioWork, &pStreamer->videoWork})
        KovaEventWait(pWork, 1); // whatever came with the start and the stop
    ASSERT_EQ(Push(96, {1}, 1000), 0);
    EXPECT_NE(pStreamer->audioWork.nWord.load(), 0U) << "the next wait would last";
    EXPECT_EQ(pStreamer->videoWork.nWord.load(), 0U);
    ASSERT_EQ(Push(97, {1}, 1000), 0);
    EXPECT_NE(pStreamer->videoWork.nWord.load(), 0U) << "the next wait would last";
}

TEST_F(EsInput, Id96GoesToTheAudioRing)
{
    ASSERT_EQ(Push(96, {9, 8, 7}, 0xFFFFFFFF), 0);
    EXPECT_EQ(Take(&pStreamer->audioRing, 15),
              (Bytes{0x55, 0, 0x60, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0, 3, 9, 8, 7}));
    EXPECT_EQ(KovaRingbufferAvail(&pStreamer->videoRing), 0);
}

TEST_F(EsInput, OtherIdsStoreNothing)
{
    for (const uint32_t nId : {0U, 95U, 98U, 0x10060U, 0xFFFFFFFFU}) {
        EXPECT_EQ(Push(nId, {1, 2, 3}, 5), 0) << nId;
        EXPECT_EQ(KovaRingbufferAvail(&pStreamer->audioRing), 0) << nId;
        EXPECT_EQ(KovaRingbufferAvail(&pStreamer->videoRing), 0) << nId;
    }
    EXPECT_EQ(capture.Text(), "");
}

TEST_F(EsInput, NullArgumentsAreRefused)
{
    const uint8_t byte = 0;
    EXPECT_EQ(KovaRtspStreamerPushData(nullptr, 96, &byte, 1, 0), 2);
    EXPECT_EQ(KovaRtspStreamerPushData(pStreamer, 96, nullptr, 1, 0), 2);
    EXPECT_EQ(KovaRtspStreamerPushData(pStreamer, 98, nullptr, 1, 0), 2);
    EXPECT_EQ(KovaRingbufferAvail(&pStreamer->audioRing), 0);
}

TEST_F(EsInput, LengthZeroStoresAHeaderAlone)
{
    const uint8_t byte = 0;
    ASSERT_EQ(KovaRtspStreamerPushData(pStreamer, 96, &byte, 0, 7), 0);
    EXPECT_EQ(KovaRingbufferAvail(&pStreamer->audioRing), 12);
    EXPECT_EQ(Take(&pStreamer->audioRing, 12), (Bytes{0x55, 0, 0x60, 0, 0, 0, 7, 0, 0, 0, 0, 0}));
}

TEST_F(EsInput, LargestAudioUnitFillsTheRing)
{
    EXPECT_EQ(Push(96, Bytes(2097140, 1), 0), 12);
    EXPECT_EQ(capture.Messages(),
              (std::vector<std::string>{"KovaRtspStreamerPushData, Audio Overflow !!!"}));
    EXPECT_EQ(KovaRingbufferAvail(&pStreamer->audioRing), 0);
    EXPECT_EQ(Push(96, Bytes(2097139, 1), 0), 0);
    EXPECT_EQ(KovaRingbufferFree(&pStreamer->audioRing), 0);
    const uint8_t byte = 0;
    EXPECT_EQ(KovaRtspStreamerPushData(pStreamer, 96, &byte, 0, 0), 12);
}

TEST_F(EsInput, LargestVideoUnitFillsTheRing)
{
    EXPECT_EQ(Push(97, Bytes(14680052, 1), 0), 12);
    EXPECT_EQ(capture.Messages(),
              (std::vector<std::string>{"KovaRtspStreamerPushData, Video Overflow !!!"}));
    EXPECT_EQ(Push(97, Bytes(14680051, 1), 0), 0);
    EXPECT_EQ(KovaRingbufferFree(&pStreamer->videoRing), 0);
}

TEST_F(EsInput, LengthsBeyondTheRingAreAnOverflow)
{
    // Refused before a byte is read: the buffer is one byte long.
    const std::vector<uint8_t> one(1);
    for (const uint32_t nLength : {0x7FFFFFF3U, 0x7FFFFFF4U, 0x7FFFFFFFU, 0x80000000U, 0x80000001U,
                                   0xFFFFFFF3U, 0xFFFFFFF4U, 0xFFFFFFFEU, 0xFFFFFFFFU}) {
        EXPECT_EQ(KovaRtspStreamerPushData(pStreamer, 96, one.data(), nLength, 0), 12) << nLength;
        EXPECT_EQ(KovaRtspStreamerPushData(pStreamer, 97, one.data(), nLength, 0), 12) << nLength;
    }
    EXPECT_EQ(KovaRingbufferAvail(&pStreamer->audioRing), 0);
    EXPECT_EQ(KovaRingbufferAvail(&pStreamer->videoRing), 0);
}

TEST_F(EsInput, OverflowIsLoggedAtLevel2)
{
    const uint8_t byte = 0;
    RTSP_SetLogLevel(1);
    EXPECT_EQ(KovaRtspStreamerPushData(pStreamer, 96, &byte, 0x7FFFFFFF, 0), 12);
    EXPECT_EQ(capture.Text(), "");
    RTSP_SetLogLevel(2);
    EXPECT_EQ(KovaRtspStreamerPushData(pStreamer, 97, &byte, 0x7FFFFFFF, 0), 12);
    EXPECT_EQ(capture.Messages(),
              (std::vector<std::string>{"KovaRtspStreamerPushData, Video Overflow !!!"}));
}

TEST_F(EsInput, UnitsAreStoredAgainOnceThereIsRoom)
{
    ASSERT_EQ(Push(96, Bytes(2097139, 1), 0), 0);
    EXPECT_EQ(Push(96, {1}, 0), 12);
    Take(&pStreamer->audioRing, 13);
    EXPECT_EQ(Push(96, {1}, 0), 0);
    EXPECT_EQ(Push(96, {1}, 0), 12);
}

TEST_F(EsInput, ReadTakesAllOrNothing)
{
    KovaRingbuffer *pRing = &pStreamer->audioRing;
    const Bytes stored(11, 3);
    ASSERT_EQ(StreamerRingbufferWrite(pRing, stored.data(), 11), 11);
    Bytes bytes(12);
    EXPECT_EQ(StreamerRingbufferRead(pRing, bytes.data(), 12), 0);
    EXPECT_EQ(KovaRingbufferAvail(pRing), 11);
    EXPECT_EQ(StreamerRingbufferRead(pRing, bytes.data(), 4), 4);
    EXPECT_EQ(KovaRingbufferAvail(pRing), 7);
    EXPECT_EQ(StreamerRingbufferRead(pRing, bytes.data(), 7), 7);
    EXPECT_EQ(StreamerRingbufferRead(pRing, bytes.data(), 1), 0);
}

TEST_F(EsInput, WriteNeedsRoomForEverything)
{
    uint8_t block[11];
    KovaRingbuffer ring;
    KovaRingbufferInit(&ring, block, sizeof(block));
    const Bytes bytes(11, 5);
    EXPECT_EQ(StreamerRingbufferWrite(&ring, bytes.data(), 11), -79);
    EXPECT_EQ(KovaRingbufferAvail(&ring), 0);
    EXPECT_EQ(StreamerRingbufferWrite(&ring, bytes.data(), 10), 10);
    EXPECT_EQ(StreamerRingbufferWrite(&ring, bytes.data(), 1), -79);
    EXPECT_EQ(KovaRingbufferAvail(&ring), 10);
    EXPECT_EQ(StreamerRingbufferWrite(&ring, bytes.data(), 0), 0);
}

TEST_F(EsInput, RingsWithoutStorageTakeAndGiveNothing)
{
    KovaRingbuffer ring = {};
    uint8_t byte = 0;
    EXPECT_EQ(StreamerRingbufferWrite(nullptr, &byte, 1), 0);
    EXPECT_EQ(StreamerRingbufferWrite(&ring, &byte, 1), 0);
    EXPECT_EQ(StreamerRingbufferRead(nullptr, &byte, 1), 0);
    EXPECT_EQ(StreamerRingbufferRead(&ring, &byte, 1), 0);
}

TEST_F(EsInput, HeaderReadingGivesBackWhatWasWritten)
{
    const uint8_t bytes[12] = {0x55, 0xAB, 0xCD, 0x89, 0xAB, 0xCD, 0xEF, 0, 0xFE, 0xDC, 0xBA, 0x98};
    const KovaEsHeader header = KovaEsHeaderRead(bytes);
    EXPECT_EQ(header.nPayloadId, 0xABCDU);
    EXPECT_EQ(header.nTimestamp, 0x89ABCDEFU);
    EXPECT_EQ(header.nLength, 0xFEDCBA98U);
    // Only the low 32 bits of the 40-bit length are kept.
    const uint8_t wide[12] = {0x55, 0, 96, 0, 0, 0, 0, 0xFF, 0, 0, 0, 5};
    EXPECT_EQ(KovaEsHeaderRead(wide).nLength, 5U);
    uint8_t written[12];
    KovaEsHeaderWrite(written, {0x12345, 1, 0x80000000});
    EXPECT_EQ(Bytes(written, written + 12),
              (Bytes{0x55, 0x23, 0x45, 0, 0, 0, 1, 0, 0x80, 0, 0, 0}));
}

} // namespace
