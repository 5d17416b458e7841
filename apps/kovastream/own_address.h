#pragma once

#include <string>

namespace kovastream {

/// The IPv4 address under which other machines most likely reach this one; empty without any.
std::string OwnAddress();

} // namespace kovastream
