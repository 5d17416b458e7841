#include "tests/robustness/server_socket.h"

#include "tests/support/server_records.h"

int KovaServerSocketOf(KovaRtspServer *pServer, uint16_t nPeerPort)
{
    int nSocket = -1;
    KovaForEachHandler(pServer, [&](const KovaRtspServerHandler *pHandler) {
        if (pHandler->nPeerPort == nPeerPort)
            nSocket = pHandler->nSocket;
    });
    return nSocket;
}
