#pragma once

#include <cstddef>
#include <cstdint>

/// The sockets of a run. UDP sockets are numbers with a port: what is sent on them is checked and
/// gone. Connections are real socket pairs whose sending can be made to stop short.

/// Called by the world.
void KovaNetworkBegin();
void KovaNetworkEnd();

/// So many port pairs, from the first one on, are somebody else's.
void KovaNetworkTakePorts(unsigned nPairs);

/// UDP sockets that are open.
unsigned KovaNetworkUdpSockets();

/// A report waits on every UDP socket for RTCP.
void KovaNetworkSendReports();

/// Whether one does on this socket.
bool KovaNetworkReportWaits(int nSocket);

/// Only so many bytes more go out on this end of a connection; -1: no limit.
void KovaNetworkLimit(int nSocket, int64_t nBytes);

/// Whether a response on this end of a connection was cut by the limit.
bool KovaNetworkHasCut(int nSocket);

/// One RTP or RTCP packet of a stream with AAC as 96 and H.264 as 97. What it must look like is
/// required here.
void KovaCheckMediaPacket(const uint8_t *pData, size_t nSize);
