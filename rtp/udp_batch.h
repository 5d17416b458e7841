#pragma once

#include "rtp/send_outcome.h"

#include <netinet/in.h>
#include <sys/uio.h>

#include <cstdint>

/// How packets go to a UDP destination, best first.
enum KovaUdpWay : uint8_t {
    kUdpSegmented = 0, ///< a run of them at once, which the system cuts (UDP_SEGMENT, Linux 4.18)
    kUdpMany = 1,      ///< many datagrams with one call (sendmmsg, Linux 3.0)
    kUdpSingly = 2,    ///< a call for each
};

/// What is known of the way to one destination. Zeroed at the start, then kept
/// with the destination by whoever owns that: routes differ, and so does what a
/// network card at their beginning can do.
struct KovaUdpRoute {
    KovaUdpWay way; ///< the best one that has not been refused
    bool bSingly;   ///< the rest of a batch in trouble goes out one by one
};

/// Packets for one destination, each of them one datagram.
struct KovaUdpDelivery {
    int nSocket; ///< below 1: nothing is sent, and every packet fails
    const sockaddr_in *pAddress;
    KovaUdpRoute *pRoute;  ///< the destination's; never null
    const iovec *pPackets; ///< in the order in which they are sent; only read
    uint32_t nPackets;

    /// Filled in: packets sent, from the first one on.
    uint32_t nSent;
    /// Filled in. kSendDone: all of them. kSendAgain: there was no room for packet
    /// nSent; try again with it, later. kSendFailed: packet nSent is lost, for the
    /// reason in nError; the ones behind it have not been tried and want another
    /// call, without that one.
    KovaSendOutcome outcome;
    int nError; ///< filled in: errno of what was not sent; 0 when all was
};

/// Sends the packets of each delivery in order, in as few system calls as the
/// system and the destination allow, without waiting and without a signal.
/// Neighbours with the same socket share calls; when the socket is full for one
/// of them, those behind it that share it are not tried.
///
/// What the system refuses, for another reason than a full socket, goes out in
/// the next simpler way, exactly what has not been sent: no packet is lost by it,
/// and none sent twice. If the simpler way works, the route keeps to it, unless the
/// reason will pass: a shortage, or an unreachable host. A packet is lost only when
/// a call for it alone fails.
///
/// Any thread; a route belongs to one call at a time.
/// @param pDeliveries  nCount of them
void KovaUdpBatchSend(KovaUdpDelivery *pDeliveries, uint32_t nCount);

/// Forgets what was found out about the system (not about destinations), so that
/// the next call looks again: for tests, which change what the system has.
void KovaUdpBatchForget();
