#pragma once

#include <cstddef>
#include <cstdint>

/// Both clocks and the network of a live engine whose loop the fuzzer drives: connections are real
/// socket pairs whose sending can be made to stop short, datagrams are checked and gone.

/// Sequence numbers of one track of a player, and how many were missing.
struct KovaLiveOrder {
    bool bBegun;
    uint16_t nNext;
    uint64_t nMissing;
};

/// One RTP packet: what it must look like is required, and that it is behind the others.
void KovaLiveCheckPacket(KovaLiveOrder *pOrder, const uint8_t *pPacket, size_t nSize);

/// Begins a run: the clock at its first second, no limits. Stands in for the C library's calls.
void KovaLiveNetworkBegin();

/// Moves both clocks.
void KovaLiveClockAdvance(uint64_t nMicroseconds);

/// A connection takes only so many bytes more; kLiveNoLimit: all.
constexpr int kLiveNoLimit = -1;
void KovaLiveLimit(int nSocket, int nBytes);

/// Whether datagrams are taken.
void KovaLiveUdpFull(bool bFull);
bool KovaLiveUdpIsFull();

/// What came to a player's UDP port since it was forgotten; null: nothing.
const KovaLiveOrder *KovaLiveUdpOrder(uint16_t nPort);
void KovaLiveUdpForget(uint16_t nPort);
