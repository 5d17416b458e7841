#pragma once

#include "classic/rtsp/connection_handler.h"
#include "tests/support/test_server.h"

#include <memory>

/// A handler without a thread on one end of a TCP connection over loopback, and
/// a player on the other end. The server is neither started nor told of it.
class KovaHandlerPair {
public:
    explicit KovaHandlerPair(KovaRtspServer *pServer);
    ~KovaHandlerPair();
    KovaHandlerPair(const KovaHandlerPair &) = delete;
    KovaHandlerPair &operator=(const KovaHandlerPair &) = delete;

    KovaRtspTestClient player;
    KovaRtspServerHandler *pHandler = nullptr;
};

/// A connected TCP pair: the player connects, and the accepted end is returned.
int KovaAcceptPlayer(KovaRtspTestClient *pPlayer, sockaddr_in *pPeer, int nReceiveBuffer = 0);
