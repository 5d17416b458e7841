/* Clients, send groups and senders. */
#include "abi_test.h"

#include <arpa/inet.h>
#include <stdlib.h>
#include <string.h>

static struct sockaddr_in player(void)
{
    struct sockaddr_in address;
    memset(&address, 0, sizeof address);
    address.sin_family = AF_INET;
    address.sin_port = htons(1);
    address.sin_addr.s_addr = htonl(0x7F000001);
    return address;
}

static void test_client(void)
{
    int tcp = -1;
    expect(!KovaRtpClientCreate("1", -1, 0, 2, 3, player(), 0, &tcp, 4, 5, 6, 7), "bad socket");
    KovaRtpClient *client =
        KovaRtpClientCreate("12345678901", 0, 0, 5000, 5001, player(), 1, &tcp, 8, 9, 0xFFFE, 77);
    expect(client && client->nState == 0 && strcmp(client->szSessionId, "12345678901") == 0,
           "state and id");
    expect(client->nClientRtpPort == 5000 && client->nClientRtcpPort == 5001, "ports");
    expect(client->rtpAddress.sin_port == htons(5000) &&
               client->rtcpAddress.sin_port == htons(5001) &&
               client->rtcpAddress.sin_addr.s_addr == htonl(0x7F000001),
           "the address came by value");
    expect(client->nStartSequence == 0xFFFE && client->nStartTimestamp == 77, "start values");
    expect(client->nSendBitrate == 0 && client->nMeasureStartTime == 0, "64-bit figures");
    expect(client->bInterleaved == 1 && *client->pTcpSocket == -1 && client->nRtpChannel == 8 &&
               client->nRtcpChannel == 9,
           "interleaving");
    KovaRtpClientDestroy(client);
    KovaRtpClientDestroy(NULL);
}

/* A packet of the stream's time; nobody plays, so it is only queued. */
static KovaRtpPacket *make_packet(void)
{
    KovaRtpPacket *packet = NULL;
    KovaRtpPacker *packer = KovaRtpVideoPackerCreate(2, 97, 1, NULL, NULL);
    KovaRtpPackerPushData(packer, key_frame, sizeof key_frame, 0);
    KovaRtpPackerGetRtpPacket(packer, &packet);
    KovaRtpPackerDestroy(packer);
    KovaRtpPacketAddRef(packet);
    return packet;
}

static void test_group(KovaRtpSender *sender)
{
    expect(KovaRtpSendGroupCreate(NULL) == NULL, "a group without a sender");
    KovaRtpSendGroup *group = KovaRtpSendGroupCreate(sender);
    expect(group && group->pSender == sender && group->nState == 0 && !group->pClientList, "group");
    KovaRtpClient *client = KovaRtpClientCreate("a", 0, 0, 1, 2, player(), 0, NULL, 0, 0, 0, 0);
    KovaRtpSendGroupAddRtpClient(group, client);
    expect(group->pClientList && group->pClientList->data == client, "a client in the group");
    KovaRtpSendGroupRemoveRtpClient(group, client);
    expect(group->pClientList == NULL, "no client in the group");
    KovaRtpSendGroupAddRtpClient(group, client);
    KovaRtpSendGroupRemoveAllRtpClient(group);
    expect(group->pClientList == NULL, "all clients gone");

    KovaRtpPacket *packet = make_packet();
    KovaRtpPacketAddRef(packet);
    KovaRtpSendGroupAddRtpPacket(group, packet);
    expect(group->pPacketList && group->pPacketList->data == packet &&
               group->pPacketListTail == group->pPacketList,
           "a packet in the queue");
    KovaRtpSendGroupRemoveRtpPacket(group, packet);
    expect(group->pPacketList == NULL && packet->nRefCount == 2, "the reference is ours again");
    KovaRtpSendGroupAddRtpPacket(group, packet);
    KovaRtpSendGroupRemoveAllRtpPacket(group);
    expect(group->pPacketList == NULL && packet->nRefCount == 1, "the queue's reference is gone");

    expect(KovaRtpSendGroupStart(NULL) == 2 && KovaRtpSendGroupStop(NULL) == 2, "null");
    expect(KovaRtpSendGroupStart(group) == 0 && group->nState == 2, "started");
    expect(KovaRtpSendGroupStop(group) == 0 && group->nState == 4, "stopped");
    KovaRtpSendGroupDestory(group);
    KovaRtpPacketReleaseRef(packet);
}

static void test_sender(KovaRtspStreamer *stream)
{
    expect(KovaRtpSenderCreate(NULL, 97) == NULL, "a sender without a stream");
    KovaRtpSender *sender = KovaRtpSenderCreate(stream, 97);
    expect(sender && sender->pStreamer == stream && sender->nPayloadId == 97 &&
               sender->nSendGroupCount == 1 && sender->pSendGroupList &&
               sender->nLastSequence == 0 && sender->nLastTimestamp == 0,
           "a sender's fields");
    test_group(sender);
    KovaRtpSendGroup *first = sender->pSendGroupList->data;
    KovaRtpSenderAddRtpClient(sender, "b", 0, 0, 1, 2, player(), 0, NULL, 0, 0, 0x1234, 0x56789ABC);
    KovaRtpClient *client = first->pClientList->data;
    expect(client->nStartSequence == 0x1234 && client->nStartTimestamp == 0x56789ABC, "placed");

    KovaRtpSendGroup *second = KovaRtpSendGroupCreate(sender);
    KovaRtpSenderAddRtpSendGroup(sender, second);
    expect(KovaListLength(sender->pSendGroupList) == 2, "two groups");
    KovaRtpPacket *packet = make_packet();
    KovaRtpSenderAddRtpPacket(sender, packet);
    expect(packet->nRefCount == 3 && second->pPacketList, "a reference for each group");
    KovaRtpSenderRemoveRtpSendGroup(sender, second);
    expect(KovaListLength(sender->pSendGroupList) == 1, "one group");
    KovaRtpSendGroupDestory(second);
    expect(packet->nRefCount == 2, "a group gave its reference back");
    KovaRtpPacketReleaseRef(packet);

    expect(KovaRtpSenderStart(sender) == 0 && first->nState == 2, "started");
    expect(KovaRtpSenderStop(sender) == 0 && first->nState == 4, "stopped");
    expect(KovaRtpSenderStart(NULL) == 2 && KovaRtpSenderStop(NULL) == 2, "null");
    KovaRtpSenderStartAllRtpSendGroup(sender);
    expect(first->nState == 2, "all started");
    KovaRtpSenderStopAllRtpSendGroup(sender);
    expect(first->nState == 4, "all stopped");
    KovaRtpSenderRemoveAllRtpSendGroup(sender);
    expect(sender->pSendGroupList == NULL, "no groups");
    KovaRtpSenderDestory(sender);
    KovaRtpSenderDestory(NULL);
}

void test_delivery(void)
{
    const char address[16] = "127.0.0.1";
    const uint32_t bitrate = 500;
    uint32_t id = 0;
    KovaRtspServer *server = KovaRtspServerCreate(address, 1, 4);
    KovaRtspStreamer *stream = KovaRtspServerAddUri(server, "live");
    GetNewPayloadId(stream, &id);
    KovaRtspServerAddPayloadType(stream, 2, &id, &bitrate);
    expect(id == 97, "the second payload id");
    test_client();
    test_sender(stream);
    expect(run_body(pSenderProc, NULL), "a sending thread without a group ends");
    KovaRtspServerDestroy(server);
}
