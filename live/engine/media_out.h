#pragma once

#include "live/engine/loop.h"
#include "live/engine/session.h"
#include "live/engine/udp_ports.h"

#include <cstdint>

/// Sends packets nFirst to nEnd - 1 of a unit to all players of its stream on this loop,
/// or queues them for those who cannot take them now. With nFirst 0 it is decided who
/// gets the unit; the rest of a unit follows for the same players.
void KovaMediaDistribute(KovaLiveLoop *pLoop, KovaLiveStream *pStream, KovaUnit *pUnit,
                         uint32_t nFirst, uint32_t nEnd);

/// Queues a whole unit for one player: what is kept for newcomers.
void KovaMediaGive(KovaLiveSession *pSession, KovaUnit *pUnit);

/// Sends what waits for the players of a connection, as far as it takes it. Only when
/// nothing else is begun or pending there.
void KovaMediaTcpFlush(KovaLiveConnection *pConnection);

/// Sends what waits for one UDP player.
void KovaMediaUdpFlush(KovaLiveSession *pSession);

/// The port's socket takes datagrams again.
void KovaMediaUdpWritable(KovaUdpPorts *pPorts);
