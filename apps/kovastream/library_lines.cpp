#include "library_lines.h"

#include <algorithm>
#include <cctype>
#include <string_view>

namespace kovastream {

namespace {

/// In front of the lines that have a level; 0 stands for any digit.
constexpr std::string_view kStamp = "0000/00/00 00:00:00 ";

/// Of the level of failures, though it is how a player leaves.
constexpr std::string_view kLeft = "Client RTSP Handler connection closed !!!";

bool IsFailure(std::string_view line)
{
    if (line.size() < kStamp.size() || line.find(kLeft) != std::string_view::npos)
        return false;
    return std::equal(kStamp.begin(), kStamp.end(), line.begin(), [](char stamp, char c) {
        return stamp == '0' ? isdigit(static_cast<unsigned char>(c)) != 0 : stamp == c;
    });
}

} // namespace

std::string Chosen(const std::string &lines, LibraryLines which)
{
    if (which == LibraryLines::All)
        return lines;
    std::string chosen;
    for (size_t begin = 0; which == LibraryLines::Failures && begin < lines.size();) {
        const size_t end = std::min(lines.find('\n', begin), lines.size() - 1) + 1;
        const std::string_view line(lines.data() + begin, end - begin);
        if (IsFailure(line))
            chosen += line;
        begin = end;
    }
    return chosen;
}

} // namespace kovastream
