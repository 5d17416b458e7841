#include "tests/soak/soak_media.h"

#include "tests/support/media.h"

#include <cstdio>
#include <cstdlib>

namespace {

constexpr uint32_t kFirstPts = 1000; // 0 would mean "no timestamp yet"
constexpr unsigned kKeyInterval = 4;
constexpr size_t kDigits = 8;

bool IsKey(uint32_t nNumber)
{
    return nNumber % kKeyInterval == 0;
}

/// The number as text, then what follows from it.
std::string Body(uint32_t nNumber, unsigned nSalt, size_t nSize)
{
    char szNumber[kDigits + 1];
    snprintf(szNumber, sizeof(szNumber), "%08x", nNumber);
    return szNumber + KovaNoise(nSize - kDigits, nNumber * 8 + nSalt);
}

bool ReadNumber(const std::string &unit, size_t nAt, uint32_t *pNumber)
{
    if (unit.size() < nAt + kDigits)
        return false;
    const std::string digits = unit.substr(nAt, kDigits);
    if (digits.find_first_not_of("0123456789abcdef") != std::string::npos)
        return false;
    *pNumber = static_cast<uint32_t>(std::strtoul(digits.c_str(), nullptr, 16));
    return true;
}

} // namespace

uint32_t KovaSoakPts(uint32_t nNumber)
{
    return kFirstPts + nNumber * kSoakInterval;
}

uint32_t KovaSoakPictureTimestamp(uint32_t nNumber)
{
    return KovaSoakPts(nNumber) * 90;
}

uint32_t KovaSoakSoundTimestamp(uint32_t nNumber)
{
    // At 44100 Hz both terms are whole numbers, so steps do not round.
    return 44100 / 1000 * kFirstPts + kFirstPts / 10 + nNumber * (44100 * kSoakInterval / 1000);
}

std::string KovaSoakSlice(uint32_t nNumber, unsigned nSlice)
{
    const size_t nLarge = IsKey(nNumber) ? 3000 : 900;
    const size_t nSize = nSlice == 0 ? nLarge + nNumber % 97 : 100 + nNumber % 31;
    std::string unit(1, IsKey(nNumber) ? '\x65' : '\x41');
    unit += static_cast<char>('A' + nSlice);
    return unit + Body(nNumber, nSlice, nSize);
}

std::string KovaSoakSound(uint32_t nNumber)
{
    return Body(nNumber, kSoakSlices, 150 + nNumber % 201);
}

std::string KovaSoakPicture(uint32_t nNumber)
{
    std::vector<std::string> units = {"\x09\x10"};
    if (IsKey(nNumber))
        units.insert(units.end(), {KovaTestSps(), KovaTestPps()});
    for (unsigned nSlice = 0; nSlice < kSoakSlices; nSlice++)
        units.push_back(KovaSoakSlice(nNumber, nSlice));
    return KovaAnnexB(units);
}

std::string KovaSoakAdts(uint32_t nNumber)
{
    return KovaAdts(KovaSoakSound(nNumber));
}

bool KovaSoakReadSlice(const std::string &unit, uint32_t *pNumber, unsigned *pSlice)
{
    if (!ReadNumber(unit, 2, pNumber))
        return false;
    *pSlice = static_cast<unsigned>(unit[1] - 'A');
    return *pSlice < kSoakSlices;
}

bool KovaSoakReadSound(const std::string &unit, uint32_t *pNumber)
{
    return ReadNumber(unit, 0, pNumber);
}
