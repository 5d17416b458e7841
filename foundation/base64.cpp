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
    // Each three bytes are four characters; of one or two, '=' stands for the rest.
    for (; nLength > 0; nLength -= 3, pIn += 3) {
        const uint32_t nGroup = static_cast<uint32_t>(pIn[0]) << 16 |
                                (nLength > 1 ? static_cast<uint32_t>(pIn[1]) << 8 : 0) |
                                (nLength > 2 ? pIn[2] : 0);
        for (int32_t nIndex = 0; nIndex < 4; nIndex++)
            *szOut++ = nIndex <= nLength ? basis_64[nGroup >> (18 - 6 * nIndex) & 63] : '=';
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
    uint32_t nBits = 0;
    for (int32_t nIndex = 0; nIndex < nCount; nIndex++) {
        nBits = nBits << 6 | ValueOf(szText[nIndex]);
        // The first of four characters completes no byte.
        if ((nIndex & 3) != 0)
            *pBytes++ = static_cast<char>(nBits >> (6 - 2 * (nIndex & 3)));
    }
    *pBytes = '\0';
    return (nCount + 3) / 4 * 3 - (-nCount & 3);
}
