#include "tests/robustness/server_socket.h"

#include "server/server.h"

int KovaServerSocketOf(KovaRtspServer *pServer, uint16_t nPeerPort)
{
    int nSocket = -1;
    pthread_mutex_lock(&pServer->mtxHandler);
    for (KovaList *pNode = pServer->pHandlerList; pNode != nullptr; pNode = pNode->next) {
        auto *pHandler = static_cast<KovaRtspServerHandler *>(pNode->data);
        if (pHandler->nPeerPort == nPeerPort)
            nSocket = pHandler->nSocket;
    }
    pthread_mutex_unlock(&pServer->mtxHandler);
    return nSocket;
}
