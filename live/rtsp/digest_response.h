#pragma once

#include "foundation/hash.h"
#include "live/rtsp/digest_header.h"

#include <cstdint>
#include <string_view>

/// H(user:realm:password), pAlgorithm->nSize bytes (RFC 7616, section 3.4.2).
void KovaDigestSecret(const KovaHashAlgorithm &algorithm, std::string_view user,
                      std::string_view realm, std::string_view password, uint8_t *pSecret);

/// What the response has to be, pAlgorithm->nSize bytes: with qop "auth" when the header
/// has a qop (section 3.4.1), else by the older form of RFC 2069.
/// @param pSecret  of the user
/// @param method   of the request, as it came
void KovaDigestResponse(const KovaHashAlgorithm &algorithm, const uint8_t *pSecret,
                        std::string_view method, const KovaDigestHeader &header,
                        uint8_t *pResponse);
