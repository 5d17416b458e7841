#pragma once

#include <netinet/in.h>

#include <cstdint>

/// The few socket calls that tests make themselves, all of them on the loopback address.

/// An address with this port (0: any).
sockaddr_in KovaLoopback(uint16_t nPort = 0);

/// The same as bind(), connect() and sendto() take it.
inline const sockaddr *KovaPlain(const sockaddr_in &address)
{
    return reinterpret_cast<const sockaddr *>(&address);
}

/// The port that a socket is bound to.
uint16_t KovaPortOf(int nSocket);

/// A socket of this type (SOCK_STREAM, SOCK_DGRAM) that is bound to a port (0: a
/// free one); -1 when somebody has it.
int KovaBind(int nType, uint16_t nPort = 0);

/// A socket that listens on a free port.
int KovaListen(int nBacklog = 128);

/// What a player's connection takes before it is read; 0: as the system likes.
struct KovaConnectOptions {
    int nReceiveBuffer = 0;
    int nMaxSegment = 0;
};

/// A connection to a port; -1 when there is none. What is sent at once is a
/// segment of its own, and so a read of its own at the server.
int KovaConnect(uint16_t nPort, const KovaConnectOptions &options = {});

/// Closes a socket; with a reset instead of an orderly end if bReset.
void KovaCloseSocket(int nSocket, bool bReset);

/// Both ends of a connection, which the caller closes.
struct KovaConnection {
    int nServer = -1;
    int nPlayer = -1;
    sockaddr_in peer = {}; ///< of the server's end
};
KovaConnection KovaMakeConnection(const KovaConnectOptions &options = {});

/// Waits until there is something to read, or the end of the connection.
bool KovaWaitReadable(int nSocket, int nMilliseconds);
