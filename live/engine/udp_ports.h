#pragma once

#include "live/engine/loop.h"

#include <netinet/in.h>

#include <cstdint>

/// A loop's pair of UDP ports on one address of the machine: an even one for RTP,
/// the next for RTCP (RFC 3550, section 11). It serves all players of the loop who
/// came to that address, so that media leaves from the address that they know.
struct KovaUdpPorts {
    KovaPollItem rtpItem; ///< what players send there (to open their firewalls) is thrown away
    KovaPollItem rtcpItem;
    KovaLiveLoop *pLoop;
    KovaUdpPorts *pNext;
    uint32_t nAddress; ///< network order
    uint16_t nRtpPort;
    uint16_t nRtcpPort;
    bool bFull; ///< RTP's socket took no more: its event is waited for
};

/// The loop's pair on that address, made if it is not there yet; it stays at least until the
/// last of its sessions has ended. Null when there are no ports or descriptors.
KovaUdpPorts *KovaUdpPortsOf(KovaLiveLoop *pLoop, uint32_t nAddress);

/// Closes all of a loop.
void KovaUdpPortsClose(KovaLiveLoop *pLoop);
