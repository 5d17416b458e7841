#include "live/rtsp/digest_header.h"

#include "live/rtsp/words.h"

#include <cstring>

namespace {

constexpr char kNames[kDigestParameters][10] = {"username",  "realm",  "nonce",  "uri", "response",
                                                "algorithm", "cnonce", "opaque", "qop", "nc"};

/// How many characters at the front are of a set, or are not.
size_t Count(std::string_view text, const char *szSet, bool bOfSet)
{
    size_t nCount = 0;
    while (nCount < text.size() &&
           (text[nCount] != '\0' && strchr(szSet, text[nCount]) != nullptr) == bOfSet)
        nCount++;
    return nCount;
}

void Skip(std::string_view *pText, const char *szSet)
{
    pText->remove_prefix(Count(*pText, szSet, true));
}

/// Takes characters up to one of a set; values like URLs are taken without quotes too.
std::string_view Take(std::string_view *pText, const char *szEnds)
{
    const std::string_view token(pText->data(), Count(*pText, szEnds, false));
    pText->remove_prefix(token.size());
    return token;
}

/// Takes a quoted string; false without its second quote.
bool TakeQuoted(std::string_view *pText, std::string_view *pValue)
{
    const char *pBegin = pText->data() + 1;
    for (size_t nEnd = 1; nEnd < pText->size(); nEnd++) {
        const char nCharacter = (*pText)[nEnd];
        if (nCharacter == '"') {
            *pValue = std::string_view(pBegin, nEnd - 1);
            pText->remove_prefix(nEnd + 1);
            return true;
        }
        if (nCharacter == '\\')
            nEnd++;
    }
    return false;
}

bool Keep(KovaDigestHeader *pHeader, std::string_view name, std::string_view value)
{
    for (unsigned nIndex = 0; nIndex < kDigestParameters; nIndex++) {
        if (!KovaWordIs(name, kNames[nIndex]))
            continue;
        const unsigned nFound = pHeader->nFound | 1U << nIndex;
        if (nFound == pHeader->nFound)
            return false;
        pHeader->nFound = static_cast<uint16_t>(nFound);
        pHeader->values[nIndex] = value;
    }
    return true;
}

/// Takes "name = value" and the blanks behind it.
bool TakeParameter(std::string_view *pText, KovaDigestHeader *pHeader)
{
    const std::string_view name = Take(pText, " \t=,\"");
    Skip(pText, " \t");
    if (name.empty() || pText->empty() || pText->front() != '=')
        return false;
    pText->remove_prefix(1);
    Skip(pText, " \t");
    std::string_view value;
    if (!pText->empty() && pText->front() == '"') {
        if (!TakeQuoted(pText, &value))
            return false;
    } else {
        value = Take(pText, " \t,\"");
        if (value.empty())
            return false;
    }
    Skip(pText, " \t");
    return Keep(pHeader, name, value);
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
    pHeader->values[kDigestAlgorithm] = "MD5";
    Skip(&text, " \t");
    if (!KovaWordIs(Take(&text, " \t"), "Digest"))
        return false;
    for (;;) {
        // A list may have empty elements (RFC 7230, section 7).
        Skip(&text, " \t,");
        if (text.empty())
            return true;
        if (!TakeParameter(&text, pHeader) || (!text.empty() && text.front() != ','))
            return false;
    }
}

bool KovaDigestValueIs(std::string_view value, std::string_view text)
{
    const bool bAsItCame = IsSame(value, text, false);
    return IsSame(value, text, true) || bAsItCame;
}
