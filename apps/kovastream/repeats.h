#pragma once

#include <cstddef>
#include <string>

namespace kovastream {

/// Leaves out a line that is the one before it again, and counts such lines: a player that has not
/// begun to play makes the library print the same line with every packet.
class Repeats {
public:
    /// What remains of whole lines.
    std::string Without(const std::string &lines);
    /// A line that says how many were left out since the last call; empty if none was.
    std::string Said();

private:
    std::string m_last;
    size_t m_count = 0;
};

} // namespace kovastream
