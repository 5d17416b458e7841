#pragma once

#include "bench/track_check.h"

#include <cstddef>
#include <cstdint>

/// A player's two UDP ports.
struct KovaUdpPorts {
    int nPort = 0; ///< even, for RTP; the next one is for RTCP
    int nRtpSocket = -1;
    int nRtcpSocket = -1;
};

/// Opens a pair with large receive buffers. False when there is none.
bool KovaOpenUdpPorts(KovaUdpPorts *pPorts);

constexpr size_t kDatagrams = 32;

/// The beginnings of datagrams; nobody looks at the rest.
struct KovaDatagramHeads {
    uint8_t bytes[kDatagrams][kLoadRtpHeader];
    size_t nSizes[kDatagrams]; ///< of the whole datagrams
    size_t nCount;
};

/// Takes what is waiting, kDatagrams at most.
void KovaTakeDatagrams(int nSocket, KovaDatagramHeads *pHeads);
