#pragma once

#include <stdexcept>
#include <string>

namespace kovastream {

/// Ends the program with status 1. The text is the one line that the user gets: what is wrong and
/// what to do.
struct Failure : std::runtime_error {
    explicit Failure(const std::string &text) : std::runtime_error(OneLine(text)) {}

private:
    /// Names of inputs may have any characters in them.
    static std::string OneLine(std::string text)
    {
        for (char &c : text) {
            if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F)
                c = '?';
        }
        return text;
    }
};

} // namespace kovastream
