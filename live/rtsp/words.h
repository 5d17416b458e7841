#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

/// Cutting up header values. Blanks are space and tab (RFC 2326, 15.1); letters are
/// compared without case as ASCII, whatever the locale says.

inline bool KovaIsBlank(char c)
{
    return c == ' ' || c == '\t';
}
inline bool KovaIsDigit(char c)
{
    return c >= '0' && c <= '9';
}

/// The part of a text from nFrom on, at most nCount bytes; nFrom is within the text.
/// string_view::substr() would bring in the C++ run time's exceptions.
inline std::string_view KovaPart(std::string_view text, size_t nFrom,
                                 size_t nCount = std::string_view::npos)
{
    const size_t nRest = text.size() - nFrom;
    return {text.data() + nFrom, nCount < nRest ? nCount : nRest};
}

/// Where the first character of a set stands in the text; its size when none does.
size_t KovaFind(std::string_view text, const char *szSet);

/// Where another text stands in the text first, with case; the text's size when it does not.
size_t KovaFindText(std::string_view text, std::string_view wanted);

/// Whether the text is a word, without case.
bool KovaWordIs(std::string_view text, std::string_view word);

/// Whether the text begins with a word, without case.
bool KovaWordBegins(std::string_view text, std::string_view word);

/// The text without blanks at its ends; never a null view of a text that is not.
std::string_view KovaTrimmed(std::string_view text);

/// Cuts the text at the first separator outside of double quotes: returns what is
/// before it and leaves in *pText what is behind it (null data: nothing was).
std::string_view KovaTakePart(std::string_view *pText, char cSeparator);

/// Reads a text that is digits and nothing else. Larger numbers than nMost become
/// nMost + 1. False for everything else, the empty text included.
bool KovaNumberOf(std::string_view text, uint32_t nMost, uint32_t *pNumber);
