#include "foundation/sha256.h"

#include "foundation/byte_order.h"
#include "foundation/wipe.h"

#include <cstring>

namespace {

constexpr uint32_t kRoundConstants[64] = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

uint32_t Turn(uint32_t nWord, unsigned nBits)
{
    return nWord >> nBits | nWord << (32 - nBits);
}

/// The message schedule's next word takes the place of the one 16 words before it.
void Extend(uint32_t *pWords, unsigned nRound)
{
    const uint32_t nNear = pWords[(nRound + 14) % 16];
    const uint32_t nFar = pWords[(nRound + 1) % 16];
    pWords[nRound % 16] += (Turn(nNear, 17) ^ Turn(nNear, 19) ^ nNear >> 10) +
                           pWords[(nRound + 9) % 16] + (Turn(nFar, 7) ^ Turn(nFar, 18) ^ nFar >> 3);
}

/// One block into the state. A loop and no unrolled rounds: a login takes ten
/// blocks, and boards have little flash.
void AddBlock(uint32_t *pState, const uint8_t *pBlock)
{
    uint32_t words[16];
    uint32_t s[8];
    for (unsigned nIndex = 0; nIndex < 16; nIndex++)
        RtspReadMB(pBlock + size_t{4} * nIndex, &words[nIndex], 32);
    memcpy(s, pState, sizeof(s));
    for (unsigned nRound = 0; nRound < 64; nRound++) {
        if (nRound >= 16)
            Extend(words, nRound);
        const uint32_t nFirst = s[7] + (Turn(s[4], 6) ^ Turn(s[4], 11) ^ Turn(s[4], 25)) +
                                ((s[4] & s[5]) ^ (~s[4] & s[6])) + kRoundConstants[nRound] +
                                words[nRound % 16];
        const uint32_t nSecond = (Turn(s[0], 2) ^ Turn(s[0], 13) ^ Turn(s[0], 22)) +
                                 ((s[0] & s[1]) ^ (s[0] & s[2]) ^ (s[1] & s[2]));
        memmove(s + 1, s, 7 * sizeof(s[0]));
        s[4] += nFirst;
        s[0] = nFirst + nSecond;
    }
    for (unsigned nIndex = 0; nIndex < 8; nIndex++)
        pState[nIndex] += s[nIndex];
    KovaWipe(words, sizeof(words));
    KovaWipe(s, sizeof(s));
}

} // namespace

const KovaHashAlgorithm kHashSha256 = {{0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a, 0x510e527f,
                                        0x9b05688c, 0x1f83d9ab, 0x5be0cd19},
                                       AddBlock,
                                       kSha256Size,
                                       true};

void KovaHmacSha256(const uint8_t *pKey, size_t nKeySize, const void *pBytes, size_t nSize,
                    uint8_t *pResult)
{
    static constexpr uint8_t kPads[] = {0x36, 0x5C};
    for (const uint8_t nPad : kPads) {
        KovaHash hash;
        KovaHashBegin(&hash, kHashSha256);
        for (size_t nIndex = 0; nIndex < kHashBlockSize; nIndex++) {
            const auto nByte = static_cast<uint8_t>(nPad ^ (nIndex < nKeySize ? pKey[nIndex] : 0));
            KovaHashAdd(&hash, &nByte, 1);
        }
        KovaHashAdd(&hash, pBytes, nSize);
        KovaHashEnd(&hash, pResult);
        pBytes = pResult;
        nSize = kSha256Size;
    }
}
