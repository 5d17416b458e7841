#pragma once

#include <string>
#include <string_view>

namespace kovastream {

/// The text with a question mark for each control character, but for those in `kept`. Names of
/// inputs and what players send may have any characters in them: nothing of it may steer a
/// terminal.
std::string Printable(std::string text, std::string_view kept = {});

} // namespace kovastream
