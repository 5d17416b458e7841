#pragma once

#include "foundation/export.h"

#include <cstdint>

/// Opens the first free pair of an even UDP port from 6970 and the next one,
/// bound to any address and non-blocking.
/// @param pRtpPort, pRtcpPort      receive the ports; unchanged when no pair is free
/// @param pRtpSocket, pRtcpSocket  receive the descriptors, the caller's from
///        then on; when no pair is free they hold the last ones tried, already
///        closed. The RTP socket has the smallest receive buffer.
/// A search that meets a shortage of descriptors, buffers or memory finds nothing.
/// The client's ports are not used. Nothing happens when a pointer is null.
KOVA_API void GetServerPort(uint16_t nClientRtpPort, uint16_t nClientRtcpPort, uint16_t *pRtpPort,
                            uint16_t *pRtcpPort, int32_t *pRtpSocket, int32_t *pRtcpSocket);
