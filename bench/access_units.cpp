#include "bench/access_units.h"

namespace {

const std::vector<uint8_t> kStart = {0, 0, 0, 1};
const std::vector<uint8_t> kSps = {0x67, 0x42, 0xC0, 0x1E, 0xD9, 0x00, 0xA0, 0x47, 0xFE, 0xC8};
const std::vector<uint8_t> kPps = {0x68, 0xCE, 0x3C, 0x80};

void Append(std::vector<uint8_t> *pPicture, const std::vector<uint8_t> &nal)
{
    pPicture->insert(pPicture->end(), kStart.begin(), kStart.end());
    pPicture->insert(pPicture->end(), nal.begin(), nal.end());
}

} // namespace

std::vector<uint8_t> KovaBenchPicture(bool bKey, size_t nSize)
{
    std::vector<uint8_t> picture;
    std::vector<uint8_t> slice(nSize);
    // Without zeros, so that no start code appears.
    for (size_t nAt = 0; nAt < nSize; nAt++)
        slice[nAt] = static_cast<uint8_t>(nAt * 37 | 1);
    slice[0] = bKey ? 0x65 : 0x41;
    if (bKey) {
        Append(&picture, kSps);
        Append(&picture, kPps);
    }
    Append(&picture, slice);
    return picture;
}

std::vector<uint8_t> KovaBenchSound(size_t nSize)
{
    const size_t nLength = nSize + 7;
    std::vector<uint8_t> frame = {0xFF, 0xF1, 0x4C};
    frame.push_back(static_cast<uint8_t>(0x80 | nLength >> 11));
    frame.push_back(static_cast<uint8_t>(nLength >> 3));
    frame.push_back(static_cast<uint8_t>((nLength & 7) << 5 | 0x1F));
    frame.push_back(0xFC);
    frame.resize(nLength, 0x21);
    return frame;
}
