/* Streams: their registries, input and threads. */
#include "abi_test.h"

#include <stdlib.h>
#include <string.h>

static const uint32_t sound[3] = {64, 48000, 2};
static const uint32_t picture[1] = {1500};

static void test_registries(KovaRtspStreamer *stream)
{
    KovaRtspMediaInfo *info = KovaRtspMediaInfoCreate(2, 120, picture);
    KovaRtpPacker *packer = KovaRtpVideoPackerCreate(2, 120, 1, NULL, NULL);
    KovaRtpSender *sender = KovaRtpSenderCreate(stream, 120);
    expect(KovaRtspStreamerAddRtspMediaInfo(stream, info) == 0 &&
               KovaRtspStreamerAddRtpPacker(stream, packer) == 0 &&
               KovaRtspStreamerAddRtpSender(stream, sender) == 0,
           "add");
    expect(KovaRtspStreamerAddRtspMediaInfo(stream, NULL) == 2, "null");
    expect(stream->pMediaInfoListTail->data == info && stream->pPackerListTail->data == packer &&
               stream->pSenderListTail->data == sender,
           "the tails");
    expect(KovaRtspStreamerGetRtspMediaInfoByPayloadId(stream, 120) == info &&
               KovaRtspStreamerGetRtpPackerByPayloadId(stream, 120) == packer &&
               KovaRtspStreamerGetRtpSenderByPayloadId(stream, 120) == sender,
           "get");
    expect(KovaRtspStreamerRemoveRtspMediaInfo(stream, info) == 0 &&
               KovaRtspStreamerRemoveRtpPacker(stream, packer) == 0 &&
               KovaRtspStreamerRemoveRtpSender(stream, sender) == 0,
           "remove");
    expect(KovaRtspStreamerRemoveRtspMediaInfoByPayloadId(stream, 120) == 1 &&
               KovaRtspStreamerRemoveRtpPackerByPayloadId(stream, 120) == 1 &&
               KovaRtspStreamerRemoveRtpSenderByPayloadId(stream, 120) == 1,
           "nothing with that id");
    KovaRtspStreamerAddRtspMediaInfo(stream, info);
    KovaRtspStreamerAddRtpPacker(stream, packer);
    KovaRtspStreamerAddRtpSender(stream, sender);
    expect(KovaRtspStreamerRemoveRtspMediaInfoByPayloadId(stream, 120) == 0 &&
               KovaRtspStreamerRemoveRtpPackerByPayloadId(stream, 120) == 0 &&
               KovaRtspStreamerRemoveRtpSenderByPayloadId(stream, 120) == 0,
           "removed and destroyed");
}

static void test_input(KovaRtspStreamer *stream)
{
    static const uint8_t config[2] = {0x11, 0x90};
    uint64_t throughput = 1;
    uint32_t status = 0;
    int32_t count = 1;
    expect(KovaRtspStreamerPushData(stream, 97, NULL, 1, 0) == 2, "no data");
    expect(KovaRtspStreamerPushData(stream, 98, key_frame, sizeof key_frame, 0) == 0, "no ring");
    expect(KovaRtspStreamerPushData(stream, 97, key_frame, 0x80000000u, 0) == 12, "overflow");
    expect(KovaRtspStreamerSdpIsReady(stream) == 0, "not ready");
    pAudioStreamInfoCallback(config, 2, 1, 96, stream);
    pVideoStreamInfoCallback(key_frame + 4, 9, 2, 97, stream);
    pVideoStreamInfoCallback(key_frame + 17, 4, 3, 97, stream);
    expect(KovaRtspStreamerSdpIsReady(stream) == 1, "ready");
    stream->nAveThroughput = 0x123456789ull;
    expect(KovaRtspStreamerGetAveThroughput(stream, &throughput) == 0 &&
               throughput == 0x123456789ull,
           "64 bits of throughput");
    expect(KovaRtspStreamerGetClientCount(stream, &count) == 0 && count == 0, "clients");
    expect(KovaRtspStreamerGetServerStatus(stream, &status) == 0 && status == 1, "status");
    expect(KovaRtspStreamerGetServerStatus(stream, NULL) == 2, "null");
}

void test_stream(void)
{
    const char address[16] = "";
    uint32_t id = 0, ssrc = 0, other = 0;
    KovaRtspServer *server = KovaRtspServerCreate(address, 1, 4);
    expect(KovaRtspStreamerCreate(server, NULL) == NULL, "no URI");
    KovaRtspStreamer *stream = KovaRtspStreamerCreate(server, "live");
    expect(stream && stream->pServer == server && strcmp(stream->szUri, "live") == 0 &&
               stream->nServerStatus == 1 && stream->nAudioPackerState == 2 &&
               stream->nVideoPackerState == 2 && stream->audioRing.nSize == 2097152 &&
               stream->videoRing.nSize == 14680064,
           "a stream's fields");
    expect(KovaRtspStreamerAddPayloadType(stream, 1, &id, sound) == 0 && id == 96, "audio");
    expect(KovaRtspStreamerAddPayloadType(stream, 2, &id, picture) == 0 && id == 97, "video");
    expect(KovaRtspStreamerAddPayloadType(stream, 3, &id, picture) == 1 && id == 98, "unknown");
    GetNewPayloadId(stream, &id);
    expect(id == 99 && stream->nLastPayloadId == 99, "the next payload id");
    GetNewSSRC(&ssrc);
    GetNewSSRC(&other);
    expect(ssrc != other, "two SSRCs");
    test_registries(stream);
    test_input(stream);
    expect(KovaRtspStreamerUpdateSession(server, "1") == 5, "no such session");
    expect(KovaRtspStreamerUpdateSession(NULL, "1") == 2, "null");
    expect(KovaRtspStreamerRemovePayloadType(stream, 97) == 0 &&
               KovaListLength(stream->pSenderList) == 1,
           "one payload type left");
    KovaRtspStreamerRemoveAllRtspMediaInfo(stream);
    KovaRtspStreamerRemoveAllRtpSender(stream);
    KovaRtspStreamerRemoveAllRtpPacker(stream);
    expect(!stream->pMediaInfoList && !stream->pPackerList && !stream->pSenderList, "none left");
    expect(KovaRtspStreamerDestroy(stream) == 0 && KovaRtspStreamerDestroy(NULL) == 2, "destroy");
    expect(run_body(pAudioPackerProc, NULL), "an audio packer thread without a stream ends");
    expect(run_body(pVideoPackerProc, NULL), "a video packer thread without a stream ends");
    KovaRtspServerDestroy(server);
}
