#pragma once

#include <string>

namespace kovastream {

/// Which of the library's lines are shown.
enum class LibraryLines {
    None,
    Failures, ///< without those that every player causes
    All,
};

/// Those of whole lines that are shown.
std::string Chosen(const std::string &lines, LibraryLines which);

} // namespace kovastream
