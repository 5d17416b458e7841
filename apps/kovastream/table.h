#pragma once

#include <cstddef>
#include <limits>
#include <string>
#include <vector>

namespace kovastream {

/// Rows of fields. The first is a name, the second what is never left out; those behind are
/// figures, the most important ones in front.
using Table = std::vector<std::vector<std::string>>;

constexpr size_t kNoWidth = std::numeric_limits<size_t>::max();

/// The rows as lines of at most that many characters, with the fields below each other. Figures
/// for which there is no room are left out from the right, and names are cut.
std::vector<std::string> Lines(const Table &table, size_t width);

} // namespace kovastream
