#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

/// What makes a hash function of the MD4 family: blocks of 64 bytes, a state of
/// 32-bit words, the message's length in bits at its end.
struct KovaHashAlgorithm {
    uint32_t begin[8]; ///< the state before the first block
    void (*pfnBlock)(uint32_t *pState, const uint8_t *pBlock);
    uint8_t nSize;   ///< bytes of the result
    bool bBigEndian; ///< order of the bytes of length and result
};

constexpr size_t kHashBlockSize = 64;
constexpr size_t kHashMaxSize = 32; ///< the longest result, bytes

/// A hash in the making, of less than 512 MiB. Needs no memory of its own.
struct KovaHash {
    const KovaHashAlgorithm *pAlgorithm;
    uint32_t nBytes; ///< so far
    uint32_t state[8];
    uint8_t block[kHashBlockSize]; ///< the bytes behind the last whole block
};

void KovaHashBegin(KovaHash *pHash, const KovaHashAlgorithm &algorithm);

/// Adds bytes of the message, in pieces of any size.
void KovaHashAdd(KovaHash *pHash, const void *pBytes, size_t nSize);
void KovaHashAdd(KovaHash *pHash, std::string_view text);

/// Writes the result, pAlgorithm->nSize bytes, and wipes the hash.
void KovaHashEnd(KovaHash *pHash, uint8_t *pResult);
