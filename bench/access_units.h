#pragma once

#include <cstddef>
#include <string>

/// A picture in Annex B form: parameter sets if it is a key frame, and one slice of nSize bytes.
std::string KovaBenchPicture(bool bKey, size_t nSize);

/// One AAC frame of nSize bytes behind its ADTS header.
std::string KovaBenchSound(size_t nSize);
