#pragma once

#include "source.h"

#include <string>

namespace kovastream {

/// Why an input, named as lines show it, cannot be opened, from FFmpeg's error number, and what to
/// do.
std::string OpenFailure(const std::string &input, SourceKind kind, int error);

} // namespace kovastream
