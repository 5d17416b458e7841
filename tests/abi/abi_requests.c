/* Connections, requests and answers. */
#include "abi_test.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static char answer[8192];

static void expect_answer(int socket, const char *expected)
{
    read_answer(socket, answer, sizeof answer);
    expect(strcmp(answer, expected) == 0, expected);
}

static int request(KovaRtspServerHandler *handler, const char *text)
{
    return HandleRtspRequest(handler, (const uint8_t *)text, (int32_t)strlen(text));
}

/* The record is 1284 bytes and travels by value. */
static void test_answers(KovaRtspServerHandler *handler, int player)
{
    static const char server_lines[] = "Server: Brisklane/1.0.0.1\r\nCache-Control: no-cache\r\n";
    char expected[512];
    KovaRtspRequestInfo info;
    memset(&info, 0, sizeof info);
    strcpy(info.szUri, "live");
    strcpy(info.szCSeq, "1234567");
    strcpy(info.szSessionId, "12345678901");
    info.nClientRtpPort = 5000;
    info.nClientRtcpPort = 5001;
    info.nServerRtpPort = 6970;
    info.nServerRtcpPort = 6971;
    info.nRtpChannel = 2;
    info.nRtcpChannel = 3;
    info.nSsrc = 4000000000u;
    info.nStatus = 200;

    RequestOptionsResponse(handler, info);
    expect_answer(player, "RTSP/1.0 200 OK\r\nCSeq: 1234567\r\n"
                          "Public: DESCRIBE,SETUP,TEARDOWN,PLAY,GET_PARAMETER\r\n\r\n");
    RequestDescribeResponse(handler, info);
    snprintf(expected, sizeof expected,
             "RTSP/1.0 200 OK\r\nCSeq: 1234567\r\n%sContent-Type: application/sdp\r\n"
             "Content-Length: 0\r\n\r\n",
             server_lines);
    expect_answer(player, expected);
    RequestSetupResponse(handler, info);
    snprintf(expected, sizeof expected,
             "RTSP/1.0 200 OK\r\nCSeq: 1234567\r\n%sTransport: RTP/AVP/UDP;unicast;"
             "client_port=5000-5001;server_port=6970-6971;ssrc=4000000000\r\n"
             "Session: 12345678901;timeout=60\r\n\r\n",
             server_lines);
    expect_answer(player, expected);
    info.nTransport = 1;
    RequestSetupResponse(handler, info);
    snprintf(expected, sizeof expected,
             "RTSP/1.0 200 OK\r\nCSeq: 1234567\r\n%sTransport: RTP/AVP/TCP;unicast;"
             "destination=127.0.0.1;source=127.0.0.1;interleaved=2-3;ssrc=4000000000\r\n"
             "Session: 12345678901;timeout=60\r\n\r\n",
             server_lines);
    expect_answer(player, expected);
    KovaRtspTrackInfo *track = calloc(1, sizeof *track);
    track->nTrackId = 97;
    track->nSeq = 65535;
    track->nRtpTime = 4000000001u;
    info.pTrackList = KovaListAppend(NULL, track);
    RequestPlayResponse(handler, info);
    snprintf(expected, sizeof expected,
             "RTSP/1.0 200 OK\r\nCSeq: 1234567\r\nCache-Control: no-cache\r\n"
             "RTP-Info: url=rtsp://127.0.0.1:%d/live/trackID=97;seq=65535;rtptime=4000000001\r\n"
             "Session: 12345678901;timeout=60\r\n\r\n",
             handler->nLocalPort);
    expect_answer(player, expected);
    info.pTrackList = NULL;
    RequestGetParameterResponse(handler, info);
    expect_answer(player, "RTSP/1.0 200 OK\r\nCSeq: 1234567\r\nCache-Control: no-cache\r\n"
                          "Session: 12345678901;timeout=60\r\n\r\n");
    RequestTeardownResponse(handler, info);
    expect_answer(player, "RTSP/1.0 200 OK\r\nCSeq: 1234567\r\nCache-Control: no-cache\r\n\r\n");
    info.nStatus = 454;
    RequestNotOKResponse(handler, info);
    expect_answer(player, "RTSP/1.0 454 Session Not Found\r\n\r\n");
}

