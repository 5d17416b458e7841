#pragma once

#include <cstdint>
#include <string>

/// Media that can be checked byte for byte by whoever gets any part of it: each
/// unit says its number, and its other bytes follow from that. Twenty pictures
/// and twenty sounds a second; every fourth picture is a key frame.
constexpr unsigned kSoakInterval = 50; ///< ms
constexpr unsigned kSoakSlices = 2;    ///< per picture

/// Presentation timestamp, ms, and what the two tracks make of it.
uint32_t KovaSoakPts(uint32_t nNumber);
uint32_t KovaSoakPictureTimestamp(uint32_t nNumber);
uint32_t KovaSoakSoundTimestamp(uint32_t nNumber);

/// A slice of a picture (a NAL unit). The large one of a key frame travels in
/// fragments; those of other pictures travel together.
std::string KovaSoakSlice(uint32_t nNumber, unsigned nSlice);
/// An AAC access unit without its ADTS header.
std::string KovaSoakSound(uint32_t nNumber);

/// The same as they are pushed.
std::string KovaSoakPicture(uint32_t nNumber);
std::string KovaSoakAdts(uint32_t nNumber);

/// The number that a slice or a sound says; false when there is none.
bool KovaSoakReadSlice(const std::string &unit, uint32_t *pNumber, unsigned *pSlice);
bool KovaSoakReadSound(const std::string &unit, uint32_t *pNumber);
