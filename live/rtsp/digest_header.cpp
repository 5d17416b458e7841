#include "live/rtsp/digest_header.h"

#include <strings.h>

namespace {

constexpr std::string_view kNames[kDigestParameters] = {
    "username", "realm", "nonce", "uri", "response", "algorithm", "cnonce", "opaque", "qop", "nc"};
constexpr std::string_view kBlanks = " \t";

std::string_view Behind(std::string_view text, size_t nCount)
{
    return text.substr(nCount < text.size() ? nCount : text.size());
}

std::string_view SkipAny(std::string_view text, std::string_view characters)
{
    return Behind(text, text.find_first_not_of(characters));
}

/// Takes a token off the text; it ends where RFC 7230 has something else, as far as that
/// matters here: values like URLs are taken without quotes too.
std::string_view TakeToken(std::string_view *pText, std::string_view ends)
{
    const std::string_view token = pText->substr(0, pText->find_first_of(ends));
    *pText = Behind(*pText, token.size());
    return token;
}

/// Takes what stands between quotes; false without the second one.
bool TakeQuoted(std::string_view *pText, std::string_view *pValue)
{
    for (size_t nEnd = 1; nEnd < pText->size(); nEnd++) {
        const char nCharacter = (*pText)[nEnd];
        if (nCharacter == '"') {
            *pValue = pText->substr(1, nEnd - 1);
            *pText = Behind(*pText, nEnd + 1);
            return true;
        }
        if (nCharacter == '\\')
            nEnd++;
    }
    return false;
}

bool TakeValue(std::string_view *pText, std::string_view *pValue)
{
    if (!pText->empty() && pText->front() == '"')
        return TakeQuoted(pText, pValue);
    *pValue = TakeToken(pText, " \t,\"");
    return !pValue->empty();
}

/// Takes "name = value" and the blanks behind it.
bool TakeParameter(std::string_view *pText, KovaDigestHeader *pHeader)
{
    const std::string_view name = TakeToken(pText, " \t=,\"");
    *pText = SkipAny(*pText, kBlanks);
    if (name.empty() || pText->empty() || pText->front() != '=')
        return false;
    *pText = SkipAny(Behind(*pText, 1), kBlanks);
    std::string_view value;
    if (!TakeValue(pText, &value))
        return false;
    *pText = SkipAny(*pText, kBlanks);
    for (size_t nIndex = 0; nIndex < kDigestParameters; nIndex++) {
        if (!KovaDigestTokenIs(name, kNames[nIndex]))
            continue;
        if (pHeader->values[nIndex].data() != nullptr)
            return false;
        pHeader->values[nIndex] = value;
    }
    return true;
}

/// Compares in a time that the value's and the text's length decide alone.
bool IsSame(std::string_view value, std::string_view text, bool bResolve)
{
    size_t nAt = 0;
    unsigned nDifference = 0;
    for (size_t nIndex = 0; nIndex < value.size(); nIndex++) {
        if (bResolve && value[nIndex] == '\\' && nIndex + 1 < value.size())
            nIndex++;
        const char nWanted = nAt < text.size() ? text[nAt] : '\0';
        nDifference |= static_cast<unsigned char>(value[nIndex] ^ nWanted);
        nAt++;
    }
    return (nDifference | (nAt ^ text.size())) == 0;
}

} // namespace

bool KovaDigestHeaderParse(std::string_view text, KovaDigestHeader *pHeader)
{
    *pHeader = KovaDigestHeader();
    text = SkipAny(text, kBlanks);
    if (!KovaDigestTokenIs(TakeToken(&text, kBlanks), "Digest"))
        return false;
    // A list may have empty elements (RFC 7230, section 7).
    text = SkipAny(text, " \t,");
    while (!text.empty()) {
        if (!TakeParameter(&text, pHeader))
            return false;
        if (!text.empty() && text.front() != ',')
            return false;
        text = SkipAny(text, " \t,");
    }
    return true;
}

bool KovaDigestValueIs(std::string_view value, std::string_view text)
{
    const bool bAsItCame = IsSame(value, text, false);
    return IsSame(value, text, true) || bAsItCame;
}

bool KovaDigestTokenIs(std::string_view value, std::string_view token)
{
    return value.size() == token.size() &&
           strncasecmp(value.data(), token.data(), token.size()) == 0;
}
