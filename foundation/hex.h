#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

/// Writes two lower-case digits per byte and a NUL: 2 * nSize + 1 characters.
void KovaHexWrite(char *szText, const uint8_t *pBytes, size_t nSize);

/// Reads nSize bytes of text, whose digits may be of either case.
/// @return false when text is not exactly 2 * nSize digits; pBytes is undefined then
bool KovaHexRead(std::string_view text, uint8_t *pBytes, size_t nSize);

/// Reads a number of one to eight digits.
bool KovaHexNumber(std::string_view text, uint32_t *pNumber);
