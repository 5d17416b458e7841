#pragma once

#include "options.h"

#include <string>

namespace kovastream {

/// How players ask for a stream.
struct Urls {
    std::string here;
    std::string others; ///< from other machines, where that differs; empty if they cannot
};
Urls UrlsOf(const std::string &uri, const Options &options);

} // namespace kovastream
