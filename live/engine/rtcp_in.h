#pragma once

#include "live/engine/connection.h"
#include "live/engine/udp_ports.h"

#include <cstddef>
#include <string_view>

/// RTCP from a player over UDP: whose it is, is told by address and port, else by the
/// address if one player alone has it (others sit behind a translator).
void KovaRtcpFromUdp(KovaLiveLoop *pLoop, KovaUdpPorts *pPorts, const sockaddr_in &from,
                     const uint8_t *pPacket, size_t nSize);

/// An interleaved frame of a player: RTCP on the channels of its sessions; others do not
/// count.
void KovaRtcpFromFrame(KovaLiveConnection *pConnection, uint8_t nChannel, std::string_view frame);
