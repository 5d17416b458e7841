#pragma once

#include "bench/clip.h"

#include <netinet/in.h>

#include <vector>

/// Where a player wants its packets.
struct KovaBarePlayer {
    int nRtspSocket = -1;
    int nUdpSocket = -1; ///< one for each player, as the library has them; -1 over TCP
    sockaddr_in address = {};
    bool bLost = false; ///< takes nothing any more
};

using KovaBarePlayers = std::vector<KovaBarePlayer *>;

/// Hands an access unit to all players of one transport, with nothing around the system calls.
/// Waits for those whose sockets are full, and gives up those over TCP who take nothing.
using KovaBareWay = void (*)(const KovaClipUnit &unit, const KovaBarePlayers &players);

struct KovaBareWayEntry {
    const char *szName;
    bool bUdp;
    KovaBareWay pSend;
};

/// The way of that name, or null:
///     sendto    a system call for each packet and player, over UDP; packet by packet
///     sendmmsg  one for an access unit's packets
///     gso       one for those of the same size, which the system cuts (UDP_SEGMENT)
///     send      one for each packet and player, in the connection; packet by packet
///     writev    one for an access unit
const KovaBareWayEntry *KovaFindBareWay(const char *szName);

/// Whether the system cuts datagrams.
bool KovaHasSegmentation();
