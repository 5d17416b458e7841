/* The server: what a host calls, and the registries behind it. */
#include "abi_test.h"

#include <stdlib.h>
#include <string.h>
#include <time.h>

typedef struct Status {
    uint32_t type;
    union {
        int32_t clients;
        uint32_t bitrate[2];
        uint32_t stream;
    } value;
} Status;

static void test_host_calls(void)
{
    const char address[16] = "127.0.0.1";
    const uint32_t sound[3] = {64, 48000, 2}, picture[1] = {1500};
    uint32_t audio = 0, video = 0;
    int32_t result = 9;
    KovaRtspServer *server = NULL;
    Status status = {1, {5}};
    expect(KovaRtspServerInit(NULL, address, 1, 4) == 2, "no place for the handle");
    expect(KovaRtspServerInit(&server, address, 1, 1025) == 4 && !server, "too many clients");
    for (int i = 0; i < 20 && result == 9; i++)
        result = KovaRtspServerInit(&server, address, free_port(), 4);
    expect(result == 0 && server && Rtsp_DebugLevel == 2, "a server");
    expect(server->nListenSocket > 0 && strcmp(server->szAddr, "127.0.0.1") == 0 &&
               server->nPort != 0 && server->nMaxClient == 4 && server->nListenState == 2 &&
               server->nMonitorState == 2,
           "its fields");
    KovaRtspStreamer *stream = KovaRtspServerAddUri(server, "live");
    expect(stream && server->pStreamerList->data == stream, "a stream");
    expect(KovaRtspServerAddPayloadType(stream, 1, &audio, sound) == 0 && audio == 96, "audio");
    expect(KovaRtspServerAddPayloadType(stream, 2, &video, picture) == 0 && video == 97, "video");
    expect(KovaRtspServerPushData(stream, 97, NULL, 1, 1) == -1, "no data");
    expect(KovaRtspServerPushData(stream, 97, key_frame, sizeof key_frame, 0xFFFFFFF0u) == 0,
           "push");
    expect(stream->nLastVideoTimestamp == 0xFFFFFFF0u && stream->nLastVideoPushTime != 0, "kept");
    expect(sizeof status == 12 && KovaRtspServerGetStatus(stream, &status) == 0 &&
               status.value.clients == 0,
           "the client count");
    status.type = 2;
    expect(KovaRtspServerGetStatus(stream, &status) == 0 && status.value.bitrate[0] == 0, "rate");
    status.type = 3;
    expect(KovaRtspServerGetStatus(stream, &status) == 0 && status.value.stream == 1, "status");
    status.type = 4;
    expect(KovaRtspServerGetStatus(stream, &status) == 2, "an unknown type");
    expect(KovaRtspServerRemovePayloadType(stream, 96) == 0, "audio removed");
    expect(KovaRtspServerRemoveUri(server, "none") == 1, "no such stream");
    expect(KovaRtspServerRemoveUri(server, "live") == 0 && !server->pStreamerList, "withdrawn");
    expect(KovaRtspServerUninit(server) == 0 && KovaRtspServerUninit(NULL) == 2, "ended");
}

static void test_start_and_stop(void)
{
    const char address[16] = "127.0.0.1";
    int32_t result = 9;
    KovaRtspServer *server = NULL;
    for (int i = 0; i < 20 && result == 9; i++) {
        server = KovaRtspServerCreate(address, free_port(), 4);
        expect(server && server->nListenSocket == -1 && server->nListenState == 0, "created");
        result = KovaRtspServerStart(server);
        if (result == 9) {
            KovaRtspServerStop(server);
            KovaRtspServerDestroy(server);
        }
    }
    expect(result == 0 && server->nListenState == 2, "started");
    expect(KovaRtspServerStop(server) == 0 && server->nListenState == 4 &&
               server->nMonitorState == 4 && server->nListenSocket == -1,
           "stopped");
    expect(KovaRtspServerDestroy(server) == 0 && KovaRtspServerDestroy(NULL) == 2, "destroyed");
}

static void test_stream_registry(void)
{
    const char address[16] = "";
    KovaRtspServer *server = KovaRtspServerCreate(address, 1, 4);
    KovaRtspStreamer *stream = KovaRtspStreamerCreate(server, "live");
    expect(KovaRtspServerIsUriExist(server, "live") == 0, "not registered yet");
    expect(KovaRtspServerAddStreamer(server, stream) == 0, "registered");
    expect(KovaRtspServerIsUriExist(server, "live") == 1 &&
               KovaRtspServerGetStreamerByUri(server, "live") == stream &&
               KovaRtspServerGetStreamerByUri(server, "LIVE") == NULL,
           "found by its URI");
    expect(KovaRtspServerRemoveStreamer(server, stream) == 0 && !server->pStreamerList, "unlinked");
    KovaRtspServerAddStreamer(server, stream);
    stream->nClientCount = 3;
    expect(KovaRtspServerGetCurrentClientCount(server) == 3, "the sum of clients");
    KovaRtspServerRemoveAllStreamer(server);
    expect(server->pStreamerList == NULL, "all destroyed");
    KovaRtspServerDestroy(server);
}

void test_server(void)
{
    test_host_calls();
    test_start_and_stop();
    test_stream_registry();
    expect(run_body(pListenProc, NULL), "a listener without a server ends");
    expect(run_body(pMonitorProc, NULL), "a monitor without a server ends");
}
