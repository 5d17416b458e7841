#pragma once

#include "printable.h"

#include <stdexcept>
#include <string>

namespace kovastream {

/// Ends the program with status 1. The text is the one line that the user gets: what is wrong and
/// what to do.
struct Failure : std::runtime_error {
    explicit Failure(const std::string &text) : std::runtime_error(Printable(text)) {}
};

} // namespace kovastream
