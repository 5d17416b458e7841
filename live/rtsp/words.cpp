#include "live/rtsp/words.h"

#include <cstring>

namespace {

char LowerOf(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

} // namespace

size_t KovaFind(std::string_view text, const char *szSet)
{
    size_t nAt = 0;
    while (nAt < text.size() && (text[nAt] == '\0' || strchr(szSet, text[nAt]) == nullptr))
        ++nAt;
    return nAt;
}

size_t KovaFindText(std::string_view text, std::string_view wanted)
{
    for (size_t nAt = 0; nAt + wanted.size() <= text.size(); ++nAt)
        if (memcmp(text.data() + nAt, wanted.data(), wanted.size()) == 0)
            return nAt;
    return text.size();
}

bool KovaWordBegins(std::string_view text, std::string_view word)
{
    if (text.size() < word.size())
        return false;
    for (size_t n = 0; n < word.size(); ++n)
        if (LowerOf(text[n]) != LowerOf(word[n]))
            return false;
    return true;
}

bool KovaWordIs(std::string_view text, std::string_view word)
{
    return text.size() == word.size() && KovaWordBegins(text, word);
}

std::string_view KovaTrimmed(std::string_view text)
{
    while (!text.empty() && KovaIsBlank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && KovaIsBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

std::string_view KovaTakePart(std::string_view *pText, char cSeparator)
{
    const std::string_view text = *pText;
    bool bQuoted = false;
    for (size_t n = 0; n < text.size(); ++n) {
        if (text[n] == '"')
            bQuoted = !bQuoted;
        if (text[n] == cSeparator && !bQuoted) {
            *pText = KovaPart(text, n + 1);
            return KovaPart(text, 0, n);
        }
    }
    *pText = std::string_view();
    return text;
}

bool KovaNumberOf(std::string_view text, uint32_t nMost, uint32_t *pNumber)
{
    uint64_t nValue = 0;
    for (const char c : text) {
        if (!KovaIsDigit(c))
            return false;
        nValue = nValue * 10 + static_cast<uint64_t>(c - '0');
        if (nValue > nMost)
            nValue = uint64_t{nMost} + 1;
    }
    *pNumber = static_cast<uint32_t>(nValue);
    return !text.empty();
}
