#include "classic/rtp/rtp_client.h"

#include "classic/rtp/held_ports.h"
#include "classic/rtp/session_tally.h"
#include "classic/rtp/tcp_channel.h"
#include "foundation/heap.h"
#include "foundation/owner.h"
#include "foundation/text.h"

#include <unistd.h>

namespace {

static_assert(sizeof(std::atomic<int *>) == sizeof(int *), "the reference is a plain pointer");
static_assert(alignof(std::atomic<int *>) == alignof(int *), "the reference is a plain pointer");

sockaddr_in WithPort(sockaddr_in address, uint16_t nPort)
{
    address.sin_family = AF_INET;
    address.sin_port = htons(nPort);
    return address;
}

/// Descriptor 0 is what interleaved clients carry, never a socket of theirs.
void CloseSocket(int32_t *pSocket)
{
    if (*pSocket > 0)
        close(*pSocket);
    *pSocket = -1;
}

/// Media in the connection is what a peer may refuse to take.
bool JoinConnection(KovaRtpClient *pClient, int *pTcpSocket, bool bInterleaved)
{
    pClient->pChannel = KovaTcpChannelJoin(pTcpSocket);
    if (pClient->pChannel == nullptr)
        return pTcpSocket == nullptr;
    if (bInterleaved)
        KovaTcpChannelLimitSending(pClient->pChannel);
    return KovaTcpChannelFollow(pClient->pChannel, &pClient->pTcpSocket);
}

void LeaveConnection(KovaRtpClient *pClient)
{
    if (pClient->pChannel == nullptr)
        return;
    KovaTcpChannelUnfollow(pClient->pChannel, &pClient->pTcpSocket);
    KovaTcpChannelLeave(pClient->pChannel);
}

} // namespace

KovaRtpClient *KovaRtpClientCreate(const char *szSessionId, int32_t nRtpSocket, int32_t nRtcpSocket,
                                   uint16_t nClientRtpPort, uint16_t nClientRtcpPort,
                                   sockaddr_in clientAddress, int32_t nInterleaved, int *pTcpSocket,
                                   uint16_t nRtpChannel, uint16_t nRtcpChannel,
                                   uint16_t nStartSequence, uint32_t nStartTimestamp)
{
    if (szSessionId == nullptr || nRtpSocket < 0 || nRtcpSocket < 0)
        return nullptr;
    // It has no sockets yet: a failure leaves them to the caller.
    KovaOwner<KovaRtpClient, KovaRtpClientDestroy> client(KovaHeapNew<KovaRtpClient>());
    if (!client || !JoinConnection(client.Get(), pTcpSocket, nInterleaved != 0))
        return nullptr;
    KovaRtpClient *pClient = client.Release();
    KovaTextCopy(pClient->szSessionId, sizeof(pClient->szSessionId), szSessionId);
    pClient->nRtpSocket = nRtpSocket;
    pClient->nRtcpSocket = nRtcpSocket;
    pClient->nHeldPort = KovaHeldPortsNote(nRtpSocket);
    pClient->nClientRtpPort = nClientRtpPort;
    pClient->nClientRtcpPort = nClientRtcpPort;
    pClient->rtpAddress = WithPort(clientAddress, nClientRtpPort);
    pClient->rtcpAddress = WithPort(clientAddress, nClientRtcpPort);
    pClient->nStartSequence = nStartSequence;
    pClient->nStartTimestamp = nStartTimestamp;
    pClient->bInterleaved = nInterleaved;
    pClient->nRtpChannel = nRtpChannel;
    pClient->nRtcpChannel = nRtcpChannel;
    return pClient;
}

void KovaRtpClientDestroy(KovaRtpClient *pClient)
{
    if (pClient == nullptr)
        return;
    CloseSocket(&pClient->nRtpSocket);
    CloseSocket(&pClient->nRtcpSocket);
    KovaHeldPortsRelease(pClient->nHeldPort);
    LeaveConnection(pClient);
    KovaSessionTallyLeave(pClient->pTally);
    free(pClient);
}
