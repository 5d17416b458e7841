#pragma once

#include "foundation/export.h"

#include <atomic>
#include <cstdint>

/// Byte ring over a caller's block, for one writer and one reader without a
/// lock: the writer moves only the write position, the reader only the read
/// position. One byte always stays empty, so a full ring never looks empty.
/// Frozen: callers from outside read the fields at these places.
struct KovaRingbuffer {
    uint8_t *pBuffer; ///< the block; the caller's
    int32_t nSize;    ///< its size in bytes
    std::atomic<int32_t> nReadPos;
    std::atomic<int32_t> nWritePos;
};
static_assert(sizeof(std::atomic<int32_t>) == sizeof(int32_t), "a position is one plain word");
static_assert(alignof(std::atomic<int32_t>) == alignof(int32_t), "a position is one plain word");

/// Lays an empty ring over nSize bytes at pBlock.
KOVA_API void KovaRingbufferInit(KovaRingbuffer *pRing, uint8_t *pBlock, int32_t nSize);

/// 1 if nothing is held, else 0. (The name is the interface's.)
KOVA_API int32_t KovaRingbufferRmpty(KovaRingbuffer *pRing);

/// Bytes that can be written.
KOVA_API int32_t KovaRingbufferFree(KovaRingbuffer *pRing);

/// Bytes that can be read.
KOVA_API int32_t KovaRingbufferAvail(KovaRingbuffer *pRing);

/// Discards everything unread. Reader only. Returns the ring.
KOVA_API KovaRingbuffer *KovaRingbufferFlush(KovaRingbuffer *pRing);

/// Puts both positions to 0. Only while nobody reads or writes. Returns the ring.
KOVA_API KovaRingbuffer *KovaRingbufferReset(KovaRingbuffer *pRing);

/// Copies nCount bytes out and moves the read position. The caller has checked
/// KovaRingbufferAvail(); nothing is checked here but that nCount is within the
/// block. Returns nCount; 0, and nothing is done, for a null argument or a count
/// that is not within the block.
KOVA_API int32_t KovaRingbufferRead(KovaRingbuffer *pRing, uint8_t *pBytes, int32_t nCount);

/// Copies nCount bytes in and moves the write position. The caller has checked
/// KovaRingbufferFree(). Returns as KovaRingbufferRead().
KOVA_API int32_t KovaRingbufferWrite(KovaRingbuffer *pRing, const uint8_t *pBytes, int32_t nCount);
