#include "live/rtsp/login_nonce.h"

#include "foundation/byte_order.h"
#include "foundation/hex.h"
#include "foundation/random.h"

#include <cstring>

namespace {

constexpr size_t kTimeSize = 8;
constexpr size_t kRandomSize = 8;
constexpr size_t kProvedSize = kTimeSize + kRandomSize;
constexpr size_t kProofSize = 16; ///< the keyed hash, cut
constexpr size_t kNonceBytes = kProvedSize + kProofSize;
static_assert(2 * kNonceBytes + 1 == kLoginNonceSize, "two digits for each byte");

void Prove(const uint8_t *pKey, const uint8_t *pBytes, uint8_t *pProof)
{
    uint8_t whole[kSha256Size];
    KovaHmacSha256(pKey, kLoginKeySize, pBytes, kProvedSize, whole);
    memcpy(pProof, whole, kProofSize);
}

} // namespace

bool KovaLoginSame(const uint8_t *pBytes, const uint8_t *pOthers, size_t nSize)
{
    // Volatile: the compiler may not end the loop at the first difference.
    volatile uint8_t nDifference = 0;
    for (size_t nIndex = 0; nIndex < nSize; nIndex++)
        nDifference = static_cast<uint8_t>(nDifference | (pBytes[nIndex] ^ pOthers[nIndex]));
    return nDifference == 0;
}

bool KovaLoginNonceMake(const uint8_t *pKey, uint64_t nNow, char *szNonce)
{
    uint8_t bytes[kNonceBytes];
    RtspWriteMB(bytes, static_cast<uint32_t>(nNow >> 32), 32);
    RtspWriteMB(bytes + 4, static_cast<uint32_t>(nNow), 32);
    if (!KovaRandomFill(bytes + kTimeSize, kRandomSize))
        return false;
    Prove(pKey, bytes, bytes + kProvedSize);
    KovaHexWrite(szNonce, bytes, kNonceBytes);
    return true;
}

bool KovaLoginNonceIsOwn(const uint8_t *pKey, std::string_view nonce)
{
    uint8_t bytes[kNonceBytes];
    uint8_t proof[kProofSize];
    if (!KovaHexRead(nonce, bytes, kNonceBytes))
        return false;
    Prove(pKey, bytes, proof);
    return KovaLoginSame(proof, bytes + kProvedSize, kProofSize);
}
