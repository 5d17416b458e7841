#include "foundation/hex.h"

void KovaHexWrite(char *szText, const uint8_t *pBytes, size_t nSize)
{
    static const char digits[] = "0123456789abcdef";
    for (size_t nIndex = 0; nIndex < nSize; nIndex++) {
        *szText++ = digits[pBytes[nIndex] >> 4];
        *szText++ = digits[pBytes[nIndex] & 15];
    }
    *szText = '\0';
}

bool KovaHexNumber(std::string_view text, uint32_t *pNumber)
{
    if (text.empty() || text.size() > 8)
        return false;
    *pNumber = 0;
    for (const char *pNext = text.data(); pNext != text.data() + text.size(); pNext++) {
        const auto nDigit = static_cast<uint8_t>(*pNext - '0');
        const auto nLetter = static_cast<uint8_t>((*pNext | 0x20) - 'a');
        if (nDigit > 9 && nLetter > 5)
            return false;
        *pNumber = *pNumber << 4 | (nDigit <= 9 ? nDigit : nLetter + 10U);
    }
    return true;
}

bool KovaHexRead(std::string_view text, uint8_t *pBytes, size_t nSize)
{
    if (text.size() != 2 * nSize)
        return false;
    for (size_t nIndex = 0; nIndex < nSize; nIndex++) {
        uint32_t nByte;
        if (!KovaHexNumber({text.data() + 2 * nIndex, 2}, &nByte))
            return false;
        pBytes[nIndex] = static_cast<uint8_t>(nByte);
    }
    return true;
}
