#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// Base64 once more, bit by bit (RFC 4648, section 4).
inline std::string KovaBase64Of(const std::vector<uint8_t> &bytes)
{
    const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    unsigned nBits = 0;
    unsigned nCount = 0;
    for (const uint8_t nByte : bytes) {
        nBits = nBits << 8 | nByte;
        nCount += 8;
        while (nCount >= 6) {
            nCount -= 6;
            text += alphabet[nBits >> nCount & 63];
        }
    }
    if (nCount != 0)
        text += alphabet[nBits << (6 - nCount) & 63];
    text.append((4 - text.size() % 4) % 4, '=');
    return text;
}

/// Decodes what stands before the first other character; bits that make no byte are dropped.
inline std::vector<uint8_t> KovaBase64Bytes(const std::string &text)
{
    const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::vector<uint8_t> bytes;
    unsigned nBits = 0;
    unsigned nCount = 0;
    for (const char nCharacter : text) {
        const size_t nValue = alphabet.find(nCharacter);
        if (nValue == std::string::npos)
            break;
        nBits = nBits << 6 | static_cast<unsigned>(nValue);
        nCount += 6;
        if (nCount >= 8) {
            nCount -= 8;
            bytes.push_back(static_cast<uint8_t>(nBits >> nCount));
        }
    }
    return bytes;
}
