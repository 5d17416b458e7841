#include "tests/protocol/handler_pair.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

int KovaAcceptPlayer(KovaRtspTestClient *pPlayer, sockaddr_in *pPeer, int nReceiveBuffer)
{
    const int nListener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = {};
    socklen_t nSize = sizeof(address);
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(nListener, reinterpret_cast<const sockaddr *>(&address), sizeof(address));
    listen(nListener, 1);
    getsockname(nListener, reinterpret_cast<sockaddr *>(&address), &nSize);
    int nSocket = -1;
    if (pPlayer->Connect(ntohs(address.sin_port), nReceiveBuffer))
        nSocket = accept(nListener, reinterpret_cast<sockaddr *>(pPeer), &nSize);
    close(nListener);
    return nSocket;
}

KovaHandlerPair::KovaHandlerPair(KovaRtspServer *pServer)
{
    sockaddr_in peer = {};
    const int nSocket = KovaAcceptPlayer(&player, &peer);
    pHandler = KovaRtspServerHandlerCreate(pServer, nSocket, peer);
    if (pHandler == nullptr && nSocket >= 0)
        close(nSocket);
}

KovaHandlerPair::~KovaHandlerPair()
{
    KovaRtspServerHandlerDestroy(pHandler);
}
