#pragma once

#include <string>

namespace kovastream {

struct Password {
    std::string text;
    bool exposed = false; ///< others than its owner and its group may read the file
};

/// The first line of a file. Throws Failure when there is none.
Password ReadPassword(const std::string &file);

} // namespace kovastream
