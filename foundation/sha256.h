#pragma once

#include "foundation/hash.h"

constexpr size_t kSha256Size = 32; ///< bytes of a result

/// SHA-256 (FIPS 180-4, section 6.2).
extern const KovaHashAlgorithm kHashSha256;

/// HMAC-SHA-256 (RFC 2104) of nSize bytes with a key of nKeySize bytes, at most
/// kHashBlockSize. Writes kSha256Size bytes.
void KovaHmacSha256(const uint8_t *pKey, size_t nKeySize, const void *pBytes, size_t nSize,
                    uint8_t *pResult);
