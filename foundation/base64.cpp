#include "foundation/base64.h"

#include <array>

namespace {

constexpr char basis_64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr uint8_t kNoValue = 64;

constexpr std::array<uint8_t, 256> MakeReverseTable()
{
    std::array<uint8_t, 256> table{};
    for (uint8_t &nValue : table)
        nValue = kNoValue;
    for (uint8_t nValue = 0; nValue < 64; nValue++)
        table[static_cast<uint8_t>(basis_64[nValue])] = nValue;
    return table;
}

constexpr std::array<uint8_t, 256> pr2six = MakeReverseTable();

uint8_t ValueOf(char nCharacter)
{
    return pr2six[static_cast<uint8_t>(nCharacter)];
}

int32_t CountDecodable(const char *szText)
{
    int32_t nCount = 0;
    while (ValueOf(szText[nCount]) < kNoValue)
        nCount++;
    return nCount;
}

} // namespace

int32_t Base64encode_len(int32_t nLength)
{
    const uint32_t nGroups = nLength < 0 ? static_cast<uint32_t>((nLength + 2) / 3)
                                         : (static_cast<uint32_t>(nLength) + 2) / 3;
    return static_cast<int32_t>(nGroups * 4 + 1);
}

int32_t Base64encode(char *szText, const char *pBytes, int32_t nLength)
{
    if (szText == nullptr)
        return 0;
    if (pBytes == nullptr || nLength < 0)
        nLength = 0;
    const uint8_t *pIn = reinterpret_cast<const uint8_t *>(pBytes);
    char *szOut = szText;
    int32_t nPosition = 0;
    for (; nPosition < nLength - 2; nPosition += 3, pIn += 3) {
        *szOut++ = basis_64[pIn[0] >> 2];
        *szOut++ = basis_64[(pIn[0] & 3) << 4 | pIn[1] >> 4];
        *szOut++ = basis_64[(pIn[1] & 15) << 2 | pIn[2] >> 6];
        *szOut++ = basis_64[pIn[2] & 63];
    }
    if (nPosition < nLength) {
        *szOut++ = basis_64[pIn[0] >> 2];
        if (nPosition == nLength - 1) {
            *szOut++ = basis_64[(pIn[0] & 3) << 4];
            *szOut++ = '=';
        } else {
            *szOut++ = basis_64[(pIn[0] & 3) << 4 | pIn[1] >> 4];
            *szOut++ = basis_64[(pIn[1] & 15) << 2];
        }
        *szOut++ = '=';
    }
    *szOut++ = '\0';
    return static_cast<int32_t>(szOut - szText);
}

int32_t Base64decode_len(const char *szText)
{
    if (szText == nullptr)
        return 0;
    return (CountDecodable(szText) + 3) / 4 * 3 + 1;
}

int32_t Base64decode(char *pBytes, const char *szText)
{
    if (pBytes == nullptr || szText == nullptr)
        return 0;
    const int32_t nCount = CountDecodable(szText);
    int32_t nLeft = nCount;
    for (; nLeft > 4; nLeft -= 4, szText += 4) {
        *pBytes++ = static_cast<char>(ValueOf(szText[0]) << 2 | ValueOf(szText[1]) >> 4);
        *pBytes++ = static_cast<char>(ValueOf(szText[1]) << 4 | ValueOf(szText[2]) >> 2);
        *pBytes++ = static_cast<char>(ValueOf(szText[2]) << 6 | ValueOf(szText[3]));
    }
    if (nLeft > 1)
        *pBytes++ = static_cast<char>(ValueOf(szText[0]) << 2 | ValueOf(szText[1]) >> 4);
    if (nLeft > 2)
        *pBytes++ = static_cast<char>(ValueOf(szText[1]) << 4 | ValueOf(szText[2]) >> 2);
    if (nLeft > 3)
        *pBytes++ = static_cast<char>(ValueOf(szText[2]) << 6 | ValueOf(szText[3]));
    *pBytes = '\0';
    return (nCount + 3) / 4 * 3 - ((4 - nLeft) & 3);
}
