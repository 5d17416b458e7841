#pragma once

#include "rtp/send_outcome.h"

#include <netinet/in.h>

#include <cstddef>
#include <cstdint>

/// Sends one datagram without waiting. Descriptors below 1 are never a player's.
KovaSendOutcome KovaUdpSend(int nSocket, const sockaddr_in &address, const uint8_t *pData,
                            size_t nSize);

/// Takes one waiting datagram off the socket without looking at it. Returns
/// whether one was there.
bool KovaUdpTakeOne(int nSocket);
