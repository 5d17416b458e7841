#pragma once

#include "foundation/hash.h"

constexpr size_t kMd5Size = 16; ///< bytes of a result

/// MD5 (RFC 1321). Broken for signatures; most players know no other hash for a
/// login, where it still takes a guessed password to make the right answer.
extern const KovaHashAlgorithm kHashMd5;
