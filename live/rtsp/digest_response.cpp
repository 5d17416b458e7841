#include "live/rtsp/digest_response.h"

#include "foundation/hex.h"
#include "foundation/wipe.h"

namespace {

void AddField(KovaHash *pHash, std::string_view text)
{
    KovaHashAdd(pHash, ":");
    KovaHashAdd(pHash, text);
}

void AddDigits(KovaHash *pHash, const uint8_t *pBytes)
{
    char digits[2 * kHashMaxSize + 1];
    const size_t nSize = pHash->pAlgorithm->nSize;
    KovaHexWrite(digits, pBytes, nSize);
    KovaHashAdd(pHash, digits, 2 * nSize);
    KovaWipe(digits, sizeof(digits));
}

} // namespace

void KovaDigestSecret(const KovaHashAlgorithm &algorithm, std::string_view user,
                      std::string_view realm, std::string_view password, uint8_t *pSecret)
{
    KovaHash hash;
    KovaHashBegin(&hash, algorithm);
    KovaHashAdd(&hash, user);
    AddField(&hash, realm);
    AddField(&hash, password);
    KovaHashEnd(&hash, pSecret);
}

void KovaDigestResponse(const KovaHashAlgorithm &algorithm, const uint8_t *pSecret,
                        std::string_view method, const KovaDigestHeader &header, uint8_t *pResponse)
{
    KovaHash hash;
    uint8_t request[kHashMaxSize];
    KovaHashBegin(&hash, algorithm);
    KovaHashAdd(&hash, method);
    AddField(&hash, header.values[kDigestUri]);
    KovaHashEnd(&hash, request);

    KovaHashBegin(&hash, algorithm);
    AddDigits(&hash, pSecret);
    AddField(&hash, header.values[kDigestNonce]);
    if ((header.nFound & KovaDigestBit(kDigestQop)) != 0) {
        AddField(&hash, header.values[kDigestCount]);
        AddField(&hash, header.values[kDigestCnonce]);
        AddField(&hash, header.values[kDigestQop]);
    }
    KovaHashAdd(&hash, ":");
    AddDigits(&hash, request);
    KovaHashEnd(&hash, pResponse);
}
