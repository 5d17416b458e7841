#include "live/rtsp/live_path.h"

#include "live/rtsp/words.h"

#include <cstring>

namespace {

/// Whether a character needs no escape in a path. Of those that RFC 3986 (3.3) allows, the ones
/// that separate or quote in RTSP headers are escaped nevertheless.
bool IsPlain(char c)
{
    const bool bLetter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    return bLetter || KovaIsDigit(c) || (c != '\0' && strchr("/-._~:@!$&+=", c) != nullptr);
}

bool IsForbidden(char c)
{
    const uint8_t nByte = static_cast<uint8_t>(c);
    return nByte < 0x20 || nByte == 0x7F || c == '?' || c == '#';
}

} // namespace

size_t KovaLivePathCollapse(std::string_view path, char *szPath)
{
    size_t nLength = 0;
    bool bSlash = false;
    szPath[0] = '\0';
    for (const char c : path) {
        if (c == '/') {
            bSlash = nLength != 0;
            continue;
        }
        // The slash that is due, the character, and the NUL.
        if (nLength + (bSlash ? 3 : 2) > kLivePathSize) {
            szPath[0] = '\0';
            return kLivePathSize;
        }
        if (bSlash)
            szPath[nLength++] = '/';
        bSlash = false;
        szPath[nLength++] = c;
    }
    szPath[nLength] = '\0';
    return nLength;
}

std::string_view KovaLivePathLast(std::string_view path)
{
    size_t nFrom = path.size();
    while (nFrom > 0 && path[nFrom - 1] != '/')
        --nFrom;
    return KovaPart(path, nFrom);
}

int32_t KovaLivePathTrack(std::string_view segment)
{
    constexpr std::string_view kTrack = "track";
    constexpr size_t kMostDigits = 9;
    if (segment.size() <= kTrack.size() || segment.size() > kTrack.size() + kMostDigits ||
        memcmp(segment.data(), kTrack.data(), kTrack.size()) != 0)
        return -1;
    segment.remove_prefix(kTrack.size());
    uint32_t nTrack = 0;
    if (segment.front() == '0' || !KovaNumberOf(segment, INT32_MAX, &nTrack))
        return -1;
    return static_cast<int32_t>(nTrack) - 1;
}

bool KovaLivePathNormalize(std::string_view path, char *szPath)
{
    const size_t nLength = KovaLivePathCollapse(path, szPath);
    bool bAllowed = nLength != 0 && nLength < kLivePathSize &&
                    KovaLivePathTrack(KovaLivePathLast({szPath, nLength})) < 0;
    for (const char c : path)
        bAllowed = bAllowed && !IsForbidden(c);
    if (!bAllowed)
        szPath[0] = '\0';
    return bAllowed;
}

bool KovaLivePathEscape(const char *szPath, char *szEscaped, size_t nCapacity)
{
    static constexpr char kHex[] = "0123456789ABCDEF";
    size_t nLength = 0;
    for (; *szPath != '\0'; ++szPath) {
        const uint8_t nByte = static_cast<uint8_t>(*szPath);
        const bool bPlain = IsPlain(*szPath);
        if (nLength + (bPlain ? 1 : 3) >= nCapacity)
            return false;
        if (bPlain) {
            szEscaped[nLength++] = *szPath;
            continue;
        }
        szEscaped[nLength++] = '%';
        szEscaped[nLength++] = kHex[nByte >> 4];
        szEscaped[nLength++] = kHex[nByte & 0xF];
    }
    if (nLength >= nCapacity)
        return false;
    szEscaped[nLength] = '\0';
    return true;
}
