/* Media infos and the session description. */
#include "abi_test.h"

#include <stdlib.h>
#include <string.h>

static const uint32_t sound[3] = {64, 48000, 2};
static const uint32_t picture[1] = {1500};

static void test_records(void)
{
    KovaRtspMediaInfo *info = KovaRtspMediaInfoCreate(1, 96, sound);
    expect(info && info->nMediaType == 1 && info->nPayloadId == 96 && info->pDescription != sound &&
               memcmp(info->pDescription, sound, sizeof sound) == 0,
           "a media info");
    KovaRtspMediaInfoDestroy(info);
    expect(KovaRtspMediaInfoCreate(3, 96, sound) == NULL, "an unknown type");
    KovaRtspSdpMedia *media = MediaCreate(2, 97, picture);
    /* texts of 8 and three times 256 bytes, then the description */
    expect(media && media->nMediaType == 2 && media->nPayloadId == 97 && media->pData, "an entry");
    uint32_t *description = NULL;
    memcpy(&description, (char *)media->pData + 776, sizeof description);
    expect(description && description != picture && *description == 1500, "its description");
    MediaDestroy(media);
    MediaDestroy(NULL);
}

void test_description(void)
{
    static const char expected[] =
        "s= Unnamed\r\nc=IN IP4 0.0.0.0\r\na=control:rtsp://10.0.0.1:554/live\r\na=recvonly\r\n"
        "a=type:broadcast\r\nt=0 0\r\n"
        "m=audio 0 RTP/AVP 96\r\nb=AS:64\r\nb=RR:0\r\na=rtpmap:96 mpeg4-generic/44100/2\r\n"
        "a=control:trackID=96\r\na=fmtp:96 streamtype=5;profile-level-id=15;mode=AAC-hbr;"
        "config=1210;sizeLength=13;indexLength=3;indexDeltaLength=3;Profile=1;\r\n"
        "m=video 0 RTP/AVP 97\r\nb=AS:1500\r\na=rtpmap:97 H264/90000\r\na=control:trackID=97\r\n"
        "a=fmtp:97 packetization-mode=1;profile-level-id=42C01E;"
        "sprop-parameter-sets=Z0LAHtoCgL/l,aM48gA==;\r\n";
    char text[4096];
    int32_t length = 0;
    test_records();
    KovaRtspSdpGenerator *sdp = KovaRtspSdpGeneratorCreate("live");
    expect(sdp && strcmp(sdp->szUri, "live") == 0 && !sdp->pMediaList, "a generator");
    expect(KovaRtspSdpGeneratorIsReady(sdp) == 0, "not ready without media");
    expect(KovaRtspSdpGeneratorAddMedia(sdp, 1, 96, NULL) == 2, "no description");
    expect(KovaRtspSdpGeneratorAddMedia(sdp, 1, 96, sound) == 0, "sound");
    expect(KovaRtspSdpGeneratorAddMedia(sdp, 2, 97, picture) == 0, "picture");
    expect(KovaRtspSdpGeneratorGetMediaByPayloadId(sdp, 97) == sdp->pMediaList->next->data, "get");
    KovaRtspSdpGeneratorSetNetworkInfo(sdp, "10.0.0.1", 554, "10.0.0.2");
    expect(strcmp(sdp->szServerIp, "10.0.0.1") == 0 && sdp->nServerPort == 554 &&
               strcmp(sdp->szClientIp, "10.0.0.2") == 0,
           "the addresses");
    KovaRtspSdpGeneratorSetMediaInfo(sdp, 96, 1, (const uint8_t *)"\x12\x10", 2);
    KovaRtspSdpGeneratorSetMediaInfo(sdp, 96, 4, (const uint8_t *)"44100", 6);
    KovaRtspSdpGeneratorSetMediaInfo(sdp, 97, 2, key_frame + 4, 9);
    expect(KovaRtspSdpGeneratorIsReady(sdp) == 0, "not ready without a picture set");
    KovaRtspSdpGeneratorSetMediaInfo(sdp, 97, 3, key_frame + 17, 4);
    expect(KovaRtspSdpGeneratorIsReady(sdp) == 1, "ready");
    KovaRtspGenerateSdpGetSdpInfo(sdp, text, &length);
    expect(length == (int32_t)strlen(text) && strncmp(text, "v=0\r\no=- ", 9) == 0, "the text");
    const char *rest = strstr(text, "s= ");
    expect(rest && strcmp(rest, expected) == 0, "the text behind the origin");
    KovaRtspSdpGeneratorRemoveMedia(sdp, KovaRtspSdpGeneratorGetMediaByPayloadId(sdp, 96));
    KovaRtspSdpGeneratorRemoveMediaByPayloadId(sdp, 97);
    expect(sdp->pMediaList == NULL, "no media");
    KovaRtspSdpGeneratorAddMedia(sdp, 2, 97, picture);
    KovaRtspSdpGeneratorRemoveAllMedia(sdp);
    expect(sdp->pMediaList == NULL, "no media again");
    KovaRtspSdpGeneratorDestroy(sdp);
}
