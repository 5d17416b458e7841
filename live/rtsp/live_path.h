#pragma once

#include "live/rtsp/request_url.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

/// Writes a path without slashes at its ends and in a row, terminated.
/// @return its length, or kLivePathSize when it does not fit; szPath is then ""
size_t KovaLivePathCollapse(std::string_view path, char *szPath);

/// The track that a segment names: "track<n>", n from 1 without a leading zero and of at most
/// 9 digits, gives n - 1; anything else -1.
int32_t KovaLivePathTrack(std::string_view segment);

/// The part of a path behind its last slash; all of it without one.
std::string_view KovaLivePathLast(std::string_view path);
