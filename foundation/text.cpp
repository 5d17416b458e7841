#include "foundation/text.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

void KovaTextCopy(char *szField, size_t nCapacity, std::string_view text)
{
    if (nCapacity == 0)
        return;
    const size_t nCount = text.size() < nCapacity ? text.size() : nCapacity - 1;
    if (nCount != 0)
        memcpy(szField, text.data(), nCount);
    szField[nCount] = '\0';
}

void KovaTextCopy(char *szField, size_t nCapacity, const char *szText)
{
    KovaTextCopy(szField, nCapacity, std::string_view(szText));
}

std::string_view KovaTextField(const char *szField, size_t nCapacity)
{
    return std::string_view(szField, strnlen(szField, nCapacity));
}

const char *KovaTextPrintable(char *szShown, size_t nCapacity, std::string_view text)
{
    if (nCapacity == 0)
        return "";
    KovaTextCopy(szShown, nCapacity, text);
    const size_t nCount = text.size() < nCapacity ? text.size() : nCapacity - 1;
    for (size_t nIndex = 0; nIndex < nCount; nIndex++) {
        const unsigned char nByte = static_cast<unsigned char>(szShown[nIndex]);
        if (nByte < 0x20 || nByte == 0x7F)
            szShown[nIndex] = '?';
    }
    return szShown;
}

const char *KovaTextPrintable(char *szShown, size_t nCapacity, const char *szText)
{
    return KovaTextPrintable(szShown, nCapacity, std::string_view(szText));
}

bool KovaTextAppend(char *szBuffer, size_t nCapacity, size_t *pLength, const char *szFormat, ...)
{
    const size_t nRoom = nCapacity - *pLength;
    va_list arguments;
    va_start(arguments, szFormat);
    const int nWritten = vsnprintf(szBuffer + *pLength, nRoom, szFormat, arguments);
    va_end(arguments);
    if (nWritten < 0 || static_cast<size_t>(nWritten) >= nRoom) {
        szBuffer[*pLength] = '\0';
        return false;
    }
    *pLength += static_cast<size_t>(nWritten);
    return true;
}
