/* Packets and packers. */
#include "abi_test.h"

#include <stdlib.h>
#include <string.h>

static struct {
    uint32_t kinds, payload_id, length;
    uint8_t first;
    void *context;
} info;

static void keep_info(const uint8_t *data, uint32_t length, uint32_t kind, uint32_t payload_id,
                      void *context)
{
    info.kinds = info.kinds * 10 + kind;
    info.payload_id = payload_id;
    info.length = length;
    info.first = data[0];
    info.context = context;
}

static void test_video(void)
{
    KovaRtpPacket *packet = NULL;
    uint8_t report[28];
    int context;
    expect(KovaRtpVideoPackerCreate(1, 97, 1, NULL, NULL) == NULL, "a video packer for AAC");
    KovaRtpPacker *packer = KovaRtpVideoPackerCreate(2, 97, 0x11223344, keep_info, &context);
    expect(packer && packer->nPayloadType == 97 && packer->nCodec == 2 &&
               packer->nSsrc == 0x11223344 && packer->nSequence == 0 &&
               packer->pfnStreamInfo == keep_info && packer->pStreamInfoContext == &context,
           "a video packer's head");
    memset(&info, 0, sizeof info);
    expect(KovaRtpPackerPushData(packer, key_frame, sizeof key_frame, 1000) == 0, "push");
    expect(info.kinds == 23 && info.payload_id == 97 && info.first == 0x68 && info.length == 4 &&
               info.context == &context,
           "both parameter sets were reported");
    expect(packer->nPts == 1000 && packer->nTimestamp == 90000, "its timestamps");
    expect(KovaRtpPackerGetRtpPacket(packer, &packet) == 0, "a packet");
    expect(packet->nSize == 26 && packet->nFrameType == 2 && packet->nPts == 1000 &&
               packet->nRefCount == 0,
           "the packet's fields");
    expect(memcmp(packet->pData, "\x80\xE1\0\0\0\1\x5F\x90\x11\x22\x33\x44\x65\x88\x84", 15) == 0,
           "the packet's bytes");
    KovaRtpPacketAddRef(packet);
    KovaRtpPacketAddRef(packet);
    expect(packet->nRefCount == 2, "two references");
    KovaRtpPacketReleaseRef(packet);
    expect(packet->nRefCount == 1, "one reference");
    KovaRtpPacketReleaseRef(packet);
    expect(KovaRtpPackerGetRtpPacket(packer, &packet) == 0x80100005, "no packet left");
    expect(packer->nSequence == 1, "the next sequence number");
    expect(KovaRtpPackerGetRtcpSRData(packer, report, 27, 1, 2, 3, 4, 5) == 0x80100001, "no room");
    expect(KovaRtpPackerGetRtcpSRData(packer, report, 28, 1, 2, 3, 4, 5) == 28, "a report");
    expect(memcmp(report, "\x80\xC8\0\6\x11\x22\x33\x44\0\0\0\1\0\0\0\2\0\0\0\5\0\0\0\3\0\0\0\4",
                  28) == 0,
           "the report's bytes");
    KovaRtpPackerDestroy(packer);
    KovaRtpPackerDestroy(NULL);
}

static void test_audio(void)
{
    KovaRtpPacket *packet = NULL;
    expect(KovaRtpAudioPackerCreate(2, 96, 1, NULL, NULL) == NULL, "an audio packer for H.264");
    KovaRtpPacker *packer = KovaRtpAudioPackerCreate(1, 96, 7, keep_info, &packet);
    memset(&info, 0, sizeof info);
    expect(KovaRtpPackerPushData(packer, adts_frame, sizeof adts_frame, 21) == 0, "push");
    expect(info.kinds == 41 && info.length == 2 && info.first == 0x11, "rate and configuration");
    expect(KovaRtpPackerGetRtpPacket(packer, &packet) == 0, "a packet");
    expect(packet->nSize == 12 + 4 + 9 && packet->nFrameType == 1, "the packet's fields");
    expect(memcmp(packet->pData + 12, "\0\x10\0\x48\1\2\3\4\5\6\7\x08\x09", 13) == 0,
           "the packet's bytes");
    KovaRtpFreePacket(packet);
    KovaRtpPackerDestroy(packer);
}

/* The steps that a packer goes through, one by one: the packet is the caller's. */
static void test_steps(void)
{
    KovaRtpPacket packet;
    uint8_t bytes[64];
    memset(&packet, 0, sizeof packet);
    packet.pData = bytes;

    KovaRtpPacker *video = KovaRtpH264PackerCreate();
    expect(video && video->nSequence == 0 && !video->pfnStreamInfo, "a cleared H.264 packer");
    expect(KovaRtpH264PackerPushData(video, adts_frame, 16, 0) == 0x80100004, "no start code");
    expect(KovaRtpH264PackerPushData(video, key_frame, sizeof key_frame, 0) == 0, "push");
    expect(KovaRtpH264PackerPushData(video, key_frame, sizeof key_frame, 0) == 0x80100002,
           "not drained");
    expect(KovaRtpH264PackerPrepareRtpPacket(video, &packet) == 0 && packet.nSize == 26 &&
               video->bMarker == 1,
           "prepare");
    expect(KovaRtpH264PackerGetRtpPacket(video, &packet) == 0 && packet.nFrameType == 2 &&
               bytes[12] == 0x65,
           "fill");
    expect(KovaRtpH264PackerPrepareRtpPacket(video, &packet) == 0x80100005, "nothing left");
    KovaRtpH264PackerPushData(video, key_frame, sizeof key_frame, 0);
    KovaRtpH264PackerFreeNalList(video);
    expect(KovaRtpH264PackerPrepareRtpPacket(video, &packet) == 0x80100005, "units freed");
    KovaRtpH264PackerDestroy(video);

    KovaRtpPacker *audio = KovaRtpAacPackerCreate();
    expect(KovaRtpAacPackerPushData(audio, key_frame, sizeof key_frame, 0) == 0x80100003,
           "no frame");
    expect(KovaRtpAacPackerPushData(audio, adts_frame, sizeof adts_frame, 0) == 0, "push");
    expect(KovaRtpAacPackerPrepareRtpPacket(audio, &packet) == 0 && packet.nSize == 25, "prepare");
    expect(KovaRtpAacPackerGetRtpPacket(audio, &packet) == 0 && packet.nFrameType == 1 &&
               bytes[24] == 9,
           "fill");
    KovaRtpAacPackerPushData(audio, adts_frame, sizeof adts_frame, 0);
    KovaRtpAacPackerFreeAccessUnitList(audio);
    expect(KovaRtpAacPackerGetRtpPacket(audio, &packet) == 0x80100005, "units freed");
    KovaRtpAacPackerDestroy(audio);
}

void test_packers(void)
{
    test_video();
    test_audio();
    test_steps();
}
