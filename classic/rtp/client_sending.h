#pragma once

#include "classic/rtp/packet_batch.h"
#include "classic/rtp/send_group.h"
#include "classic/rtp/sender.h"
#include "classic/rtp/stream_calls.h"

#include <cstdint>

/// Name of the sending thread in log lines.
constexpr char kSendingThread[] = "pSenderProc";

/// What one sending thread works with.
struct KovaSendingContext {
    KovaRtpSendGroup *pGroup;
    KovaRtpSender *pSender;
    KovaRtspStreamer *pStreamer;
    KovaPackerIdentity packer;
    uint64_t nNow; ///< ms; as of the last look at the clock
    KovaPacketBatch batch;
};

/// One batch on its way to all clients of a group.
struct KovaServingPass {
    KovaSendingContext *pContext;
    KovaPacketBatch *pBatch;
    bool bReleased;    ///< clientMutex was released, so the walk starts over
    uint32_t nWaiting; ///< milliseconds to pay: packets that a client let go by
};

/// Lets others have the clients for a millisecond.
void KovaRestBetweenClients(KovaRtpSendGroup *pGroup, KovaServingPass *pPass)
    KOVA_REQUIRES(pGroup->clientMutex);

/// Sends a playing client packet nFirst of the batch and those behind it, as far as
/// nothing comes between: a sender report when it is due, the player's RTCP, one
/// datagram for each packet. Waits, without the lock, as long as the player's socket
/// is full: its group waits with it, but nobody who needs the group's lock does. The
/// wait ends with a stop request and with the client's removal.
/// @return the packet to go on with; the batch's count when there is none left, or
///         when the client is no longer a member and must not be touched
uint32_t KovaSendPackets(KovaRtpSendGroup *pGroup, KovaServingPass *pPass, KovaRtpClient *pClient,
                         uint32_t nFirst) KOVA_REQUIRES(pGroup->clientMutex);
