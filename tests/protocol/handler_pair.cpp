#include "tests/protocol/handler_pair.h"

#include "tests/support/sockets.h"

#include <unistd.h>

int KovaAcceptPlayer(KovaRtspTestClient *pPlayer, sockaddr_in *pPeer, int nReceiveBuffer)
{
    const KovaConnection connection = KovaMakeConnection({nReceiveBuffer, 0});
    pPlayer->Adopt(connection.nPlayer);
    *pPeer = connection.peer;
    return connection.nServer;
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
