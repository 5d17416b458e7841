#pragma once

#include "foundation/sha256.h"
#include "live/rtsp/login.h"

#include <cstdint>
#include <string_view>

constexpr size_t kLoginKeySize = 32; ///< bytes of a server's key for nonces

/// Makes a nonce that tells its own server that it is one of its own: the time, random
/// bytes, and a keyed hash of both, in hex. Nothing needs to be kept of it.
/// @param nNow     µs, monotonic: nonces differ also where random bytes come twice
/// @param szNonce  kLoginNonceSize characters
/// @return false without randomness
bool KovaLoginNonceMake(const uint8_t *pKey, uint64_t nNow, char *szNonce);

/// Whether the server of that key made the nonce. Compared in constant time.
bool KovaLoginNonceIsOwn(const uint8_t *pKey, std::string_view nonce);

/// Whether two runs of bytes are the same, in a time that does not tell where they differ.
bool KovaLoginSame(const uint8_t *pBytes, const uint8_t *pOthers, size_t nSize);
