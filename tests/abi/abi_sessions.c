/* Sessions, transports and what requests do with a stream's clients. */
#include "abi_test.h"

#include <arpa/inet.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

static void test_objects(void)
{
    char id[12] = "", other[12] = "";
    GenerateSessionId(id);
    GetSessionId(other);
    expect(strlen(id) == 11 && strspn(id, "0123456789") == 11, "an id");
    expect(strlen(other) == 11 && strcmp(id, other) != 0, "another id");
    const int32_t now = (int32_t)time(NULL);
    KovaRtspSession *session = KovaRtspSessionCreate(id, 60);
    expect(session && strcmp(session->szSessionId, id) == 0 && session->nTimeout == 60 &&
               session->tExpire >= now + 60 && session->tExpire <= now + 65 &&
               !session->pTransportList,
           "a session's fields");
    KovaRtspTransport *transport = KovaRtspTransportCreate(1, 2, 3, 4, 5, 6, 0xFFFF, 8, 9, 10, 11);
    expect(transport && transport->words[2] == 3 && transport->ports[0] == 4 &&
               transport->ports[3] == 0xFFFF && transport->more[0] == 8 && transport->more[3] == 11,
           "eleven values in their places");
    KovaRtspSessionAddTransport(session, transport);
    expect(session->pTransportList && session->pTransportList->data == transport, "added");
    KovaRtspSessionRemoveTransport(session, transport);
    expect(session->pTransportList == NULL, "removed");
    KovaRtspTransportDestroy(transport);
    KovaRtspSessionAddTransport(session, KovaRtspTransportCreate(0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0));
    KovaRtspSessionRemoveAllTransport(session);
    expect(session->pTransportList == NULL, "all removed");
    KovaRtspSessionDestroy(session);
}

static void test_clients(KovaRtspServer *server, KovaRtspStreamer *stream, char *id)
{
    static int no_connection = -1;
    struct sockaddr_in player;
    uint16_t rtp_port = 0, rtcp_port = 0;
    int rtp = -1, rtcp = -1;
    KovaList *tracks = NULL;
    memset(&player, 0, sizeof player);
    player.sin_family = AF_INET;
    player.sin_addr.s_addr = htonl(0x7F000001);

    GetServerPort(5000, 5001, &rtp_port, &rtcp_port, &rtp, &rtcp);
    expect(rtp_port >= 6970 && rtp_port % 2 == 0 && rtcp_port == rtp_port + 1, "a port pair");
    expect(rtp > 0 && rtcp > 0 && rtp != rtcp, "its sockets");
    AddNewRtpClient(server, "live", 96, id, rtp, rtcp, 5000, 5001, 0x7001, 0x7002, 0,
                    &no_connection, player);
    KovaRtpSender *sender = KovaRtspStreamerGetRtpSenderByPayloadId(stream, 96);
    KovaRtpSendGroup *group = sender->pSendGroupList->data;
    KovaRtpClient *client = group->pClientList ? group->pClientList->data : NULL;
    expect(client && client->nRtpSocket == rtp && client->nRtcpSocket == rtcp &&
               client->nClientRtpPort == 5000 && client->nClientRtcpPort == 5001 &&
               client->nRtpChannel == 0x7001 && client->nRtcpChannel == 0x7002 &&
               client->bInterleaved == 0 && client->rtpAddress.sin_port == htons(5000) &&
               client->rtpAddress.sin_addr.s_addr == htonl(0x7F000001),
           "13 arguments in their places");
    expect(UpdateRtpClientStatus(server, "live", id) == 0 && client->nState == 1, "playing");
    expect(stream->nClientCount == 1 && KovaRtspServerGetCurrentClientCount(server) == 1, "count");
    expect(GetTrackIdList(server, "live", id, &tracks) == 0 && KovaListLength(tracks) == 1, "list");
    KovaRtspTrackInfo *track = tracks->data;
    expect(track->nTrackId == 96 && track->nSeq == 0 && track->nRtpTime == 0, "a track");
    KovaListRemove(tracks, track);
    free(track);
    expect(RemoveRtpClient(server, "none", id) == 1, "no such stream");
    expect(RemoveRtpClient(server, "live", id) == 0 && !group->pClientList, "removed");
    expect(stream->nClientCount == 0, "count after it");
    expect(KovaRtspServerRemoveRtpClient(server, id) == 0, "none left to remove");
    expect(KovaRtspServerRemoveRtpClient(NULL, id) == 2, "null");
}

void test_sessions(void)
{
    const char address[16] = "";
    const uint32_t sound[3] = {64, 48000, 2};
    char id[12] = "";
    uint32_t payload_id = 0, ssrc = 0;
    int32_t length = 0;
    static char text[4096];
    test_objects();
    KovaRtspServer *server = KovaRtspServerCreate(address, 1, 4);
    KovaRtspStreamer *stream = KovaRtspServerAddUri(server, "live");
    KovaRtspServerAddPayloadType(stream, 1, &payload_id, sound);
    expect(AddNewRtspSession(server, id, 60) == 0 && strlen(id) == 11, "a new session's id");
    expect(AddNewRtspSession(NULL, id, 60) == 2, "null");
    test_clients(server, stream, id);
    expect(GetSSRC(server, "live", 96, &ssrc) == 0 &&
               ssrc == KovaRtspStreamerGetRtpPackerByPayloadId(stream, 96)->nSsrc,
           "the track's SSRC");
    expect(GetSSRC(server, "live", 97, &ssrc) == 1, "no such track");
    GetSdpInfo(server, "live", text, &length);
    expect(length > 0 && strstr(text, "m=audio 0 RTP/AVP 96\r\n"), "the description");

    KovaRtspSession *session = KovaRtspServerGetSessionBySessionId(server, id);
    expect(session && strcmp(session->szSessionId, id) == 0, "the session by its id");
    expect(KovaRtspServerIsSessionExist(server, id) == 1, "it exists");
    session->tExpire = 0;
    expect(KovaRtspServerUpdateSession(server, id) == 0, "refreshed");
    expect(session->tExpire >= (int32_t)time(NULL) + 85, "by 90 s");
    expect(KovaRtspServerRemoveSession(server, session) == 0, "unlinked");
    expect(KovaRtspServerIsSessionExist(server, id) == 0, "gone");
    expect(KovaRtspServerAddSession(server, session) == 0, "linked");
    expect(KovaRtspServerRemoveSessionBySessionId(server, id) == 0, "removed");
    expect(KovaRtspServerRemoveSessionBySessionId(server, id) == 5, "not there any more");
    AddNewRtspSession(server, id, 60);
    KovaRtspServerRemoveAllSession(server);
    expect(server->pSessionList == NULL, "no sessions");
    KovaRtspServerDestroy(server);
}
