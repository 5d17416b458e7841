#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

/// A picture in Annex B form: parameter sets if it is a key frame, and one slice of nSize bytes.
std::vector<uint8_t> KovaBenchPicture(bool bKey, size_t nSize);

/// One AAC frame of nSize bytes behind its ADTS header.
std::vector<uint8_t> KovaBenchSound(size_t nSize);
