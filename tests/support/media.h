#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// Made-up media, as bytes: H.264 in Annex B form and AAC frames with ADTS
/// headers. Nothing of the library is used here.

/// Parameter sets (NAL units) of the pictures below.
std::string KovaTestSps();
std::string KovaTestPps();

/// NAL units one after the other, each behind a start code of four bytes.
std::string KovaAnnexB(const std::vector<std::string> &units);

/// Parameter sets in front of a key frame of some size, another frame, and an
/// ADTS frame (AAC LC, 44.1 kHz, two channels: config 1210); all bytes alike.
std::string KovaTestKeyFrame(size_t nSliceSize);
std::string KovaTestInterFrame(size_t nSliceSize);
std::string KovaTestAacFrame(size_t nPayloadSize);

/// Bytes that differ with the seed, with no start code and no sync word in them;
/// the last one is as the end of a NAL unit may be.
std::string KovaNoise(size_t nSize, uint32_t nSeed);

/// The sampling frequency indexes of ADTS that are used here.
constexpr unsigned kAdts48000 = 3;
constexpr unsigned kAdts44100 = 4;

/// An access unit of AAC LC, two channels, behind its ADTS header.
std::string KovaAdts(const std::string &sound, unsigned nFrequency = kAdts44100);

/// The bytes of a unit as the library takes them.
inline const uint8_t *KovaUnitBytes(const std::string &unit)
{
    return reinterpret_cast<const uint8_t *>(unit.data());
}
