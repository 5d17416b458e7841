#pragma once

#include <cstdint>

struct KovaRtspServer;

/// The server's descriptor of the connection from a player's port: -1 when it has
/// closed it, or has no such connection.
int KovaServerSocketOf(KovaRtspServer *pServer, uint16_t nPeerPort);
