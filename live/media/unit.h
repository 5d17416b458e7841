#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

struct KovaUnitPool;

/// One RTP packet in a unit's block.
struct KovaUnitPacket {
    uint32_t nOffset; ///< from pBytes
    uint32_t nSize;   ///< bytes, RTP header included
};

/// One access unit, cut into RTP packets that lie one behind the other in one
/// block, each behind its header as a frame of an RTSP connection (RFC 2326, 10.12) on
/// channel nChannel: for players with that channel the whole unit is one piece. Made by the pushing
/// thread, never changed afterwards, shared by reference among the loops and their players.
struct KovaUnit {
    std::atomic<uint32_t> nReferences;
    KovaUnitPool *pPool;
    int64_t nPts;            ///< µs, as pushed
    uint64_t nArrived;       ///< µs of KovaClockMonotonic: when it was pushed
    uint32_t nTimestamp;     ///< of its packets (of the first one, if it has several frames)
    uint16_t nFirstSequence; ///< of its first packet
    bool bEntry;             ///< a player may begin here: IDR, recovery point, audio
    bool bKey;               ///< an IDR picture
    bool bReference;         ///< other pictures need it (nal_ref_idc is not 0)
    uint32_t nSerial;        ///< the stream's count of units; written by the stream
    uint32_t nTrack;         ///< index of its track in the stream
    uint8_t nChannel;        ///< of the headers in front of the packets
    uint32_t nBytes;         ///< RTP bytes of all packets
    uint32_t nPackets;
    const KovaUnitPacket *pPackets;
    const uint8_t *pBytes;
    size_t nCapacity; ///< bytes of the block behind this record; the pool's
    KovaUnit *pNext;  ///< in the pool's list; the pool's
};

/// Takes one more reference. Any thread.
void KovaUnitAddReference(KovaUnit *pUnit);

/// Gives a reference back; with the last one the block goes back to its pool, or
/// is freed when the pool is gone or full. Any thread. Null is ignored.
void KovaUnitRelease(KovaUnit *pUnit);

/// A pool of blocks for the units of one track: one allocation per unit, mostly
/// none. Holds a few free blocks only. Null without memory.
KovaUnitPool *KovaUnitPoolCreate();

/// The track's end: free blocks are freed, those in use when they come back.
void KovaUnitPoolDestroy(KovaUnitPool *pPool);

/// A block with room for nPackets packets and nBytes bytes, with one reference;
/// everything else in the record is zero, the bytes are not. Null without memory.
/// pPackets and pBytes point into it. Any thread.
KovaUnit *KovaUnitPoolTake(KovaUnitPool *pPool, uint32_t nPackets, uint32_t nBytes);
