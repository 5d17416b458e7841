#pragma once

#include <cstddef>
#include <cstdint>

/// The largest block that is kept for something smaller.
constexpr size_t kMostKept = size_t{1024} * 1024;

/// A block that its owner uses again and again, and that grows with what it has to
/// hold: a large block from the heap may be mapped anew each time, and then each of
/// its pages costs a fault. All zero is an empty one. One thread at a time.
struct KovaKeptBuffer {
    uint8_t *pBytes; ///< aligned for every type; null while there is no block
    size_t nRoom;    ///< bytes
};

/// Makes room for nSize bytes; the first nKeep bytes stay, the others may change.
/// Pointers into the block are void then. With nothing to keep, a block above
/// kMostKept goes when less is asked for: one large access unit must not cost its
/// memory for ever. Returns false without memory; the bytes to keep are still there.
bool KovaKeptBufferReserve(KovaKeptBuffer *pBuffer, size_t nSize, size_t nKeep);

/// Gives the block back.
void KovaKeptBufferFree(KovaKeptBuffer *pBuffer);
