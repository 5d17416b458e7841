#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

/// Parameters of a Digest answer (RFC 7616, section 3.4).
enum KovaDigestParameter : uint8_t {
    kDigestUserName,
    kDigestRealm,
    kDigestNonce,
    kDigestUri,
    kDigestResponse,
    kDigestAlgorithm,
    kDigestCnonce,
    kDigestOpaque,
    kDigestQop,
    kDigestCount, ///< "nc"
    kDigestParameters,
};

constexpr uint16_t KovaDigestBit(KovaDigestParameter parameter)
{
    return static_cast<uint16_t>(1U << parameter);
}

struct KovaDigestHeader {
    uint16_t nFound; ///< a bit for each one that is there: KovaDigestBit()
    /// As they came: without the quotes, with the backslashes. An absent algorithm is MD5
    /// (section 3.4).
    std::string_view values[kDigestParameters];
};

/// Reads the value of an Authorization header: "Digest" and parameters in any order and
/// case, each a token or a quoted string, with blanks anywhere between (RFC 7235,
/// section 2.1). Parameters that are not known are passed over. The views are of text.
/// @return false for another scheme, a form that is broken, or a parameter that comes twice
bool KovaDigestHeaderParse(std::string_view text, KovaDigestHeader *pHeader);

/// Whether a value means text: as it came, or with its backslashes resolved. Some players
/// do not write a backslash before those in a name.
/// Takes the same time wherever the two differ.
bool KovaDigestValueIs(std::string_view value, std::string_view text);