static void test_handler(KovaRtspServer *server)
{
    static const uint8_t report[8] = {0x81, 201, 0, 1, 1, 2, 3, 4};
    struct sockaddr_in peer;
    char reason[64] = "";
    int ends[2];
    connect_pair(ends, &peer);
    expect(KovaRtspServerHandlerCreate(server, 0, peer) == NULL, "descriptor 0");
    KovaRtspServerHandler *handler = KovaRtspServerHandlerCreate(server, ends[0], peer);
    expect(handler && handler->pServer == server && handler->nSocket == ends[0] &&
               strcmp(handler->szLocalAddr, "127.0.0.1") == 0 &&
               strcmp(handler->szPeerAddr, "127.0.0.1") == 0 &&
               memcmp(&handler->peerAddr, &peer, sizeof peer) == 0 &&
               handler->nPeerPort == ntohs(peer.sin_port) && handler->nState == 0 &&
               handler->szSessionId[0] == '\0',
           "a handler's fields");
    test_answers(handler, ends[1]);

    expect(IsRequestCommandSupport("XPLAYX") == 1 && IsRequestCommandSupport("play") == 0,
           "methods");
    ResponseStatusSetting(461, reason);
    expect(strcmp(reason, "Unsupported transport") == 0, "a reason");
    expect(RequestResponseSend(handler, "hello\r\n\r\n", 9) == 1, "bytes sent");
    expect_answer(ends[1], "hello\r\n\r\n");
    expect(HandleRtspTcpKeepAlive(handler, report, 8) == 0, "a report without a session");
    strcpy(handler->szSessionId, "1");
    expect(HandleRtspTcpKeepAlive(handler, report, 8) == 13, "a report for no session");
    expect(HandleRtspRequest(NULL, report, 8) == 2, "no handler");
    expect(request(handler, "OPTIONS rtsp://10.0.0.1/live RTSP/1.0\r\nCSeq: 2\r\n\r\n") == 0,
           "a request");
    expect_answer(ends[1], "RTSP/1.0 200 OK\r\nCSeq: 2\r\n"
                           "Public: DESCRIBE,SETUP,TEARDOWN,PLAY,GET_PARAMETER\r\n\r\n");
    KovaRtspStreamer *stream = KovaRtspServerGetStreamerByUri(server, "live");
    stream->pSdpGenerator->nServerPort = 0;
    SetNetworkInfo(server, handler, "live");
    expect(stream->pSdpGenerator->nServerPort == handler->nLocalPort, "the connection's port");

    expect(KovaRtspServerAddServerHandler(server, handler) == 0 &&
               server->pHandlerList->data == handler,
           "registered");
    expect(KovaRtspServerGetHandlerBySessionId(server, "1") == handler, "found by its session");
    expect(KovaRtspServerRemoveServerHandler(server, handler) == 0 && !server->pHandlerList,
           "unlinked");
    expect(KovaRtspServerHandlerStart(handler) == 0 && handler->nState == 2, "started");
    expect(KovaRtspServerHandlerStop(handler) == 0 && handler->nState == 4 &&
               handler->nSocket == -1,
           "stopped and closed");
    expect(KovaRtspServerHandlerDestroy(handler) == 0, "destroyed");
    expect(KovaRtspServerHandlerDestroy(NULL) == 2 && KovaRtspServerHandlerStop(NULL) == 2, "null");
    close(ends[1]);
}

void test_requests(void)
{
    const char address[16] = "";
    struct sockaddr_in peer;
    int ends[2];
    KovaRtspServer *server = KovaRtspServerCreate(address, 1, 4);
    KovaRtspServerAddUri(server, "live");
    test_handler(server);

    connect_pair(ends, &peer);
    expect(AddNewRtspHandler(server, ends[0], peer) == 0, "a served connection");
    expect(write(ends[1], "nothing\r\n\r\n", 11) == 11, "write");
    expect_answer(ends[1], "RTSP/1.0 400 Bad Request\r\n\r\n");
    KovaRtspServerRemoveAllServerHandler(server);
    expect(server->pHandlerList == NULL && read(ends[1], answer, 1) == 0, "all ended");
    close(ends[1]);
    expect(run_body(pHandleRequestProc, NULL), "a request thread without a handler ends");
    KovaRtspServerDestroy(server);
}
