#include "tests/support/media.h"

namespace {

constexpr size_t kAdtsHeader = 7;

} // namespace

std::string KovaTestSps()
{
    return std::string("\x67\x42\xC0\x1E\xD9\x00\xA0\x47\xFE\xC8", 10);
}

std::string KovaTestPps()
{
    return std::string("\x68\xCE\x3C\x80", 4);
}

std::string KovaAnnexB(const std::vector<std::string> &units)
{
    std::string bytes;
    for (const std::string &unit : units)
        bytes.append("\0\0\0\1", 4).append(unit);
    return bytes;
}

std::string KovaTestKeyFrame(size_t nSliceSize)
{
    return KovaAnnexB({KovaTestSps(), KovaTestPps(), "\x65" + std::string(nSliceSize, '\x5a')});
}

std::string KovaTestInterFrame(size_t nSliceSize)
{
    return KovaAnnexB({"\x41" + std::string(nSliceSize, '\x5a')});
}

std::string KovaTestAacFrame(size_t nPayloadSize)
{
    return KovaAdts(std::string(nPayloadSize, '\x21'));
}

std::string KovaNoise(size_t nSize, uint32_t nSeed)
{
    std::string bytes(nSize, '\0');
    uint32_t nState = nSeed * 2654435761U + 1;
    uint32_t nBefore = 0;
    for (char &byte : bytes) {
        nState = nState * 1664525U + 1013904223U;
        uint32_t nByte = nState >> 24;
        const bool bStart = nBefore == 0 && nByte == 0; // of a start code
        const bool bSync = nBefore == 0xff && nByte >= 0xf0;
        if (bStart || bSync)
            nByte = 0x5a;
        byte = static_cast<char>(nByte);
        nBefore = nByte;
    }
    if (!bytes.empty())
        bytes.back() = '\x80'; // as the stop bit is: a unit does not end in a zero
    return bytes;
}

std::string KovaAdts(const std::string &sound, unsigned nFrequency)
{
    const size_t nLength = sound.size() + kAdtsHeader;
    std::string frame("\xFF\xF1", 2);
    frame += static_cast<char>(0x40 | nFrequency << 2);
    frame += static_cast<char>(0x80 | nLength >> 11);
    frame += static_cast<char>(nLength >> 3 & 0xff);
    frame += static_cast<char>((nLength & 7) << 5 | 0x1f);
    frame += '\xfc';
    return frame + sound;
}
