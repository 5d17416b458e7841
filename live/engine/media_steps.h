#pragma once

#include "live/engine/session.h"
#include "rtp/interleaved_batch.h"
#include "rtp/udp_batch.h"

#include <sys/uio.h>

#include <cstdint>

/// Packets that are sent to one player with one call, at most.
constexpr uint32_t kMediaPiece = 64;

/// Players whom one call serves, at most.
constexpr uint32_t kUdpRoundPlayers = 32;

/// The same packets of a unit on their way to several UDP players.
struct KovaUdpRound {
    KovaUnit *pUnit;
    const iovec *pPackets;
    uint32_t nFirst;
    uint32_t nEnd;
    uint32_t nPlayers;
    KovaUdpDelivery deliveries[kUdpRoundPlayers];
    struct Player {
        KovaLiveSession *pSession;
        KovaLiveSetup *pSetup;
    } players[kUdpRoundPlayers];
};

/// Adds a player, after the others were sent when there is no more room.
void KovaUdpRoundAdd(KovaUdpRound *pRound, KovaLiveSession *pSession, KovaLiveSetup *pSetup);
void KovaUdpRoundSend(KovaUdpRound *pRound);

/// Packets nFirst to nEnd - 1 of a unit, as the senders want them.
void KovaMediaFrames(const KovaUnit *pUnit, uint32_t nFirst, uint32_t nEnd, uint8_t nChannel,
                     KovaInterleavedFrame *pFrames);
void KovaMediaPackets(const KovaUnit *pUnit, uint32_t nFirst, uint32_t nEnd, iovec *pPackets);

/// Counts them as sent.
void KovaMediaCount(KovaLiveSession *pSession, KovaLiveSetup *pSetup, const KovaUnit *pUnit,
                    uint32_t nFirst, uint32_t nEnd);
