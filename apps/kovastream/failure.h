#pragma once

#include <stdexcept>

namespace kovastream {

/// Ends the program with status 1. The text is the one line that the user gets: what is wrong and
/// what to do.
struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

} // namespace kovastream
